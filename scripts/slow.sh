#!/usr/bin/env bash
# What stays out of the everyday test command: anything labelled "slow" (long soaks) and the
# benchmarks (reported, not asserted).  Release build.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_BUILD_TESTS=ON -DORM_BUILD_BENCH=ON > /dev/null
cmake --build build/release -j "$(nproc)"
ctest --test-dir build/release -L slow --output-on-failure --no-tests=ignore
./build/release/bench/orm_bench --benchmark_min_time=0.2
