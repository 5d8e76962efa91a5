# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# What the shared libraries export: one list for each in packaging/symbols, demangled and sorted.
#   scripts/check symbols PREFIX           compares with the libraries installed in PREFIX; prints what is new or missing
#   scripts/check symbols --write PREFIX   writes the lists anew
# Listed are functions, variables and the type information of our own classes. Templates of the standard library and of
# Boost differ between compilers, and virtual tables come with their classes.
write=no
if [ "${1-}" = --write ]; then
  write=yes
  shift
fi
[[ $# = 1 && $1 != -* ]] || wrong_usage "one PREFIX is needed"

mapfile -t libraries < <(find "$1" -name 'libzephly*.so.*' -type l | sort)
[ ${#libraries[@]} -gt 0 ] || fail "no shared library of the kit in $1"

symbols() {
  nm --dynamic --defined-only --demangle "$1" | cut -d ' ' -f 3- | LC_ALL=C sort -u |
    grep -vE '^(vtable|VTT|typeinfo name|guard variable) for |^typeinfo for (std|boost|sdbus)::' |
    grep -vE '^typeinfo for [^(]*\(|^typeinfo for .*(lambda|::Implementation::)' |
    grep -vE '^([^(]* )?(std|boost|__gnu_cxx)::|^(typeinfo|vtable) for .*(std|boost|__gnu_cxx)::'
}

different=0
for library in "${libraries[@]}"; do
  name=$(basename "$library")
  list=packaging/symbols/${name%%.so*}.symbols
  list=${list/\/lib/\/}
  if [ $write = yes ]; then
    mkdir -p packaging/symbols
    symbols "$library" >"$list"
    echo "$list: $(wc -l <"$list")"
  elif diff <(cat "$list") <(symbols "$library"); then
    echo "$name exports the $(wc -l <"$list") symbols of $list"
  else
    echo "$name: < is listed in $list, > is exported"
    different=1
  fi
done
exit $different
