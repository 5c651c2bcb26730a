#!/usr/bin/env bash
# Runs one fuzz target for a given time:  bash scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]
#   TARGET: system (a system description: parse, and if it loads, run a few blocks),
#           wav (the engine's WAV reader), dispatcher (a host's call sequence against the plug-in).
# Builds the targets with clang-14, libFuzzer, AddressSanitizer and UBSan in build/fuzz (apart
# from the gcc builds), seeds a corpus from the examples, the documentation and test data
# (fuzz/seeds.py), keeps what it learns in build/fuzz/corpus/TARGET, and writes a crashing
# input to build/fuzz/artifacts/.  It ends with
# the executions and coverage of the run; the exit status is libFuzzer's (non-zero on a finding).
# Exit status 3: clang-14 or libFuzzer is missing, nothing was run.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
  echo "usage: bash scripts/fuzz.sh system|wav|dispatcher SECONDS [libFuzzer flags...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
case "$target" in
  system | wav | dispatcher) ;;
  *) echo "fuzz: unknown target '$target' (system, wav or dispatcher)" >&2; exit 2 ;;
esac

runtime=$(ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a 2>/dev/null | head -1 || true)
if ! command -v clang++-14 > /dev/null || [ -z "$runtime" ]; then
  echo "fuzz: SKIPPED: clang-14 with libFuzzer is not installed (Debian packages clang-14 and libfuzzer-14-dev;" \
       "scripts/setup.sh installs them)" >&2
  exit 3
fi

build=build/fuzz
if [ ! -f $build/build.ninja ]; then
  CC=clang-14 CXX=clang++-14 cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORM_FUZZ=ON \
    -DORM_SANITIZE="address;undefined" -DORM_BUILD_TESTS=OFF -DORM_BUILD_BENCH=OFF > /dev/null
fi
cmake --build $build -j "${ORM_FUZZ_JOBS:-2}" --target fuzz_$target > /dev/null

seeds=$build/seeds/$target
corpus=${ORM_FUZZ_CORPUS:-$build/corpus/$target}
rm -rf "$seeds"
mkdir -p "$seeds" "$corpus" $build/artifacts
python3 fuzz/seeds.py $build/seeds > /dev/null

export ASAN_OPTIONS="${ASAN_OPTIONS:-abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
log=$build/artifacts/$target.log
status=0
$build/fuzz/fuzz_$target -max_total_time="$seconds" -timeout=30 -rss_limit_mb=3072 -print_final_stats=1 \
  -artifact_prefix=$build/artifacts/$target- "$@" "$corpus" "$seeds" > "$log" 2>&1 || status=$?
executions=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || true)
# (-fork=N runs print no final statistics: the last status line counts.)
[ -n "$executions" ] || executions=$(grep -o '^#[0-9]*' "$log" | tail -1 | tr -d '#' || true)
coverage=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || true)
features=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || true)
echo "fuzz $target: (at most ${seconds} s) ${executions:-?} executions, cov ${coverage:-?}, ft ${features:-?}," \
     "corpus $(ls "$corpus" | wc -l) inputs; log $log"
if [ $status -ne 0 ]; then
  echo "fuzz $target: FINDING (status $status):" >&2
  grep -E 'ERROR|SUMMARY|Test unit written|terminate called|what\(\)' "$log" | head -20 >&2
fi
exit $status
