#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every source file names its licence: `SPDX-License-Identifier: MIT` in one of its first five lines. Usage: check_spdx.sh ROOT
set -euo pipefail
cd "$1"

# Files of the sources: C++, TypeScript, JavaScript, Python, CMake, and scripts, which have `#!` and no suffix or `.sh`.
is_source() {
  case ${1##*/} in
    *.h | *.cpp | *.ts | *.mjs | *.py | *.cmake | *.sh | CMakeLists.txt) return 0 ;;
    *.*) return 1 ;;
    *) [ "$(head -c 2 "$1" | tr -d '\0')" = '#!' ] ;;
  esac
}

files=0
failures=0
while IFS= read -r -d '' file; do
  is_source "$file" || continue
  files=$((files + 1))
  if ! head -n 5 "$file" | grep -qE 'SPDX-License-Identifier: MIT( |$)'; then
    echo "$file: no line with SPDX-License-Identifier: MIT"
    failures=$((failures + 1))
  fi
done < <(git ls-files -z)

[ $files -gt 300 ] || { echo "only $files source files seen: is $1 the right folder?"; exit 1; }
echo "$files source files checked, $failures without a licence"
[ $failures -eq 0 ]
