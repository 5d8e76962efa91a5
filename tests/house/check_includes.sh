#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The direction of the includes: which room may include which. Usage: check_includes.sh ROOT
set -euo pipefail
cd "$1"

# room -> the folders, with all below them, that its files may include besides their own. A room that lies inside another one has its own rule. Events go up through the
# interfaces in session/*_delegate.h, which every room of the kit may include.
foundation="hosts/foundation/"
watching="capture/ timing/ offline/ vitals/ hosts/ simulator/ zephly/"
declare -A allowed=(
  [zephly]="zephly/"
  [zephly/platform]="" [zephly/protocol]="zephly/platform/"
  [zephly/dsp]="zephly/platform/ zephly/motion/" [zephly/motion]="zephly/platform/ zephly/dsp/"
  [zephly/phone]="zephly/platform/ zephly/motion/" [zephly/ble]="zephly/platform/ zephly/protocol/"
  [zephly/session]="zephly/platform/ zephly/protocol/ zephly/dsp/ zephly/motion/ zephly/phone/ zephly/ble/"
  [simulator]="zephly/" [capture]="zephly/" [timing]="zephly/protocol/" [vitals]="zephly/platform/" [offline]="zephly/dsp/ zephly/platform/export.h"
  [hosts/foundation]="zephly/" [hosts/main_queue]="zephly/platform/"
  [hosts/bluez]="zephly/ $foundation hosts/main_queue/"
  [hosts/simulated]="zephly/ $foundation hosts/main_queue/ simulator/"
  [hosts/replay]="zephly/ $foundation capture/ timing/ offline/ vitals/"
  [hosts/vitals]="zephly/ $foundation capture/ vitals/"
  [tools]="$watching tools/"  # main.cpp; what its folders share is in tools/common
  [tools/common]="$watching" [tools/licenses]=""
  [tools/watch]="$watching tools/common/"
  [tools/inspect]="$watching tools/common/ tools/watch/" [tools/export]="$watching tools/common/ tools/watch/"
  [tools/monitor]="$watching tools/common/ tools/watch/" [tools/view]="$watching tools/common/ tools/watch/"
  [tools/record]="$watching tools/common/ tools/watch/ tools/inspect/ tools/export/"
  [tools/replay]="$watching tools/common/ tools/watch/ tools/monitor/"
  [tools/strap]="$watching tools/common/"
  [tools/vitals]="$watching tools/common/ tools/watch/ tools/export/"
  [tools/process]="$watching tools/common/ tools/watch/ tools/export/ tools/vitals/"
  [tools/report]="$watching tools/common/ tools/watch/ tools/export/ tools/vitals/ tools/view/assets.h"
  [bindings]="$watching" [examples]="$watching"
  [bench]="$watching tools/ tests/support/" [fuzz]="$watching tools/ tests/support/" [docs/figures]="zephly/"
  [tests]="$watching tools/ bench/ examples/ fuzz/ docs/")

failures=0
files=0
complain() {
  echo "$1"
  failures=$((failures + 1))
}

for room in "${!allowed[@]}"; do
  [ -d "$room" ] || complain "$room: has a rule and is not there"
done

while IFS=: read -r file _ line; do
  header=${line#*<} header=${header%%>*}
  room=${file%/*}
  while [ -z "${allowed[$room]+set}" ] && [[ $room == */* ]]; do room=${room%/*}; done
  if [ -z "${allowed[$room]+set}" ]; then
    complain "$file: $room has no rule"
    continue
  fi
  target=${header%/*}
  ok=no
  [[ $header == "$room"/* ]] && ok=yes
  # A folder inside a room of its own rule is another room.
  if [ $ok = yes ] && [ "$target" != "$room" ] && [ -n "${allowed[$target]+set}" ]; then ok=no; fi
  for pattern in ${allowed[$room]}; do
    [[ $header == "$pattern"* ]] && ok=yes
  done
  [[ $header == zephly/session/*_delegate.h && $room == zephly/* ]] && ok=yes
  # Only rooms for Bluetooth may include its classes.
  case $room in
    zephly/protocol | zephly/dsp | zephly/motion)
      [[ $header == zephly/platform/cb_* || $header == zephly/platform/core_bluetooth.h ]] && ok=no ;;
  esac
  [ $ok = yes ] || complain "$file: must not include <$header>"
  files=$((files + 1))
done < <(git ls-files -z '*.h' '*.cpp' | xargs -0 \
  grep -nE '^#include <(zephly|hosts|simulator|capture|timing|offline|vitals|tools|tests|bench|bindings|examples|fuzz|docs)/' || true)

# The kit includes only the standard library, whose names have no dot or slash, and itself.
while IFS=: read -r file _ line; do
  echo "$file: the kit includes only the standard library and itself: $line"
  failures=$((failures + 1))
done < <(grep -rnE '^#include' --include='*.h' --include='*.cpp' zephly |
  grep -vE '#include <([a-z_0-9]+|zephly/[a-z_0-9/]+\.h)>' || true)

[ $files -gt 50 ] || { echo "only $files includes seen: is $1 the right folder?"; exit 1; }
echo "$files includes checked, $failures in the wrong direction"
[ $failures -eq 0 ]
