#!/usr/bin/env bash
# Builds the 64-bit Windows module orm.dll (and the Windows test host) on this Linux machine with
# mingw-w64: first the libraries it links (scripts/windows-deps.sh, cached in ~/.cache/orm-mingw),
# then the cross build in build/windows.  The module lands in build/windows/orm.dll.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v x86_64-w64-mingw32-g++-posix > /dev/null; then
  echo "windows: x86_64-w64-mingw32-g++-posix is missing; run scripts/setup.sh" >&2
  exit 1
fi
bash scripts/windows-deps.sh
cmake -S . -B build/windows -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DCMAKE_BUILD_TYPE=Release -DORM_WERROR=ON --no-warn-unused-cli > /dev/null
nice -n 10 cmake --build build/windows -j "${ORM_JOBS:-2}" --target orm orm-win-host
echo "windows: $(pwd)/build/windows/orm.dll"
