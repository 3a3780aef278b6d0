#!/usr/bin/env bash
# Installs the built project into a fresh prefix, builds examples/ against
# it with find_package(extract_verify) and runs the example client on a
# package that the installed tool makes, and once more with a SIGINT that the
# client turns into an abort; then builds the client once more
# with the flags of the installed pkg-config file, and checks that those
# flags name neither a run path nor the folder of the project's headers.
#
# Usage: install_test.sh BUILD_DIR EXAMPLES_DIR WORK_DIR [CMAKE_ARG...]
# The CMAKE_ARGs configure the client's build (generator, compiler, flags).
# EV_EMULATOR, when set, is the command that runs the installed programs
# (a cross build); the pkg-config build is then skipped. EV_CLIENT_FLAGS
# are added to the pkg-config build's compiler flags (sanitizers).
set -euo pipefail
build=$1 examples=$2 work=$3
shift 3
read -r -a emulator <<< "${EV_EMULATOR:-}"

fail() { echo "install_test: $*" >&2; exit 1; }
run() { "${emulator[@]}" "$@"; }

rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" > "$work/install.log"

for file in bin/extract-verify lib/libextract_verify.so lib/libhxlog.so lib/libHX_ConfigParser.so \
            include/extract_verify.h include/extract_verify/extract_verify.h \
            lib/cmake/extract_verify/extract_verifyConfig.cmake lib/pkgconfig/extract_verify.pc \
            share/man/man1/extract-verify.1.gz share/bash-completion/completions/extract-verify; do
  [ -e "$prefix/$file" ] || fail "$file is not installed"
done
# The interface's headers and nothing else: no folder of the project's below.
headers=$(cd "$prefix/include" && find extract_verify* | sort | tr '\n' ' ')
[ "$headers" = "extract_verify extract_verify.h $(cd "$(dirname "$0")/../../include" &&
  find extract_verify/ -name '*.h' | sort | tr '\n' ' ')" ] || fail "installed headers: $headers"
# The hand-written manual page and completion name every option of --help.
for command in extract inspect pack resign attach demo; do
  help=$(run "$prefix/bin/extract-verify" "$command" --help) || fail "$command --help failed"
  grep -q "^Usage: extract-verify $command" <<<"$help" || fail "$command --help shows no usage"
  for option in $(grep -o -- '--[a-z-]*' <<<"$help" | sort -u); do
    zgrep -q -- "${option//-/\\\\-}" "$prefix/share/man/man1/extract-verify.1.gz" ||
      fail "the manual page lacks $command $option"
    grep -q -- "$option" "$prefix/share/bash-completion/completions/extract-verify" ||
      fail "the completion lacks $command $option"
  done
