#!/usr/bin/env bash
# Builds Tovin's Debian package from debian/ (tovin_VERSION_ARCH.deb and its -dbgsym) and checks
# it with lintian, failing on any error or warning.
#
#   scripts/package.sh [OUT_DIR]        default: build/package
#
# dpkg-buildpackage writes its results beside the source folder first; they are moved to OUT_DIR.
#
# What the build needs from the network (the web app's npm packages, the pose model) is fetched
# first; dpkg-buildpackage then runs without a network (in a network namespace of its own where
# the machine allows one), so a package build that tried to download would fail here.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${TOVIN_BUILD_DIR:-$root/build}")
out=$(realpath -m "${1:-$build/package}")
"$root/scripts/setup.sh"
if [ -d "$root/.tools/node/node_modules/.bin" ]; then
    export PATH="$root/.tools/node/node_modules/.bin:$PATH"
fi
. "$root/scripts/compiler-cache.sh"
started=$SECONDS

# Fetched before: the web app's packages (installed into web/node_modules from the lock file,
# and built once, which proves them whole) and the pose model's package.
export TOVIN_DEPS_CACHE=$build/_deps
"$root/scripts/build-web.sh" "$TOVIN_DEPS_CACHE/web-check" >/dev/null
"$root/scripts/fetch-pose-model.sh" "$TOVIN_DEPS_CACHE/model-check" "$TOVIN_DEPS_CACHE/pose-model" >/dev/null
fetched=$SECONDS

offline=()
if unshare --net true 2>/dev/null; then
    offline=(unshare --net)
else
    echo "package: cannot take the network away here (no network namespaces); building anyway"
fi
cd "$root"
# A fresh package tree every time; -nc keeps dpkg from also sweeping backup-looking files out of
# the whole source folder (node_modules included).
clear_package_tree() {
    rm -rf obj-*/ debian/tovin debian/.debhelper debian/files debian/*.substvars \
        debian/*.debhelper.log debian/debhelper-build-stamp
}
clear_package_tree
export TOVIN_CXX_LAUNCHER
export DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}"
mkdir -p "$build"
"${offline[@]}" dpkg-buildpackage -b -nc -us -uc >"$build/package-build.log" 2>&1 || {
    tail -n 40 "$build/package-build.log"
    clear_package_tree
    echo "package: dpkg-buildpackage failed (the whole log: $build/package-build.log)" >&2
    exit 1
}
built=$SECONDS

version=$(dpkg-parsechangelog -S Version)
arch=$(dpkg-architecture -q DEB_HOST_ARCH)
mkdir -p "$out"
rm -f "$out"/tovin*_"$arch".deb
for f in "tovin_${version}_${arch}.deb" "tovin-dbgsym_${version}_${arch}.deb" \
    "tovin_${version}_${arch}.buildinfo" "tovin_${version}_${arch}.changes"; do
    mv "../$f" "$out/"
done
clear_package_tree

echo "package: fetched in $((fetched - started)) s, built in $((built - fetched)) s"
echo "package: $out/tovin_${version}_${arch}.deb ($(du -k "$out/tovin_${version}_${arch}.deb" | cut -f1) KiB;" \
    "installed size $(dpkg-deb -f "$out/tovin_${version}_${arch}.deb" Installed-Size) KiB)"
# Every tag lintian has, informational ones included, so what remains is seen; errors and
# warnings fail.
lintian --display-info --fail-on error,warning "$out/tovin_${version}_${arch}.changes"
echo "package: lintian found no errors or warnings"
