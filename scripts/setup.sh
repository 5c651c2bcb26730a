#!/usr/bin/env bash
# Installs the Debian packages that building and testing orm need.  Idempotent: when everything
# is present it only checks and returns.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config ccache qemu-user
  libgtest-dev libgmock-dev libbenchmark-dev
  libboost-dev libpugixml-dev libeigen3-dev
  libfftw3-dev libsoxr-dev libsndfile1-dev
  ngspice
  clang-14 libfuzzer-14-dev
  libcairo2-dev libfreetype-dev libpng-dev libx11-dev libxtst-dev xvfb fonts-dejavu-core fonts-dejavu-extra
  libjack-jackd2-dev jackd2
  lv2-dev lilv-utils sordi jalv ardour
  g++-mingw-w64-x86-64-posix wine wine64 libstb-dev dpkg-dev xz-utils xauth
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing=()
for package in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# A decimal-comma locale, so the tests can check that descriptions read the same under it.
if ! locale -a 2>/dev/null | grep -qix 'de_DE.utf8'; then
  if [ ! -f /usr/share/i18n/locales/de_DE ]; then
    [ ${#missing[@]} -gt 0 ] || $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends locales
  fi
  $SUDO localedef -i de_DE -f UTF-8 de_DE.UTF-8 || echo "setup: could not generate de_DE.UTF-8 (locale test will be skipped)"
fi
