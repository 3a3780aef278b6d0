#!/usr/bin/env bash
# Builds everything with clang and its lock analysis (-Wthread-safety), every
# warning an error: a guarded field touched without its lock, or a lock taken
# or released where the annotations say otherwise, fails the build.
#   scripts/thread_safety.sh [build-dir]   (default: build-thread-safety)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-thread-safety}
EV_SETUP_CLANG=1 "$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DEV_WERROR=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-Wthread-safety
cmake --build "$build"
