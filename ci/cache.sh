# shellcheck shell=bash
# Where `check` keeps what it need not do again; sourced. Each clone on the machine uses the same.

export KT_CACHE=${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/libktthread
mkdir -p "$KT_CACHE" 2>/dev/null || KT_CACHE=$PWD/build/cache

# use_cache: objects by ccache, checks that passed by ci/unless-passed. Both remove what is old.
use_cache() {
  export CMAKE_CXX_COMPILER_LAUNCHER=$PWD/ci/compile
  export CCACHE_DIR=$KT_CACHE/ccache CCACHE_MAXSIZE=2G CCACHE_BASEDIR=$PWD
  # How it maps paths is not among what ccache compares by itself.
  export CCACHE_EXTRAFILES=$PWD/ci/compile
}

# The launcher stays, since it is part of how a build is configured: only what it finds doesn't count.
ignore_cache() { export CCACHE_RECACHE=1 KT_NO_CACHE=1; }

# without_cache COMMAND...: for what must be compiled as its users compile it.
without_cache() { env -u CMAKE_CXX_COMPILER_LAUNCHER CCACHE_DISABLE=1 "$@"; }
