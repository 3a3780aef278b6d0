#!/usr/bin/env bash
# Installs the Debian packages that building and testing the project need,
# and only those that are missing. Safe to run again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libarchive-dev libssl-dev zlib1g-dev libbz2-dev libisal-dev
  libgtest-dev googletest
  libarchive-tools
  lintian python3-clang
  libcli11-dev nlohmann-json3-dev
  openssl softhsm2 opensc libengine-pkcs11-openssl
)
if [ "${EV_SETUP_CLANG:-0}" = 1 ]; then
  packages+=(clang libclang-rt-dev llvm)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" = 0 ] || sudo="sudo"
  echo "setup: installing ${missing[*]}"
  # A mirror caught mid-sync fails one index; the lists kept from before
  # usually still hold the packages, so the install is tried regardless.
  $sudo apt-get update -qq || echo "setup: apt-get update failed; using the package lists as they are"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
