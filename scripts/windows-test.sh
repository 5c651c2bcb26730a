#!/usr/bin/env bash
# The Windows module under Wine: builds orm.dll and the Windows test host (scripts/windows.sh),
# then, under Wine with a private Xvfb server, the host loads the module as Windows hosts do and,
# in one Wine session,
#  - checks its exports and imported DLLs and its identity;
#  - renders the riff at the corners of the settings (oversampling 2 with low CPU, 8 with high)
#    and compares each render with the Linux module's render of the same input and settings
#    (orm-render, build/release);
#  - opens the editor in a window of its own, compares it with the Linux screenshot
#    (docs/editor.png), drags a knob, and checks what the host heard.
# Without mingw-w64 or Wine it says SKIPPED and why; it never passes without running.
set -euo pipefail
cd "$(dirname "$0")/.."

skip() {
  echo "== Windows module under Wine: SKIPPED ($1); the Windows module was NOT tested"
  exit 0
}

if [ "${1:-}" != "--under-xvfb" ]; then
  command -v x86_64-w64-mingw32-g++-posix > /dev/null || skip "mingw-w64 is not installed: g++-mingw-w64-x86-64-posix"
  command -v wine > /dev/null || command -v wine64 > /dev/null || skip "Wine is not installed: wine64"
  command -v xvfb-run > /dev/null || skip "xvfb-run is not installed: xvfb"
  echo "== Windows module under Wine"
  bash scripts/windows.sh
  if [ ! -x build/release/orm-render ]; then
    cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_WERROR=ON -DORM_BUILD_TESTS=ON \
      -DORM_BUILD_BENCH=ON > /dev/null
    cmake --build build/release -j "$(nproc)" --target orm-render
  fi
  # A Wine prefix made once and kept beside the libraries; each run works in a copy of its own
  # (hard links, the registry copied), so that runs never share a Wine server or an X display.
  CACHE="${ORM_MINGW_CACHE:-$HOME/.cache/orm-mingw}"
  export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  if [ ! -f "$CACHE/wine/system.reg" ]; then
    echo "windows-test: making the Wine prefix $CACHE/wine"
    rm -rf "$CACHE/wine"
    WINEPREFIX="$CACHE/wine" "$(command -v wine64 || command -v wine)" wineboot -i > /dev/null 2>&1
    WINEPREFIX="$CACHE/wine" wineserver -w
  fi
  export ORM_WINE_TEMPLATE="$CACHE/wine"
  exec xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" bash "$0" --under-xvfb
fi

WINE="$(command -v wine64 || command -v wine)"
WINEPREFIX="$(mktemp -d "$ORM_WINE_TEMPLATE.run.XXXXXX")"
export WINEPREFIX
trap 'wineserver -k 2> /dev/null || true; rm -rf "$WINEPREFIX"' EXIT
rmdir "$WINEPREFIX"
cp -al "$ORM_WINE_TEMPLATE" "$WINEPREFIX"
for registry in "$WINEPREFIX"/*.reg; do
  rm "$registry"
  cp "$ORM_WINE_TEMPLATE/$(basename "$registry")" "$registry"
done
OUT=build/windows/wine-test
rm -rf "$OUT"
mkdir -p "$OUT"

# The Linux references; the host renders the same riff with the same settings and compares.
references=()
for corner in "0 0" "1 1"; do
  read -r oversampling cpu <<< "$corner"
  name="riff-oversampling$oversampling-cpu$cpu-linux.wav"
  build/release/orm-render --signal riff --seconds 2 --tail 0 --quiet --set Oversamp=$oversampling --set CPU=$cpu \
    --out "$OUT/$name"
  references+=("wine-test/$name" "$oversampling" "$cpu")
done
(cd build/windows && "$WINE" ./orm-win-host.exe orm.dll ../../docs/editor.png "${references[@]}")
# Wine's own processes end before the X server does.
wineserver -w || true
echo "windows-test: the Windows module passed under Wine"
