#!/bin/sh
# Fails unless every shared library exports exactly the names listed for it in
# exported_names.txt: each listed name is exported, and nothing else is, apart
# from the members, vtables and typeinfo of listed classes and the instances
# of standard-library templates that the library's code needs.
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
  "$nm" -DC --defined-only "$library" |
    sed -E -e 's/^[0-9a-fA-F]* *[A-Za-z] //' -e 's/\[abi:[^]]*\]//g' |
    awk -v target="$target" -v library="$library" -v namesFile="$names" '
      # A listed name matches a symbol whole or the part before its parameters.
      function bare(symbol,  p) { p = index(symbol, "("); return p > 0 ? substr(symbol, 1, p - 1) : symbol }
      function ownerClass(symbol,  name, p) {
        name = bare(symbol)
        sub(/^(vtable|typeinfo|typeinfo name) for /, "", name)
        p = index(name, "::")
        return p > 0 ? substr(name, 1, p - 1) : name
      }
      BEGIN {
        while ((getline line < namesFile) > 0) {
          if (line ~ /^#/ || index(line, target " ") != 1) continue
          name = substr(line, length(target) + 2)
          if (name ~ /^class /) classes[substr(name, 7)] = 0
          else wanted[name] = 0
        }
      }
      {
        known = 0
        if ($0 in wanted) { wanted[$0] = 1; known = 1 }
        if (bare($0) in wanted) { wanted[bare($0)] = 1; known = 1 }
        if (ownerClass($0) in classes) { classes[ownerClass($0)] = 1; known = 1 }
        # AddressSanitizer adds an __odr_asan indicator beside every exported global.
        if (!known && $0 !~ /^(void )?(std|__gnu_cxx)::/ && $0 !~ /^__odr_asan\./) extra[$0] = 1
      }
      END {
        for (name in wanted) if (!wanted[name]) { print library " does not export: " name; failed = 1 }
        for (name in classes) if (!classes[name]) { print library " does not export class: " name; failed = 1 }
        for (name in extra) { print library " exports an unlisted name: " name; failed = 1 }
        exit failed
      }' || status=1
done
exit "$status"
