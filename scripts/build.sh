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
    # Debian's own flags (optimised, with debug information, hardened), exactly as the package
    # build (scripts/package.sh) passes them, through a compiler cache keyed on paths relative
    # to the source: building the package after this finds every object already made.
    . "$root/scripts/compiler-cache.sh"
    flags() { (cd "$root" && DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get "$1"); }
    CXXFLAGS="$(flags CXXFLAGS) $(flags CPPFLAGS)" LDFLAGS=$(flags LDFLAGS) \
        cmake -S "$root" -B "$build" -G Ninja \
        -DCMAKE_BUILD_TYPE="${TOVIN_BUILD_TYPE:-None}" \
        -DCMAKE_CXX_COMPILER_LAUNCHER="$TOVIN_CXX_LAUNCHER" \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
fi
cmake --build "$build" "$@"
