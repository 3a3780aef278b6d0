#!/usr/bin/env bash
# Sets up, builds (warnings are errors) and runs every test.
# Usage: scripts/test.sh [build-dir]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEV_WERROR=ON
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j2 --timeout 600
