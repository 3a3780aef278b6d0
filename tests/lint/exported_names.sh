#!/bin/sh
# Fails when a shared library lacks a name listed in exported_names.txt.
# Usage: exported_names.sh NAMES_FILE NM TARGET=LIBRARY_PATH...
set -eu
names=$1
nm=$2
shift 2

status=0
# Every library that the list names has to be given.
given=" $* "
unknown=$(grep -v '^#' "$names" | awk 'NF { print $1 }' | sort -u | while IFS= read -r target; do
  case "$given" in
    *" $target="*) ;;
    *) echo "$target" ;;
  esac
done)
if [ -n "$unknown" ]; then
  printf 'no library given for:\n%s\n' "$unknown"
  status=1
fi

for pair in "$@"; do
  target=${pair%%=*}
  library=${pair#*=}
  # Defined dynamic symbols, demangled, without address, type letter and ABI
  # tags (_GetSystemDate[abi:cxx11]() is listed as _GetSystemDate).
  exported=$("$nm" -DC --defined-only "$library" |
    sed -E -e 's/^[0-9a-fA-F]* *[A-Za-z] //' -e 's/\[abi:[^]]*\]//g')
  # Each name of this target is wanted either whole or as the part of an
  # exported name before its parameter list.
  wanted=$(sed -n "s/^$target //p" "$names")
  missing=$(printf '%s\n' "$wanted" | while IFS= read -r name; do
    [ -n "$name" ] || continue
    if ! printf '%s\n' "$exported" |
        awk -v n="$name" '{ p = index($0, "("); if ($0 == n || (p > 0 && substr($0, 1, p - 1) == n)) found = 1 }
                          END { exit !found }'; then
      echo "$name"
    fi
  done)
  if [ -n "$missing" ]; then
    printf '%s does not export:\n%s\n' "$library" "$missing"
    status=1
  fi
done
exit "$status"
