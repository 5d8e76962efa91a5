#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# scripts/lib/install-packages chooses of several packages the one that the system offers in a sufficient version, installs
# no package twice, and names in one sentence what a system lacks. Usage: check_install_packages.sh ROOT
# Stubs replace the system: two files list the installed and the offered packages, a third records the calls of apt-get.
set -euo pipefail
cd "$1"
command -v dpkg >/dev/null || { echo "SKIPPED: no dpkg to compare versions with"; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
stub() { printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1" && chmod +x "$work/bin/$1"; }
stub dpkg-query 'sed -n "s/^${!#} /installed /p" '"$work/installed"
stub apt-cache 'echo "$2:"; echo "  Candidate: $(sed -n "s/^$2 //p" '"$work/offered"' | grep . || echo "(none)")"'
stub apt-get '[ "$1" = update ] || echo "$*" >>'"$work/asked"
stub sudo 'exec "$@"'

failures=0
# expect WHAT INSTALLED OFFERED STATUS TEXT ARGUMENTS...: TEXT is in what it prints, or in what apt-get is asked.
expect() {
  local what=$1 status=0 output
  tr ';' '\n' <<<"$2" >"$work/installed"
  tr ';' '\n' <<<"$3" >"$work/offered"
  : >"$work/asked"
  output=$(PATH="$work/bin:$PATH" scripts/lib/install-packages "${@:6}" 2>&1) || status=$?
  output+=$(cat "$work/asked")
  if [ $status != "$4" ] || [[ $output != *"$5"* ]] || { [ -z "$5" ] && [ -n "$output" ]; }; then
    echo "$what: exit code $status and: $output"
    failures=$((failures + 1))
  fi
}

boost='libboost-dev>=1.81|libboost1.81-dev'
expect "nothing missing" 'libboost1.81-dev 1.81.0-5' '' 0 '' "$boost"
expect "an old one is not enough" 'libboost-dev 1.74.0.3' 'libboost-dev 1.74.0.3;libboost1.81-dev 1.81.0-5' 0 \
  'recommends libboost1.81-dev' "$boost"
expect "the first that is new enough" '' 'libboost-dev 1.83.0.2+b2;libboost1.81-dev 1.81.0-5' 0 \
  'recommends libboost-dev' "$boost"
expect "an epoch is no version" '' 'clang 1:14.0-55' 1 'offers 1:14.0-55 of clang, and needed is clang>=15' 'clang>=15'
expect "only what is missing" 'g++ 12' 'g++ 12;cmake 3.31.6-2' 0 'recommends cmake' g++ 'cmake>=3.25'
expect "too old" '' 'libboost-dev 1.74.0.3' 1 'offers 1.74.0.3 of libboost-dev' "$boost"
expect "not there at all" '' '' 1 'offers no version of nonesuch, and needed is nonesuch. docs/systems.md' nonesuch
echo "$failures of 7 cases failed"
[ $failures -eq 0 ]
