# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Cppcheck over everything but the tests; half a minute. The tolerated findings are in cmake/cppcheck.suppressions,
# each with its reason.
#   scripts/check cppcheck
[ $# -eq 0 ] || wrong_usage "unknown argument $1"
needs cppcheck
cppcheck --version
cppcheck -j "$(nproc)" --quiet --error-exitcode=1 --enable=warning,performance,portability --std=c++20 \
  --suppressions-list=cmake/cppcheck.suppressions --suppress=missingIncludeSystem \
  --template='{file}:{line}: {severity} {id}: {message}' \
  -I. zephly hosts simulator capture timing offline vitals tools examples bench
echo "no finding"
