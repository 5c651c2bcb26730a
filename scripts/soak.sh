#!/usr/bin/env bash
# The validation battery's long form: every check of the short form with every block size from
# 1 to 4096, then a soak of random automation and settings (rates, block sizes, parameters from
# two threads, bad inputs, instances closed and reopened) for the given time, 600 s by default.
# Builds Release first.  Usage: bash scripts/soak.sh [SECONDS] [SEED]
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_TO_RUN=${1:-600}
SEED=${2:-1}
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build build/release --target orm-validate
./build/release/orm-validate build/release/orm.so --soak "$SECONDS_TO_RUN" --seed "$SEED"
