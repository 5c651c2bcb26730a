#!/usr/bin/env bash
# Speed, reported not asserted: orm beside the open amplifiers a Linux guitarist would otherwise
# use (installed here for the comparison only, run as binaries through lilv), with the aliasing
# figure.  Release build.  SECONDS_OF_RIFF=30 for a shorter run; scripts/slow.sh has the
# micro-benchmarks.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
missing=()
for package in guitarix-lv2 zam-plugins liblilv-dev libfftw3-dev; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_BUILD_TESTS=ON -DORM_BUILD_BENCH=ON > /dev/null
cmake --build build/release -j "$(nproc)" --target orm-peer-bench
./build/release/orm-peer-bench --seconds "${SECONDS_OF_RIFF:-120}"
