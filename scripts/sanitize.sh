#!/usr/bin/env bash
# Builds the whole test suite with a sanitizer and runs it.
#   scripts/sanitize.sh address [build-dir [cmake options]]
#                                 AddressSanitizer + UndefinedBehaviorSanitizer
#   scripts/sanitize.sh thread [build-dir [cmake options]]
#                                 ThreadSanitizer
# e.g. -DEV_INFLATER=zlib after the build directory runs the route where
# libarchive inflates the package.
# Any report fails the run: errors halt the test, and leaks are errors.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:?usage: scripts/sanitize.sh address|thread [build-dir]}
case "$kind" in
  address) ;;
  thread) ;;
  *) echo "usage: scripts/sanitize.sh address|thread [build-dir]" >&2; exit 2 ;;
esac
build=${2:-$root/build-$kind}
shift $(($# < 2 ? $# : 2))
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEV_WERROR=ON \
  -DEV_SANITIZE="$kind" "$@"
cmake --build "$build"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:report_signal_unsafe=0
ctest --test-dir "$build" --output-on-failure -j2 --timeout 1200
