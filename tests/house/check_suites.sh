#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The tests of a class are found by its name: `ctest -R FrameDecoders` runs those of `frame_decoders`. Every file
# `foo_bar_test.cpp` has a suite whose name starts with `FooBar`, or with that after the name of a folder
# (`BluezDaemonTest` in tests/hosts/bluez), in any case of the letters. The name of every suite ends in `Test`.
# Usage: check_suites.sh ROOT
set -euo pipefail
cd "$1"

# Files that test several small classes, one suite for each.
exceptions=(
  tests/examples/examples_test.cpp             # a suite for each example
  tests/hosts/foundation/foundation_test.cpp   # data, errors, one-line texts
  tests/simulator/models_test.cpp              # ECG, respiration, temperature, battery
  tests/tools/strap/strap_logic_test.cpp       # centrals, link losses, pacing, options, report
)

suites() {
  sed -nE 's/^(TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\( *([A-Za-z0-9_]+).*/\2/p' "$1" | sort -u
}

# findings FILE: what is wrong with the names of its suites.
findings() {
  local file=$1 class suite folder found=
  class=${file##*/}
  class=${class%_test.cpp}
  class=${class//_/}
  folder=${file%/*}
  folder=${folder//_/}
  while IFS= read -r suite; do
    [ -n "$suite" ] || continue
    [[ $suite == *Test ]] || echo "$file: the name of the suite $suite does not end in Test"
    suite=${suite,,}
    [[ $suite != "$class"* ]] || found=yes
    while IFS= read -r -d / part; do
      [[ $suite != "$part$class"* ]] || found=yes
    done <<<"$folder/"
  done < <(suites "$file")
  [ -n "$found" ] || [[ " ${exceptions[*]} " == *" $file "* ]] ||
    echo "$file: no suite starts with ${class}, in any case of the letters"
}

# The check itself: a file with wrong names has two findings, and one with right names has none.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/tests/bluez"
printf 'TEST(ECGFrame, Decodes) {}\n' >"$work/tests/frame_decoders_test.cpp"
printf 'TEST_F(FrameDecodersTest, Decodes) {}\nTEST(OtherTest, X) {}\n' >"$work/tests/bluez/frame_decoders_test.cpp"
printf 'TEST_P(BluezDaemonDeathTest, Ends) {}\n' >"$work/tests/bluez/daemon_test.cpp"
self_check() {
  local count
  count=$(cd "$work" && findings "$1" | wc -l)
  [ "$count" = "$2" ] || { echo "the check has $count findings in $1, expected $2"; exit 1; }
}
self_check tests/frame_decoders_test.cpp 2
self_check tests/bluez/frame_decoders_test.cpp 0
self_check tests/bluez/daemon_test.cpp 0

files=0
failures=0
while IFS= read -r file; do
  files=$((files + 1))
  while IFS= read -r finding; do
    echo "$finding"
    failures=$((failures + 1))
  done < <(findings "$file")
done < <(find tests -name '*_test.cpp' | sort)
for file in "${exceptions[@]}"; do
  [ -e "$file" ] || { echo "$file: an exception for a file that does not exist"; failures=$((failures + 1)); }
done

[ $files -gt 100 ] || { echo "only $files files seen: is $1 the right folder?"; exit 1; }
echo "$files test files checked, $failures findings"
[ $failures -eq 0 ]
