#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, over an instrumented core, and runs each for a bounded
# time on its seed corpus. Fails when a target does not build or the fuzzer finds a crash.
#   scripts/fuzz.sh [seconds per target, default 60]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds="${1:-60}"
"$root/scripts/setup.sh" --fuzz

build="${TOVIN_FUZZ_BUILD_DIR:-$root/build-fuzz}"
if [ ! -f "$build/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTOVIN_FUZZ=ON -DTOVIN_BUILD_TESTS=OFF -DTOVIN_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$build" --target fuzz_schedule fuzz_ledger fuzz_settings fuzz_routes fuzz_wire

for target in schedule ledger settings routes wire; do
    work="$build/corpus-$target"
    mkdir -p "$work"
    # New finds go to the work folder; the committed seeds stay as they are.
    log="$build/fuzz-$target.log"
    if ! "$build/fuzz/fuzz_$target" "$work" "$root/fuzz/corpus/$target" \
        -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/crash-$target-" -print_final_stats=1 >"$log" 2>&1; then
        echo "fuzz_$target FAILED:"
        tail -n 40 "$log"
        exit 1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    edges=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    echo "fuzz_$target: ${runs:-?} runs in ${seconds}s, ${edges:-?} edges covered, no crash"
done
