#!/usr/bin/env bash
# Configures (once) and builds Tovin into build/. Extra arguments go to cmake --build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
# A newer Node.js fetched by setup.sh (only where the system's is too old) comes first.
if [ -d "$root/.tools/node/node_modules/.bin" ]; then
    export PATH="$root/.tools/node/node_modules/.bin:$PATH"
fi

build="${TOVIN_BUILD_DIR:-$root/build}"
if [ ! -f "$build/build.ninja" ]; then
    cmake -S "$root" -B "$build" -G Ninja \
        -DCMAKE_BUILD_TYPE="${TOVIN_BUILD_TYPE:-RelWithDebInfo}" \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
fi
cmake --build "$build" "$@"
