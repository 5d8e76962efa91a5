#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every relative link in a Markdown file leads to a file, a picture or a heading. Every file or folder of the tree, every
# script and every part of scripts/check that a Markdown file names exists. Usage: check_links.sh ROOT
set -euo pipefail
cd "$1"

# The lines of a Markdown file that are not code.
prose() { awk '/^ *```/ { code = !code; next } !code { gsub(/`[^`]*`/, ""); print }' "$1"; }

# The names that the headings of a file can be linked by.
headings() {
  awk '/^ *```/ { code = !code; next } !code && /^#+ /' "$1" | sed -E 's/^#+ +//; s/`//g' |
    tr '[:upper:]' '[:lower:]' | sed -E 's/[^[:alnum:] _-]//g; s/ /-/g'
}

folders='zephly|hosts|simulator|capture|timing|tools|bindings|examples|tests|bench|fuzz|docs|packaging|cmake'
failures=0
links=0
while IFS= read -r file; do
  while IFS= read -r target; do
    case $target in *://* | mailto:*) continue ;; esac
    links=$((links + 1))
    if [[ $target == '#'* ]]; then
      echo "$file: $target lacks the name of the page, without which Doxygen does not find it"
      failures=$((failures + 1))
      continue
    fi
    path=${target%%#*} anchor=${target#"${target%%#*}"}
    full=$(dirname "$file")/$path
    if [ ! -e "$full" ]; then
      echo "$file: nothing at $target"
      failures=$((failures + 1))
    elif [[ -n $anchor && $full == *.md ]] && ! grep -qxF -- "${anchor#\#}" <(headings "$full"); then
      echo "$file: no heading for $target"
      failures=$((failures + 1))
    fi
  done < <(prose "$file" | grep -oE '\]\([^) ]+\)' | sed -E 's/^\]\((.*)\)$/\1/' || true)
  # In `code`: zephly/ble, tests/support/bits.h. A word in capital letters is a placeholder.
  while IFS= read -r path; do
    links=$((links + 1))
    if [ ! -e "$path" ]; then
      echo "$file: no file $path"
      failures=$((failures + 1))
    fi
  done < <(grep -ohE "\`($folders)/[A-Za-z0-9_./-]+\`" "$file" | tr -d '`' | grep -vE '/[A-Z]+$' || true)
  while read -r script part; do
    links=$((links + 1))
    if [ ! -e "$script" ] || { [ "$script" = scripts/check ] && [ -n "$part" ] && [ ! -e "scripts/lib/check/$part.sh" ]; }; then
      echo "$file: no script $script $part"
      failures=$((failures + 1))
    fi
  done < <(grep -ohE '(^|[ `(])scripts/[a-z][a-z_/-]*( [a-z]+[` ])?' "$file" | sed -E 's/^[ `(]//; s/`//g; s/ +$//' |
    sed -E '/^scripts\/check /!s/ .*//' || true)
done < <(find . -name '*.md' -not -path '*/node_modules/*' -not -path './build/*' -not -path './.git/*' | sort)

[ $links -gt 40 ] || { echo "only $links links seen: is $1 the right folder?"; exit 1; }
echo "$links links checked, $failures dead"
[ $failures -eq 0 ]
