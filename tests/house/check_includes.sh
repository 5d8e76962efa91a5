#!/usr/bin/env bash
# The direction of the includes: which room may look into which. Usage: check_includes.sh ROOT
set -euo pipefail
cd "$1"

# room -> rooms that its files may include, besides itself. Events go up through the interfaces in
# session/*_delegate.h, which every room may include.
declare -A allowed=(
  [zephly/platform]="" [zephly/protocol]="zephly/platform"
  [zephly/dsp]="zephly/platform zephly/motion" [zephly/motion]="zephly/platform zephly/dsp"
  [zephly/phone]="zephly/platform zephly/motion" [zephly/ble]="zephly/platform zephly/protocol"
  [zephly/session]="zephly/platform zephly/protocol zephly/dsp zephly/motion zephly/phone zephly/ble"
  [strap]="zephly/" [platforms]="zephly/ strap" [bench]="zephly/ strap platforms tools"
  [docs/figures]="zephly/"
  [tools]="zephly/ strap platforms" [examples]="zephly/ strap platforms")

failures=0
files=0
for room in "${!allowed[@]}"; do
  [ -d "$room" ] || continue
  while IFS=: read -r file _ line; do
    header=${line#*<} header=${header%%>*}
    ok=no
    for target in "$room" ${allowed[$room]}; do
      [[ $header == "$target"* ]] && ok=yes
    done
    [[ $header == zephly/session/*_delegate.h && $room == zephly/* ]] && ok=yes
    # Only Bluetooth rooms may know of Bluetooth.
    case $room in
      zephly/protocol | zephly/dsp | zephly/motion)
        [[ $header == zephly/platform/cb_* || $header == zephly/platform/core_bluetooth.h ]] && ok=no ;;
    esac
    if [ $ok = no ]; then
      echo "$file: must not include <$header>"
      failures=$((failures + 1))
    fi
    files=$((files + 1))
  done < <(grep -rnE '^#include <(zephly|platforms|strap|tools|tests|bench|examples|docs)/' \
    --include='*.h' --include='*.cpp' "$room" || true)
done

# The kit needs nothing but the standard library: names without a dot or slash, or its own.
while IFS=: read -r file _ line; do
  echo "$file: the kit includes only the standard library and itself: $line"
  failures=$((failures + 1))
done < <(grep -rnE '^#include' --include='*.h' --include='*.cpp' zephly |
  grep -vE '#include <([a-z_0-9]+|zephly/[a-z_0-9/]+\.h)>' || true)

[ $files -gt 50 ] || { echo "only $files includes seen: is $1 the right folder?"; exit 1; }
echo "$files includes checked, $failures in the wrong direction"
[ $failures -eq 0 ]
