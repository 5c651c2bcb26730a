#!/usr/bin/env bash
# Builds the libraries orm.dll links that are not header-only (pugixml, FFTW in single precision,
# soxr) for 64-bit Windows with mingw-w64, from Debian's own source packages.
#
# The sources come from the Debian archive this machine already uses: its URIs are read from the
# apt configuration and a private deb-src list is made from them, so the system's apt state is not
# touched.  Everything lands in a cache outside the work tree (ORM_MINGW_CACHE, by default
# ~/.cache/orm-mingw); a package is built again only when its source version or the compiler
# changes, so a second run takes a second.
#
# Prints nothing but progress; the prefix is $ORM_MINGW_CACHE/prefix.
set -euo pipefail

CACHE="${ORM_MINGW_CACHE:-$HOME/.cache/orm-mingw}"
PREFIX="$CACHE/prefix"
HOST=x86_64-w64-mingw32
TOOLCHAIN="$(cd "$(dirname "$0")/.." && pwd)/cmake/mingw-w64-x86_64.cmake"
JOBS="${ORM_MINGW_JOBS:-2}"
PACKAGES=(pugixml fftw3 libsoxr)

mkdir -p "$CACHE/apt/lists/partial" "$CACHE/apt/cache/archives/partial" "$CACHE/src" "$CACHE/build" "$PREFIX"

compiler_version() { "$HOST-g++-posix" -dumpfullversion 2>/dev/null || "$HOST-g++-posix" -dumpversion; }
COMPILER="$HOST-g++-posix $(compiler_version)"
# A changed recipe (this script, the toolchain file) builds the libraries again.
RECIPE=$(cat "$0" "$TOOLCHAIN" | sha256sum | cut -c1-16)

# The archive's URI for the bookworm suite, from one-line lists or deb822 .sources files.
archive_uris() {
  {
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
      [ -f "$file" ] || continue
      awk '$1 == "deb" { for (i = 2; i <= NF; i++) if ($i !~ /^\[/ && $i !~ /\]$/) { if ($(i + 1) == "bookworm") print $i; break } }' "$file"
    done
    for file in /etc/apt/sources.list.d/*.sources; do
      [ -f "$file" ] || continue
      awk 'BEGIN { RS = ""; FS = "\n" }
           { uris = ""; suites = ""; enabled = 1
             for (i = 1; i <= NF; i++) {
               if ($i ~ /^URIs:/) { uris = $i; sub(/^URIs:[ \t]*/, "", uris) }
               if ($i ~ /^Suites:/) { suites = " " $i " "; sub(/^Suites:/, "", suites) }
               if ($i ~ /^Enabled:[ \t]*no/) enabled = 0
             }
             if (enabled && suites ~ /[ \t]bookworm[ \t]/) { n = split(uris, u, /[ \t]+/); for (j = 1; j <= n; j++) if (u[j] != "") print u[j] } }' "$file"
    done
  } | awk '!seen[$0]++'
}

APT_OPTIONS=(
  -o "Dir::Etc::SourceList=$CACHE/apt/sources.list"
  -o "Dir::Etc::SourceParts=/dev/null"
  -o "Dir::State::Lists=$CACHE/apt/lists"
  -o "Dir::Cache=$CACHE/apt/cache"
  -o "Debug::NoLocking=1"
  -q
)
# apt fetches as its own unprivileged user, which cannot enter a private cache under /root.
if [ "$(id -u)" -eq 0 ]; then APT_OPTIONS+=(-o "APT::Sandbox::User=root"); fi

fetch_sources() {
  local uris
  uris=$(archive_uris)
  if [ -z "$uris" ]; then
    echo "windows-deps: no Debian archive for bookworm in /etc/apt/sources.list{,.d}" >&2
    exit 1
  fi
  : > "$CACHE/apt/sources.list.new"
  for uri in $uris; do
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $uri bookworm main" >> "$CACHE/apt/sources.list.new"
  done
  mv "$CACHE/apt/sources.list.new" "$CACHE/apt/sources.list"
  echo "windows-deps: fetching the source index of $(echo $uris)"
  apt-get "${APT_OPTIONS[@]}" update > "$CACHE/apt/update.log" 2>&1 || { cat "$CACHE/apt/update.log" >&2; exit 1; }
}

