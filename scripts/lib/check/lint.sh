# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Format and static analysis: no finding is tolerated.
#   scripts/check lint           clang-format, clang-tidy and cppcheck over all: about an hour on two processors
#   scripts/check lint --kit     the format of all files, and clang-tidy over the kit itself: half a minute
#   scripts/check lint FILE...   format and clang-tidy of those files
#
# Most of clang-tidy's time goes into the headers of others. So, except for files that are named, it looks at all
# files of a target together, as a unity build would compile them. Its analyzer follows the paths through functions of
# an included file only if the name of the including one has "UnifiedSource" in it; the name of the folder is enough.
source scripts/lib/packages.sh

everything=(-DZEPHLY_BUILD_BENCH=ON -DZEPHLY_BUILD_FIGURES=ON -DZEPHLY_BUILD_PEERS=ON -DZEPHLY_BUILD_PYTHON=ON)
together=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0)
case ${1:-} in
  '')
    needs "${lint_packages[@]}" "${python_packages[@]}" "${peers_packages[@]}"
    folder=build/UnifiedSource-all options=("${everything[@]}" "${together[@]}") ;;
  --kit)
    [ $# -eq 1 ] || wrong_usage "--kit takes no files"
    needs "${build_packages[@]}" "${tidy_packages[@]}"
    folder=build/UnifiedSource-kit
    options=("${together[@]}")
    for part in HOSTS TOOLS EXAMPLES TESTS; do options+=("-DZEPHLY_BUILD_$part=OFF"); done ;;
  -*) wrong_usage "unknown option $1" ;;
  *)
    for file in "$@"; do [ -f "$file" ] || wrong_usage "no file $file"; done
    needs "${lint_packages[@]}" "${python_packages[@]}" "${peers_packages[@]}"
    folder=build/lint options=("${everything[@]}") ;;
esac

echo "== clang-format"
if [ "$folder" = build/lint ]; then
  files=("$@")
else
  listed=$(git ls-files '*.h' '*.cpp')  # a statement by itself, so that a failure of git ends the script
  mapfile -t files <<<"$listed"
fi
if [ "$clang" = 14 ]; then
  "clang-format-$clang" --dry-run --Werror "${files[@]}"
  echo "no finding in ${#files[@]} files"
else
  echo "not checked: the files are formatted by clang-format 14 of Debian 12, and version $clang differs in details"
fi

echo "== clang-tidy"
# A build folder without sanitizers, configured for clang++.
cmake -S . -B "$folder" -G Ninja -DCMAKE_CXX_COMPILER=clang++ "${options[@]}" >/dev/null
tidy=("clang-tidy-$clang" -p "$folder" --quiet)
if [ "$folder" = build/lint ]; then
  sources=()
  for file in "${files[@]}"; do [[ $file != *.cpp ]] || sources+=("$file"); done
else
  # All but the page of `zephly view`, which is bytes written by a program.
  listed=$(sed -n '/zephly_tools_view_page/d; s/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$folder/compile_commands.json")
  [ -n "$listed" ] || fail "nothing to look at in $folder/compile_commands.json"
  mapfile -t sources <<<"$listed"
  # The file of a unity build includes the files that are looked at.
  tidy+=(--checks=-bugprone-suspicious-include)
  # Compiled in a build for coverage only.
  if [ "$folder" = build/UnifiedSource-all ]; then sources+=(tests/support/coverage_at_abort.cpp); fi
fi
# clang-tidy has no time limit of its own; the largest target takes twenty minutes.
printf '%s\n' "${sources[@]}" | xargs -r -P "$(nproc)" -n 1 timeout --kill-after=10 3600 "${tidy[@]}"
echo "no finding in ${#sources[@]} translation units"

if [ $# -eq 0 ]; then
  scripts/check cppcheck
fi
