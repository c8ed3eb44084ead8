# shellcheck shell=bash
# Where `check` keeps what it need not do again; sourced. Each clone of a user shares it.

# A relative $XDG_CACHE_HOME counts as unset: each compiler would look for it in a folder of its own.
case ${XDG_CACHE_HOME:-} in
/*) caches=$XDG_CACHE_HOME ;;
*) caches=${HOME:+$HOME/.cache} ;;
esac
export KT_CACHE=$caches/libktthread
# Without a home, or where it can't be written: in this clone.
if [ -z "$caches" ] || ! mkdir -p "$KT_CACHE" 2>/dev/null || [ ! -w "$KT_CACHE" ]; then
  KT_CACHE=$PWD/build/cache
fi

# use_cache: objects by ccache, checks that passed by ci/unless-passed. Both remove what is old.
use_cache() {
  export CMAKE_CXX_COMPILER_LAUNCHER=$PWD/ci/compile
  export CCACHE_DIR=$KT_CACHE/ccache CCACHE_MAXSIZE=2G CCACHE_BASEDIR=$PWD
  # ccache doesn't compare the -ffile-prefix-map options that ci/compile adds, so the file itself counts.
  export CCACHE_EXTRAFILES=$PWD/ci/compile
}

# The launcher stays, since it is part of how a build is configured. ccache and ci/unless-passed then look nothing up,
# but keep what they do.
ignore_cache() { export CCACHE_RECACHE=1 KT_NO_CACHE=1; }

# without_cache COMMAND...: for what must be compiled as its users compile it.
without_cache() { env -u CMAKE_CXX_COMPILER_LAUNCHER CCACHE_DISABLE=1 "$@"; }
