#!/usr/bin/env bash
# Builds orm and renders a guitar phrase through the example system; prints where the file is.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_BUILD_TESTS=OFF -DORM_BUILD_BENCH=OFF > /dev/null
cmake --build build/release -j "$(nproc)" --target orm-render
mkdir -p out
./build/release/orm-render --system examples/tube-stage.xml --signal riff --seconds 8 --out out/demo.wav
echo "Rendered: $PWD/out/demo.wav"
