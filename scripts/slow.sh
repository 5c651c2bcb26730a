#!/usr/bin/env bash
# The checks kept out of the everyday test command: regenerating the tube curves through the
# circuit simulator (minutes) and the benchmarks (reported, not asserted).  Release build.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_BUILD_TESTS=ON -DORM_BUILD_BENCH=ON > /dev/null
cmake --build build/release -j "$(nproc)"
ctest --test-dir build/release -L slow --output-on-failure
./build/release/bench/orm_bench --benchmark_min_time=0.2
