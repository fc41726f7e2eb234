#!/usr/bin/env bash
# Builds in Release and prints the core benchmarks' figures.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
export TOVIN_BUILD_DIR="$root/build-release" TOVIN_BUILD_TYPE=Release
"$root/scripts/build.sh" --target bench_core
exec "$TOVIN_BUILD_DIR/bench/bench_core" "$@"
