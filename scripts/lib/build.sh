# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Builds: sourced by the scripts that compile.

# A compiler cache is used where it is installed, unless the environment names another launcher. It is not installed by
# the scripts: a first build gains nothing by it.
if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER+set}" ] && command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

# quietly LOG COMMAND...: its output goes to the file LOG, and is shown when it fails.
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 || {
    cat "$log" >&2
    return 1
  }
}

# configure PRESET: the first time, and again while something was missing that the page of `zephly view` is built or
# tested with.
configure() {
  local folder=build/$1
  if [ -f "$folder/build.ninja" ]; then
    grep -qE '^ZEPHLY_(NODE|NPM|CHROMIUM):.*-NOTFOUND$' "$folder/CMakeCache.txt" || return 0
  fi
  quietly "$folder/configure.log" cmake --preset "$1"
}

# build PRESET [TARGETS...]: configures, and builds the targets or everything. Scripts that run side by side take turns.
build() {
  local preset=$1
  shift
  mkdir -p "build/$preset"
  (
    flock 8
    configure "$preset" || exit
    [ $# -eq 0 ] || set -- --target "$@"
    cmake --build --preset "$preset" --parallel "${JOBS:-$(nproc)}" "$@" 8>&-
  ) 8>"build/$preset/build.lock"
}
