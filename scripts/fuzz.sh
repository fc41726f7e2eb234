#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time.
#   scripts/fuzz.sh [seconds per target, default 60]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds="${1:-60}"
"$root/scripts/setup.sh" --fuzz

build="$root/build-fuzz"
if [ ! -f "$build/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTOVIN_FUZZ=ON -DTOVIN_BUILD_TESTS=OFF -DTOVIN_BUILD_BENCH=OFF
fi
cmake --build "$build" --target fuzz_schedule fuzz_ledger fuzz_settings fuzz_routes

for target in schedule ledger settings routes; do
    echo "== fuzz_$target for ${seconds}s"
    work="$build/corpus-$target"
    mkdir -p "$work"
    # New finds go to the work folder; the committed seeds stay as they are.
    "$build/fuzz/fuzz_$target" "$work" "$root/fuzz/corpus/$target" \
        -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/crash-$target-" -print_final_stats=1 2>&1 | tail -n 12
done
