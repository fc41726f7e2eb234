#!/usr/bin/env bash
# Builds Tovin (installing what is missing) and runs the whole test suite through ctest.
# Extra arguments go to ctest, e.g. scripts/test.sh -L core
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh"
cd "${TOVIN_BUILD_DIR:-$root/build}"
ctest -j2 --output-on-failure --timeout 600 "$@"
