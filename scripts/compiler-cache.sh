# Sourced by build.sh and package.sh: the compiler launcher both builds use, so they share one
# cache. ccache rewrites paths under the source folder to relative ones and leaves the build
# folder out of its key, which makes build/ and the package's obj-*/ compile alike. The locale
# is part of its key (it changes the compiler's messages), and debhelper builds in C.UTF-8, so
# both builds compile in it.
TOVIN_CXX_LAUNCHER="env;-u;LC_CTYPE;-u;LC_MESSAGES;LANG=C.UTF-8;LC_ALL=C.UTF-8;CCACHE_DIR=$root/.cache/ccache;CCACHE_BASEDIR=$root;CCACHE_NOHASHDIR=1;ccache"
