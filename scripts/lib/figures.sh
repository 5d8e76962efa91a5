# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# The numbers behind the pictures of docs/streams: sourced by scripts/pictures and scripts/check.

# compute_figures FOLDER: writes them. A build of the tests has what is needed already.
compute_figures() {
  local build=build/figures
  if [ -f build/normal/build.ninja ] && grep -q '^ZEPHLY_BUILD_FIGURES:BOOL=ON' build/normal/CMakeCache.txt; then
    build=build/normal
    quietly build/figures/build.log build normal zephly_figures
  else
    quietly $build/configure.log cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DZEPHLY_BUILD_FIGURES=ON \
      -DZEPHLY_WARNINGS_AS_ERRORS=ON -DZEPHLY_BUILD_HOSTS=OFF -DZEPHLY_BUILD_TOOLS=OFF -DZEPHLY_BUILD_EXAMPLES=OFF \
      -DZEPHLY_BUILD_TESTS=OFF
    quietly build/figures/build.log cmake --build $build --parallel "$(nproc)" --target zephly_figures
  fi
  rm -rf "$1"
  timeout --kill-after=10 300 $build/docs/figures/zephly_figures "$1"
}
