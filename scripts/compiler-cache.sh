# Sourced by build.sh and package.sh: the compiler launcher both builds use, so they share one
# cache. ccache rewrites paths under the source folder to relative ones and leaves the build
# folder out of its key, which makes build/ and the package's obj-*/ compile alike.
TOVIN_CXX_LAUNCHER="env;CCACHE_DIR=$root/.cache/ccache;CCACHE_BASEDIR=$root;CCACHE_NOHASHDIR=1;ccache"
