#!/usr/bin/env bash
# Builds Tovin (installing what is missing) and runs the whole test suite through ctest.
# Extra arguments go to ctest, e.g. scripts/test.sh -L core
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh"
# A newer Node.js fetched by setup.sh (only where the system's is too old) comes first.
if [ -d "$root/.tools/node/node_modules/.bin" ]; then
    export PATH="$root/.tools/node/node_modules/.bin:$PATH"
fi
cd "${TOVIN_BUILD_DIR:-$root/build}"
ctest -j2 --output-on-failure --timeout 600 "$@"
