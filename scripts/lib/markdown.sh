# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Results as tables in Markdown: sourced by the scripts that measure.

# load: the load average of the last minute.
load() { cut -d ' ' -f 1 /proc/loadavg; }

# compiler_of BUILD: the compiler of a build folder, as it names itself.
compiler_of() {
  "$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$1/CMakeCache.txt")" --version | head -n 1
}

# machine_table LOAD_BEFORE COMPILER SYSTEM_EXTRA SOURCES...: on what was measured. SYSTEM_EXTRA is appended to the
# system; the revision says whether one of SOURCES differs from it.
machine_table() {
  local load_before=$1 compiler=$2 extra=$3 revision model
  shift 3
  revision=$(git rev-parse --short HEAD 2>/dev/null || echo unknown)
  if ! git diff --quiet HEAD -- "$@" 2>/dev/null; then
    revision+=" with local changes"
  fi
  model=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
  # shellcheck disable=SC1091
  cat <<TABLE
| | |
|---|---|
| machine | ${model:-$(uname -m)}, $(nproc) cores, load average before $load_before, after $(load) |
| system | $(. /etc/os-release && echo "$PRETTY_NAME"), Linux $(uname -r)${extra:+, $extra} |
| compiler | $compiler |
| date | $(date -u +%Y-%m-%d) |
| revision | $revision |

TABLE
}

# write_section RESULTS NAME PAGE: replaces what is between "<!-- NAME begin" and "<!-- NAME end" of a page.
write_section() {
  local results=$1 name=$2 page=$3 new
  new=$(mktemp)
  awk -v results="$results" -v name="$name" '
    $0 ~ "^<!-- " name " begin" {
      print
      print ""
      while ((getline line < results) > 0) print line
      print ""
      inside = 1
    }
    $0 ~ "^<!-- " name " end" { inside = 0 }
    !inside { print }
  ' "$page" >"$new"
  cat "$new" >"$page"
  rm "$new"
  echo "Written to $page." >&2
}
