#!/usr/bin/env bash
# Builds orm with AddressSanitizer and UndefinedBehaviorSanitizer, warnings as errors, and runs
# every test suite; then a plain Release build runs them again with the kernels held to the plain
# loops and to SSE2 (what another processor would pick); then the Windows module, cross-built,
# runs under Wine; then the thread tests run under ThreadSanitizer; last, each fuzz target runs for
# a short while (scripts/fuzz.sh, clang-14).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

JOBS=$(nproc)
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export LSAN_OPTIONS="suppressions=$PWD/tests/support/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORM_WERROR=ON \
  -DORM_SANITIZE="address;undefined" > /dev/null
cmake --build build/asan -j "$JOBS"
ctest --test-dir build/asan -j "$JOBS" --output-on-failure -LE slow

# Optimisation, processor and vector level must not change what the suites see.
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DORM_WERROR=ON -DORM_BUILD_TESTS=ON \
  -DORM_BUILD_BENCH=ON > /dev/null
cmake --build build/release -j "$JOBS"
for level in plain sse2; do
  echo "== Release build, kernels at level $level"
  ORM_KERNELS=$level ctest --test-dir build/release -j "$JOBS" --output-on-failure -LE slow
done

# The Windows module, cross-built and run under Wine (says SKIPPED where mingw-w64 or Wine is missing).
bash scripts/windows-test.sh

export TSAN_OPTIONS="halt_on_error=1"
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORM_WERROR=ON \
  -DORM_SANITIZE="thread" -DORM_BUILD_BENCH=OFF > /dev/null
cmake --build build/tsan -j "$JOBS" --target test_threads
ctest --test-dir build/tsan -L threads --output-on-failure

# A short, repeatable run of each fuzz target in its own clang build: a fixed seed and number of
# inputs from a fresh corpus, so that the same tree passes or fails alike on every run
# (scripts/fuzz.sh TARGET SECONDS explores freely, for as long as one likes).
declare -A fuzz_runs=([system]=20000 [wav]=300000 [dispatcher]=200)
for target in system wav dispatcher; do
  status=0
  fresh=$(mktemp -d)
  ORM_FUZZ_CORPUS=$fresh ORM_FUZZ_JOBS="$JOBS" bash scripts/fuzz.sh $target 900 -seed=1 \
    -runs="${fuzz_runs[$target]}" || status=$?
  rm -rf "$fresh"
  if [ $status -eq 3 ]; then
    echo "== fuzz targets SKIPPED: clang-14 with libFuzzer is missing (not a pass)"
    break
  fi
  [ $status -eq 0 ] || exit $status
done
