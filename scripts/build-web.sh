#!/usr/bin/env bash
# Builds the workout web app and stages it where Tovin finds it.
#   scripts/build-web.sh STAGE_DIR
# Installs the npm packages from the lock file only when they changed, so a rebuild is quick
# and needs no network.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
stage="${1:?usage: build-web.sh STAGE_DIR}"
cd "$root/web"

stamp=node_modules/.tovin-lock-stamp
if [ ! -f "$stamp" ] || ! cmp -s package-lock.json "$stamp"; then
    # npm ci refuses a lock file whose optional platform packages (rollup's, for other systems)
    # the registry did not list when it was written; npm install then installs from the same
    # lock, for this platform.
    if ! npm ci --no-audit --no-fund --loglevel=error 2>/dev/null; then
        echo "build-web: npm ci refused the lock file; installing from it with npm install"
        npm install --no-audit --no-fund --loglevel=error
    fi
    cp package-lock.json "$stamp"
fi
npm run --silent build -- --logLevel warn

mkdir -p "$stage"
# Replace the staged copy whole, so files a newer build dropped do not linger.
rm -rf "$stage.tmp"
cp -R dist "$stage.tmp"
rm -rf "$stage"
mv "$stage.tmp" "$stage"
