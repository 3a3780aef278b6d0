#!/usr/bin/env bash
# Writes a signed benchmark package the way a producer without this project's
# tools would: `openssl smime` signs the manifest, GNU tar archives and
# `gzip -6` compresses.
#
# Usage: bench/stock_package.sh KIND SCALE DIR
#
#   large  an image of real binaries from /usr/lib, zeros and random bytes
#          (384 MiB at scale 1: 256 + 64 + 64), a random file of 96 MiB and
#          18 small files
#   wide   16 files of 24 MiB (real binaries and random bytes, half each)
#
# SCALE divides every size (16 makes a package in well under a second).
# Writes DIR/KIND.pkg, DIR/cert.pem (the root that verifies the signer) and
# DIR/KIND.sums (`sha256sum -c` list of every file). Contents are the same
# on every call on the same machine; the keys are fresh each time.
set -euo pipefail

kind=$1
scale=$2
dir=$3
src=$dir/$kind.src
mib=$((1024 * 1024))

rm -rf "$src"
mkdir -p "$src"

# Deterministic pseudo-random bytes: AES-CTR over zeros with a fixed key.
random_bytes() {  # random_bytes SEED BYTES
  openssl enc -aes-128-ctr -nosalt -K "$(printf '%032x' "$1")" -iv 0 </dev/zero 2>/dev/null |
    head -c "$2" || true  # the generator ends on a closed pipe
}

# Real machine code and data: shared libraries and programs of /usr/lib, in
# name order, from the OFFSET-th byte on.
binaries() {  # binaries OFFSET BYTES
  find /usr/lib -type f \( -name '*.so*' -o -perm -u+x \) -size +16k 2>/dev/null |
    LC_ALL=C sort | xargs cat 2>/dev/null | tail -c +$(($1 + 1)) | head -c "$2" || true
}

case $kind in
  large)
    {
      binaries 0 $((256 * mib / scale))
      head -c $((64 * mib / scale)) /dev/zero
      random_bytes 1 $((64 * mib / scale))
    } >"$src/system.img"
    random_bytes 2 $((96 * mib / scale)) >"$src/maps.dat"
    for i in $(seq -w 1 18); do
      random_bytes $((100 + 10#$i)) $((1000 + 10#$i * 1500)) >"$src/cfg_$i.bin"
    done
    ;;
  wide)
    for i in $(seq -w 1 16); do
      {
        binaries $((10#$i * 12 * mib / scale)) $((12 * mib / scale))
        random_bytes $((200 + 10#$i)) $((12 * mib / scale))
      } >"$src/module_$i.bin"
    done
    ;;
  *) echo "stock_package.sh: unknown kind $kind" >&2; exit 2 ;;
esac

# The manifest lists every file in the order the archive holds them.
(
  cd "$src"
  files=$(LC_ALL=C ls)
  {
    echo "Torvan Part Number=BENCH$kind"
    echo "Version Number=1.0"
    n=0
    for f in $files; do
      n=$((n + 1))
      echo "File$n=$f"
      echo "File$n Hash Value=$(sha256sum "$f" | cut -d' ' -f1)"
      echo "File$n Size=$(stat -c %s "$f")"
    done
  } >"$dir/Version.inf"
  sha256sum $files >"$dir/$kind.sums"
)

# A root and a signer with the S/MIME signing usages, both P-256.
keys=$dir/keys
rm -rf "$keys"
mkdir -p "$keys"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 \
  -subj /CN=bench-root -keyout "$keys/root.key" -out "$dir/cert.pem" 2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
  -subj /CN=bench-signer -keyout "$keys/signer.key" -out "$keys/signer.csr" 2>/dev/null
printf 'keyUsage=digitalSignature\nextendedKeyUsage=emailProtection\n' >"$keys/ext.cnf"
openssl x509 -req -in "$keys/signer.csr" -CA "$dir/cert.pem" -CAkey "$keys/root.key" \
  -set_serial 2 -days 3650 -extfile "$keys/ext.cnf" -out "$keys/signer.pem" 2>/dev/null
openssl smime -sign -binary -nodetach -md sha256 -outform DER -in "$dir/Version.inf" \
  -signer "$keys/signer.pem" -inkey "$keys/signer.key" -out "$src/Version.der"
rm -rf "$keys" "$dir/Version.inf"

# Version.der first, then the files in name order.
(cd "$src" && LC_ALL=C ls | grep -vx Version.der | tar -cf - Version.der -T -) |
  gzip -6 >"$dir/$kind.pkg"
rm -rf "$src"
