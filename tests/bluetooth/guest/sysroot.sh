# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Functions of the scripts in this folder. Sourced with $work set to the working folder.

sysroot=$work/sysroot
libraries=$sysroot/usr/lib/x86_64-linux-gnu

fail() {
  echo "error: $*" >&2
  exit 1
}

# in_sysroot NAME PROGRAM ARGUMENTS...: runs a program of the unpacked packages, which is not installed,
# by its own loader and with its own libraries. NAME is the name under which it is called.
in_sysroot() {
  local name=$1 program=$2
  shift 2
  "$libraries/ld-linux-x86-64.so.2" --argv0 "$name" --library-path "$libraries" \
    "$sysroot/$program" "$@"
}

# libraries_of PROGRAM: the files of the libraries that a program of the unpacked packages loads.
libraries_of() {
  "$libraries/ld-linux-x86-64.so.2" --library-path "$libraries" --list "$sysroot/$1" |
    awk '$3 ~ /^\// { print $3 }'
}

# pack < NAMES: a compressed archive, in the format that the kernel unpacks, of the files whose names are read,
# separated by zeros. With PACK_FOLLOW symbolic links are followed.
pack() {
  in_sysroot cpio usr/bin/cpio --null --create --format=newc --owner=0:0 --quiet ${PACK_FOLLOW:+--dereference} |
    gzip -1
}

# stamp_of FILES...: changes when one of the files does.
stamp_of() { cat "$@" | sha256sum | cut -d ' ' -f 1; }

# up_to_date STAMP_FILE STAMP: whether a stage was finished with the same inputs.
up_to_date() { [ "$(cat "$1" 2>/dev/null)" = "$2" ]; }
