# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Sourced first by every script. Goes to the top of the tree; `script` is the file whose first comment is the usage.
script=$(realpath "$0")
cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1

# usage: the comment at the head of the script, or of the part of it that `script` was set to.
usage() { sed -nE '/^#!|^# (shellcheck|SPDX-License-Identifier:) /d; /^#/!q; s/^# ?//p' "$script"; }

fail() {
  echo "error: $*" >&2
  exit 1
}

# wrong_usage MESSAGE: for arguments that are not understood.
wrong_usage() {
  echo "error: $*" >&2
  usage >&2
  exit 2
}

# help_if_asked ARGUMENTS...: --help anywhere before "--" prints the usage.
help_if_asked() {
  local argument
  for argument in "$@"; do
    case $argument in
      --help | -h) usage; exit 0 ;;
      --) return 0 ;;
    esac
  done
}

# needs PACKAGES...: installs those that are missing.
needs() { scripts/lib/install-packages "$@"; }
