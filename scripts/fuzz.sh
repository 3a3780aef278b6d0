#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ (clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time, one after the
# other, at low priority.
#   scripts/fuzz.sh [seconds-per-target] [build-dir]
# Seed inputs are made afresh by make_seeds, signed with a PKI kept in
# BUILD/fuzz/pki; inputs the fuzzers find stay in BUILD/fuzz/corpus/TARGET
# and carry over to the next run. A crash, hang (-timeout=20) or memory blow
# up is written to BUILD/fuzz/artifacts/TARGET/ and fails the script; replay
# one with EV_FUZZ_VERBOSE=1 EV_FUZZ_PKI=BUILD/fuzz/pki BUILD/fuzz/fuzz_TARGET FILE.
#
# Every failed extraction writes /tmp/extract_verify_error.txt, which the
# test suites of this machine read. Each fuzzer therefore runs in a mount
# namespace of its own with a private /tmp where the system allows it;
# otherwise the extraction fuzzer holds the test suites' report lock for its
# whole run, and extraction tests elsewhere wait for it. A build directory
# under /tmp is mounted again at its own path inside the private /tmp, so
# that the fuzzers and the libraries they load stay where they were.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
build=${2:-$root/build-fuzz}

EV_SETUP_CLANG=1 "$root/scripts/setup.sh"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DEV_FUZZ=ON -DEV_WERROR=ON -DEV_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target fuzz_targets
build=$(cd "$build" && pwd)

fuzz=$build/fuzz
export EV_FUZZ_PKI=$fuzz/pki
"$fuzz/make_seeds" "$fuzz/seeds"
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# The dictionary sits beside the fuzzers, reachable like them.
cp "$root/fuzz/manifest.dict" "$fuzz/manifest.dict"

# Runs "$@" from BUILD/fuzz with a private, empty /tmp when the system lets
# us. The working directory, taken before the mount, still reaches the build
# directory that the mount covers; it is bound back to its own path.
isolated() {
  if unshare --mount true 2>/dev/null; then
    (cd "$build" && unshare --mount --propagation private sh -c '
      mount -t tmpfs -o size=2g ev-fuzz /tmp &&
      mkdir -p "$0" && mount --no-canonicalize --bind . "$0" && cd "$0/fuzz" && exec "$@"' "$build" "$@")
  elif [[ " $* " == *" ./fuzz_extract "* ]]; then
    echo "fuzz: no private /tmp here; holding the error report lock" >&2
    flock /tmp/extract_verify_error.txt.lock "$@"
  else
    "$@"
  fi
}

failed=()
for target in manifest unsign extract; do
  corpus=$fuzz/corpus/$target
  artifacts=$fuzz/artifacts/$target
  mkdir -p "$corpus" "$artifacts" "$fuzz/logs"
  args=(-max_total_time="$seconds" -timeout=20 -print_final_stats=1
        -artifact_prefix="artifacts/$target/")
  case $target in
    manifest) args+=(-max_len=4096 -dict=manifest.dict) ;;
    # The pipeline hands over at most 4096 bytes of Version.der.
    unsign) args+=(-max_len=4096) ;;
    # Every extracted file holds a 16 MiB ring until the end of the archive.
    extract) args+=(-max_len=65536 -rss_limit_mb=4096) ;;
  esac
  log=$fuzz/logs/$target.log
  echo "fuzz: $target for ${seconds}s (log: $log)"
  if (cd "$fuzz" && isolated nice -n 10 "./fuzz_$target" "${args[@]}" "corpus/$target" \
      "seeds/$target") >"$log" 2>&1; then
    :
  else
    failed+=("$target")
  fi
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)|^Done [0-9]+ runs' "$log" || true
  echo "fuzz: $target corpus: $(find "$corpus" -type f | wc -l) inputs"
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in: ${failed[*]} (see $fuzz/artifacts and $fuzz/logs)" >&2
  exit 1
fi
echo "fuzz: no findings"
