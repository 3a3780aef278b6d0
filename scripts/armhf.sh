#!/usr/bin/env bash
# Cross-builds the library, the tools and the tests for Debian armhf and runs
# the whole test suite under qemu-arm user-mode emulation.
#
# The armhf builds of the dependencies are downloaded with apt-get download
# and unpacked into a sysroot folder with dpkg-deb -x: a multiarch install can
# refuse armhf libraries whose version differs from the installed amd64 ones.
# Usage: scripts/armhf.sh [build-dir]   (default: build-armhf)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-armhf}
# The sysroot is named in include and link paths, which must be absolute.
mkdir -p "$build"
build=$(cd "$build" && pwd)
sysroot=$build/sysroot
debs=$build/debs

"$root/scripts/setup.sh"
sudo=""
[ "$(id -u)" = 0 ] || sudo="sudo"
for p in g++-arm-linux-gnueabihf qemu-user; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "$p"
  fi
done
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $sudo dpkg --add-architecture armhf
fi
# A mirror in the middle of a sync may fail one index; the others still serve.
$sudo apt-get update -qq || true

# The dependencies and everything they need at run time, C library included.
packages=(
  libc6 libc6-dev libgcc-s1 gcc-12-base libstdc++6 libcrypt1
  libarchive-dev libarchive13 libacl1 libbz2-1.0 liblz4-1 liblzma5 libxml2 libicu72
  libzstd1 libnettle8
  libssl-dev libssl3 zlib1g-dev zlib1g libisal-dev libisal2 libgtest-dev
)
# Header-only libraries the tool is built with: one package for every
# architecture, so they are downloaded by their plain names.
headers=(libcli11-dev nlohmann-json3-dev)
if [ ! -f "$sysroot/.complete" ]; then
  rm -rf "$sysroot" "$debs"
  mkdir -p "$sysroot" "$debs"
  (cd "$debs" && apt-get download "${packages[@]/%/:armhf}" "${headers[@]}")
  for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
  # Absolute symbolic links inside the sysroot must point into it.
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfn "$sysroot$(readlink "$link")" "$link"
  done
  touch "$sysroot/.complete"
fi

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEV_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/armhf-toolchain.cmake" -DEV_ARMHF_SYSROOT="$sysroot" \
  -DEV_INFLATER=isal
# The durations tell whether a CI run can afford the emulated suite.
started=$SECONDS
cmake --build "$build"
built=$SECONDS
status=0
ctest --test-dir "$build" --output-on-failure -j2 --timeout 1200 || status=$?
echo "armhf: build $((built - started)) s, tests $((SECONDS - built)) s"
exit "$status"