# The version apt would fetch for a source package (empty when the index is not there yet).
source_version() {
  apt-cache "${APT_OPTIONS[@]}" showsrc "$1" 2>/dev/null | awk '/^Version:/ { print $2; exit }'
}

# Unpacks a source package (Debian's patches applied) into a folder of its own; prints the tree.
unpack() {
  local package=$1 version=$2
  local dir="$CACHE/src/$package"
  if [ ! -f "$dir/.version" ] || [ "$(cat "$dir/.version")" != "$version" ]; then
    rm -rf "$dir"
    mkdir -p "$dir"
    (cd "$dir" && apt-get "${APT_OPTIONS[@]}" source "$package=$version" > "$dir.log" 2>&1) ||
      { cat "$dir.log" >&2; exit 1; }
    echo "$version" > "$dir/.version"
  fi
  find "$dir" -mindepth 1 -maxdepth 1 -type d | head -n 1
}

# Runs a command with its output in a log; on failure shows the log's end and stops.
logged() {
  local log=$1
  shift
  "$@" >> "$log" 2>&1 || { tail -n 40 "$log" >&2; echo "windows-deps: failed, see $log" >&2; exit 1; }
}

cmake_package() {
  local src=$1 build=$2
  shift 2
  rm -rf "$build" "$build.log"
  logged "$build.log" cmake -S "$src" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$PREFIX" -DBUILD_SHARED_LIBS=OFF "$@"
  logged "$build.log" nice -n 10 cmake --build "$build" -j "$JOBS"
  logged "$build.log" cmake --install "$build"
}

build_pugixml() { cmake_package "$1" "$CACHE/build/pugixml" -DPUGIXML_BUILD_TESTS=OFF; }

build_libsoxr() {
  cmake_package "$1" "$CACHE/build/soxr" -DBUILD_TESTS=OFF -DBUILD_EXAMPLES=OFF -DWITH_OPENMP=OFF \
    -DWITH_LSR_BINDINGS=OFF
}

build_fftw3() {
  local src=$1 build="$CACHE/build/fftw3"
  rm -rf "$build" "$build.log"
  mkdir -p "$build"
  # Single precision only, the SIMD forms the convolver's sizes profit from, the planner's thread
  # safety inside the one library, no Fortran, no programs.  mingw's aligned allocation is not
  # found by the configure script: FFTW aligns its memory itself.
  (cd "$build" && logged "$build.log" "$src/configure" --host=$HOST --prefix="$PREFIX" --enable-float \
    --enable-sse2 --enable-avx --enable-threads --with-combined-threads --enable-static --disable-shared \
    --disable-fortran --disable-doc --with-our-malloc CC="$HOST-gcc-posix" CFLAGS="-O2")
  logged "$build.log" nice -n 10 make -C "$build" -j "$JOBS"
  logged "$build.log" make -C "$build" install
}

if ! command -v "$HOST-g++-posix" > /dev/null; then
  echo "windows-deps: $HOST-g++-posix is missing (apt-get install g++-mingw-w64-x86-64-posix)" >&2
  exit 1
fi

need_index=0
for package in "${PACKAGES[@]}"; do
  [ -f "$PREFIX/.$package.stamp" ] || need_index=1
done
[ -f "$CACHE/apt/sources.list" ] || need_index=1
if [ $need_index -eq 1 ]; then fetch_sources; fi

for package in "${PACKAGES[@]}"; do
  version=$(source_version "$package")
  if [ -z "$version" ]; then
    fetch_sources
    version=$(source_version "$package")
  fi
  if [ -z "$version" ]; then
    echo "windows-deps: Debian's archive has no source package $package" >&2
    exit 1
  fi
  stamp="$package $version $COMPILER $RECIPE"
  if [ -f "$PREFIX/.$package.stamp" ] && [ "$(cat "$PREFIX/.$package.stamp")" = "$stamp" ]; then
    continue
  fi
  echo "windows-deps: building $package $version for $HOST"
  src=$(unpack "$package" "$version")
  [ -n "$src" ] || { echo "windows-deps: unpacking $package failed" >&2; exit 1; }
  "build_$package" "$src"
  echo "$stamp" > "$PREFIX/.$package.stamp"
done
echo "windows-deps: libraries in $PREFIX"
