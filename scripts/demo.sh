#!/usr/bin/env bash
# Sets up, builds the library and the extract-verify tool, and runs the tool's
# demo: a throwaway PKI, a signed sample package and one extraction of it.
# Usage: scripts/demo.sh [build-dir]   (default: build)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEV_WERROR=ON
cmake --build "$build" --target extract-verify
"$build/tools/cli/extract-verify" demo
