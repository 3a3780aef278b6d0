#!/bin/sh
# Fails when an include runs against the way the data flows, or when code
# that ships includes anything from a test folder.
#
# Inside extract/ a package's bytes go from the reader through the read
# channel (the ring and the archive callbacks) to the walker, through each
# file's channel (its ring and the chunk pool) to the file threads, and their
# digests to the comparison. A unit may include the headers of its own stage
# and of later ones, and the channel it reads from, never anything else of
# an earlier stage. The public headers and the run-wide state (run_stop.h,
# run_state_internal.h) are open to every stage.
# Usage: include_direction.sh SOURCE_ROOT
set -eu
root=$1
status=0

stage() {
  case $1 in
    extraction | run_state | run_state_internal | run_stop | version) echo 0 ;;
    source_reader | package_reads | tar_inflater | gzip_members) echo 1 ;;
    read_buffer | archive_input) echo 2 ;;  # channel
    extract_thread | entry_walker | entry_admission | entry_rules) echo 3 ;;
    hash_write_buffer | chunk_pool) echo 4 ;;  # channel
    file_threads) echo 5 ;;
    hash_compare | completeness) echo 6 ;;
    *) echo unknown ;;
  esac
}

# Whether stage $2 is the channel that stage $1 reads from.
reads_from() { [ "$2" -eq $(($1 - 1)) ] && { [ "$2" -eq 2 ] || [ "$2" -eq 4 ]; }; }

for file in "$root"/extract/*.cc "$root"/extract/*.h; do
  unit=$(basename "$file" | sed 's/\.[a-z]*$//')
  from=$(stage "$unit")
  if [ "$from" = unknown ]; then
    echo "extract/$unit has no stage in $(basename "$0")"
    status=1
    continue
  fi
  for header in $(sed -n 's|^#include "extract/\([a-z_]*\)\.h".*|\1|p' "$file"); do
    case $header in run_stop | run_state_internal) continue ;; esac
    to=$(stage "$header")
    if [ "$to" = unknown ] ||
       { [ "$to" -lt "$from" ] && ! reads_from "$from" "$to"; }; then
      echo "$(basename "$file") (stage $from) includes extract/$header.h (stage $to)"
      status=1
    fi
  done
done

# Code that ships, or that builds packages for those who ship, includes
# nothing of the tests'.
for dir in extract manifest verify status support platform include tools authoring; do
  grep -rlE '^#include "(tests|testing)/' "$root/$dir" --include='*.h' --include='*.cc' |
    sed "s|^$root/|includes a test folder: |"
done | grep . && status=1

exit $status
