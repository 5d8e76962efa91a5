#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# docs/troubleshooting.md has every message that the programs can print about Bluetooth, with the words of the sources.
# Usage: check_troubleshooting.sh ROOT [PAGE]
set -euo pipefail
cd "$1"
page=${2:-docs/troubleshooting.md}

# What is text of two words or more, but no message: text that is sent to D-Bus or compared with its answers, and names of
# parameters in errors that only a defect of the program can cause.
no_message='^type=|^interface=|^Operation already in progress$|^a value of this shape cannot be sent$|^unknown type$'

# The string literals of a source file, one on each line, without comments and without what follows `add_subcommand(`,
# which is the text of --help.
literals() {
  sed -E '/add_subcommand\(/,$d; s|^ *//.*||; s|[;{}] +//.*||' "$1" | grep -oE '"([^"\\]|\\.)*"' | sed -E 's/^"(.*)"$/\1/; s/\\"/"/g' ||
    true
}

text=$(tr -d '`' <"$page" | tr -s ' \n' ' ')
messages=0
failures=0
while IFS= read -r file; do
  while IFS= read -r message; do
    message=$(sed -E 's/^ +//; s/ +$//' <<<"$message")
    # Two words at least, one of them of two letters.
    [[ $message =~ [[:alpha:]]{2}.*\ .*[[:alpha:]] || $message =~ [[:alpha:]].*\ .*[[:alpha:]]{2} ]] || continue
    ! grep -qE "$no_message" <<<"$message" || continue
    messages=$((messages + 1))
    if [[ $text != *"$message"* ]]; then
      echo "$page lacks a message of $file: $message"
      failures=$((failures + 1))
    fi
  done < <(literals "$file")
done < <(git ls-files 'hosts/bluez/*.cpp' 'hosts/bluez/*.h' 'tools/strap/*.cpp' tools/watch/bluetooth_source.cpp \
  'zephly/ble/*.cpp' zephly/platform/host.cpp | grep -v '^tools/strap/options.cpp$')

[ $messages -gt 30 ] || { echo "only $messages messages seen: is $1 the right folder?"; exit 1; }
echo "$messages messages checked, $failures not in $page"
[ $failures -eq 0 ]
