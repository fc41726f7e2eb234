#!/usr/bin/env bash
# Builds Tovin (installing what is missing) and runs it. Arguments go to tovin.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" --target tovin >/dev/null
exec "${TOVIN_BUILD_DIR:-$root/build}/src/app/tovin" "$@"
