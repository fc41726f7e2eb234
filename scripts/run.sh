#!/usr/bin/env bash
# Builds Tovin (installing what is missing), installs it into a folder you own, and runs it.
# Arguments go to tovin (for example --why, --rehearse, --help).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" >/dev/null
prefix="${TOVIN_PREFIX:-$HOME/.local/opt/Tovin}"
cmake --install "${TOVIN_BUILD_DIR:-$root/build}" --prefix "$prefix" >/dev/null
exec "$prefix/bin/tovin" "$@"
