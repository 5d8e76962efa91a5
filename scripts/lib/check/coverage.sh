# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Builds the kit and its unit tests for coverage, runs them, and prints how much of zephly/ they reach. Fails below
# 95 % of the lines or 90 % of the branches. The pages are in build/coverage/report/index.html.
#   scripts/check coverage
[ $# -eq 0 ] || wrong_usage "unknown argument $1"
source scripts/lib/packages.sh
source scripts/lib/build.sh
needs "${coverage_packages[@]}"

folder=build/coverage
mkdir -p $folder/report
if [ ! -f $folder/build.ninja ]; then
  cmake -S . -B $folder -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_FLAGS="-O0 -g1" -DCMAKE_UNITY_BUILD=ON -DZEPHLY_COVERAGE=ON \
    -DZEPHLY_BUILD_HOSTS=OFF -DZEPHLY_BUILD_TOOLS=OFF -DZEPHLY_BUILD_EXAMPLES=OFF >$folder/configure.log
fi
cmake --build $folder --parallel "$(nproc)" >$folder/build.log || { cat $folder/build.log >&2; exit 1; }
find $folder -name '*.gcda' -delete  # of earlier runs
# Digests are compared elsewhere; what only they reach is not tested.
ctest --test-dir $folder --parallel "$(nproc)" --output-on-failure --exclude-regex '^Digest\.' >$folder/test.log || { cat $folder/test.log >&2; exit 1; }
grep 'tests passed' $folder/test.log

# Branches that only an exception takes (the compiler makes one of every call) are not the kit's own.
gcovr --root . --object-directory $folder --filter zephly/ --exclude-throw-branches --exclude-unreachable-branches \
  --exclude-directories '.*/CMakeFiles/3.*' \
  --html-details $folder/report/index.html --txt $folder/report.txt --print-summary \
  --fail-under-line 95 --fail-under-branch 90 $folder