done
soname=$(readelf -d "$prefix/lib/libextract_verify.so" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')
[ "$soname" = libextract_verify.so.1 ] || fail "unexpected soname '$soname'"
[ -e "$prefix/lib/$soname" ] || fail "$soname is not installed"

cmake -S "$examples" -B "$work/client" -DCMAKE_PREFIX_PATH="$prefix" "$@" > "$work/configure.log"
cmake --build "$work/client" > "$work/build.log"

# A signed package made by the installed tool, then one run of the client.
run "$prefix/bin/extract-verify" demo --quiet --dir "$work/demo" > "$work/demo.log"
mkdir "$work/out"
run "$work/client/client" "$work/demo/trust.pem" "$work/demo/package.tar.gz" "$work/out" \
  > "$work/client.log" 2> "$work/progress.log"
grep -q "package DEMO-0001 version 1.0.0: 4 file(s) verified" "$work/client.log" ||
  fail "unexpected client output: $(tail -n 3 "$work/client.log")"
grep -q "done: 4 file(s) finished" "$work/progress.log" ||
  fail "unexpected progress: $(tail -c 200 "$work/progress.log")"
# The manifest gives each file's SHA-256 as sha256sum writes it.
for file in "$work"/demo/input/*; do
  cmp -s "$file" "$work/out/$(basename "$file")" || fail "$(basename "$file") differs"
  grep -q "Hash Value=$(sha256sum < "$file" | cut -d ' ' -f 1)\$" "$work/out/Version.inf" ||
    fail "the manifest lacks the SHA-256 of $(basename "$file")"
done

# A failed run ends with the status of the library.
if run "$work/client/client" "$work/demo/trust.pem" "$work/missing.tar.gz" "$work/out" \
     > /dev/null 2> "$work/client.err"; then
  fail "the client succeeded on a missing package"
fi
grep -q "extraction failed: PKG_ERR03 (38)" "$work/client.err" || fail "$(cat "$work/client.err")"

# SIGINT while the run reads: the certificate comes through a FIFO, so the
# run waits at Version.der with its read ring full (the package is larger)
# until the client has taken the signal and asked for the abort.
mkfifo "$work/trust.fifo"
rm -rf "$work/out" && mkdir "$work/out"
"${emulator[@]}" "$work/client/client" "$work/trust.fifo" "$work/demo/package.tar.gz" \
  "$work/out" > "$work/abort.log" 2> "$work/abort.err" &
client=$!
waitFor() {
  for _ in $(seq 300); do grep -q "$1" "$work/abort.err" && return; sleep 0.1; done
  fail "the client never showed '$1': $(cat "$work/abort.err")"
}
waitFor "reading"
kill -INT "$client"
waitFor "abort requested"
timeout 60 sh -c 'cat "$1" > "$2"' sh "$work/demo/trust.pem" "$work/trust.fifo" ||
  fail "the run never opened its certificate"
if wait "$client"; then fail "the client was not stopped by SIGINT"; fi
grep -q "Extraction Interrupted." "$work/abort.log" || fail "$(tail -n 3 "$work/abort.log")"
grep -q "extraction failed: PKG_ERR03 (38)" "$work/abort.err" || fail "$(cat "$work/abort.err")"

if [ ${#emulator[@]} -eq 0 ]; then
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  flags=$(pkg-config --cflags --libs extract_verify)
  case "$flags" in
    *rpath* | *include/extract_verify*) fail "unexpected pkg-config flags: $flags" ;;
  esac
  # A client compiles without libarchive's headers and with no OpenSSL
  # header but sha.h and what it includes: the others are made to fail.
  poisoned=$work/poisoned
  mkdir -p "$poisoned/openssl"
  echo '#error the client needs no archive.h' > "$poisoned/archive.h"
  trail=$(echo '#include <openssl/sha.h>' | ${CXX:-c++} -x c++ -E -H - 2>&1 >/dev/null |
    sed -n 's/^\.* //p')
  for path in "$(dirname "$(grep -m1 '/openssl/sha.h$' <<<"$trail")")"/*.h; do
    grep -qxF "$path" <<<"$trail" ||
      echo "#error the client needs no ${path##*/}" > "$poisoned/openssl/${path##*/}"
  done
  [ -e "$poisoned/openssl/x509.h" ] || fail "no OpenSSL header was replaced"
  for header in extract_verify.h extract_verify/extract_verify.h; do
    echo "#include <$header>" |
      ${CXX:-c++} -std=c++17 -fsyntax-only -I"$poisoned" -I"$prefix/include" -x c++ - ||
      fail "<$header> does not compile without the dependencies' other headers"
  done
  ${CXX:-c++} -std=c++17 -fsyntax-only -I"$poisoned" -I"$prefix/include" "$examples/client.cc" ||
    fail "the example client needs a header of the library's dependencies"
  # shellcheck disable=SC2046,SC2086  # pkg-config's flags are separate words
  ${CXX:-c++} -std=c++17 ${EV_CLIENT_FLAGS:-} "$examples/client.cc" -o "$work/client-pc" \
    $(pkg-config --cflags --libs extract_verify)
  rm -rf "$work/out" && mkdir "$work/out"
  LD_LIBRARY_PATH=$prefix/lib "$work/client-pc" "$work/demo/trust.pem" \
    "$work/demo/package.tar.gz" "$work/out" > "$work/client-pc.log" ||
    fail "the pkg-config build of the client failed its run"
fi
rm -rf "$work"
