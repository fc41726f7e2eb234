#!/usr/bin/env bash
# Builds Tovin (installing what is missing) and runs the whole test suite through ctest; with no
# arguments also the fuzz targets briefly and the Debian package's checks (built, lintian clean,
# installed and used end to end, removed). Extra arguments go to ctest, e.g. scripts/test.sh -L core
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${TOVIN_BUILD_DIR:-$root/build}")
export TOVIN_BUILD_DIR=$build
"$root/scripts/build.sh"
# A newer Node.js fetched by setup.sh (only where the system's is too old) comes first.
if [ -d "$root/.tools/node/node_modules/.bin" ]; then
    export PATH="$root/.tools/node/node_modules/.bin:$PATH"
fi
cd "$build"
ctest -j2 --output-on-failure --timeout 600 "$@"
# The whole suite also builds the fuzz targets over an instrumented core and runs each briefly on
# its corpus, so the fuzzing build can never rot unnoticed. A subset (arguments given) skips it.
if [ $# -eq 0 ]; then
    "$root/scripts/fuzz.sh" "${TOVIN_FUZZ_SECONDS:-10}"
    # The Debian package: built (lintian clean), installed on this machine, used end to end from
    # /usr/bin, removed.
    "$root/scripts/package.sh" "$build/package"
    TOVIN_DEB=$(ls "$build"/package/tovin_*.deb) \
        "$root/tests/e2e/app_e2e.sh" /usr/bin/tovin "$build/tests/xshot" "$build/screenshots" package
fi
