#!/usr/bin/env bash
# Builds the orm module and renders a guitar phrase through its amplifier, hosted by orm-render as
# a host would; prints where the file is.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_BUILD_TESTS=OFF -DORM_BUILD_BENCH=OFF > /dev/null
cmake --build build/release -j "$(nproc)" --target orm-render
mkdir -p out
./build/release/orm-render --signal riff --seconds 8 --out out/demo.wav
echo "Rendered: $PWD/out/demo.wav"
