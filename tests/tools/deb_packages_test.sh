#!/usr/bin/env bash
# Builds the Debian packages of a build tree with cpack and checks them:
# each package holds its own part of the installation, the libraries in the
# multiarch directory of the packages' architecture, and together they hold
# all of it; the development and tool packages depend on the library's, and
# the library's names ISA-L exactly when it links it; lintian finds no
# error. Exits 77 (skipped) where dpkg-deb is missing.
#
# Usage: deb_packages_test.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1 work=$2
command -v dpkg-deb > /dev/null || { echo "dpkg-deb is missing: skipped"; exit 77; }
fail() { echo "deb_packages_test: $*" >&2; exit 1; }
command -v lintian > /dev/null || fail "lintian is missing: run scripts/setup.sh"

rm -rf "$work"
mkdir -p "$work"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/debs" > "$work/cpack.log" 2>&1 ||
  fail "cpack failed: $(tail -n 5 "$work/cpack.log")"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"

# The paths a package installs (files and links), relative to /usr.
contents() { dpkg-deb -c "$1" | awk '$1 !~ /^d/ { print $6 }' | sed 's|^\./usr/||' | sort; }
package() { compgen -G "$work/debs/$1_*.deb" || fail "no package $1"; }
lib=$(package libextract-verify1) dev=$(package libextract-verify-dev) tool=$(package extract-verify)
libdir=lib/$(dpkg-architecture -a "$(dpkg-deb -f "$lib" Architecture)" -qDEB_HOST_MULTIARCH 2> /dev/null)

expect() {  # expect PACKAGE PATH...: each path is in the package
  local deb=$1 path
  shift
  for path in "$@"; do
    contents "$deb" | grep -qx "$path" || fail "$path is not in $(basename "$deb")"
  done
}
expect "$lib" "$libdir/libextract_verify.so.1" "$libdir/libhxlog.so" "$libdir/libHX_ConfigParser.so"
expect "$dev" "$libdir/libextract_verify.so" include/extract_verify.h \
  include/extract_verify/extract_verify.h include/extract_verify/status.h \
  "$libdir/pkgconfig/extract_verify.pc" "$libdir/cmake/extract_verify/extract_verifyConfig.cmake"
expect "$tool" bin/extract-verify share/man/man1/extract-verify.1.gz

# The packages hold what `cmake --install` installs, but for the library
# directory and each package's own documents.
all=$(cd "$work/prefix" && find . ! -type d | sed 's|^\./||' | sort)
packaged=$(for deb in "$lib" "$dev" "$tool"; do contents "$deb"; done |
  grep -v '^share/doc/' | sed "s|^$libdir/|lib/|" | sort)
[ "$all" = "$packaged" ] ||
  fail "packages and installation differ: $(diff <(echo "$all") <(echo "$packaged") | grep '^[<>]')"

for deb in "$dev" "$tool"; do
  dpkg-deb -f "$deb" Depends | grep -q "libextract-verify1 (= " ||
    fail "$(basename "$deb") does not depend on the library's package"
done
# dpkg-shlibdeps names what the library links: ISA-L only in a build with it.
dpkg-deb -x "$lib" "$work/lib"
links_isal=$(readelf -d "$work/lib/usr/$libdir/libextract_verify.so.1" | grep -c 'NEEDED.*libisal' || true)
depends_isal=$(dpkg-deb -f "$lib" Depends | grep -c 'libisal2' || true)
[ "$links_isal" = "$depends_isal" ] ||
  fail "the library's package depends on libisal2: $depends_isal, links ISA-L: $links_isal"

lintian --fail-on error --tag-display-limit 0 "$lib" "$dev" "$tool" > "$work/lintian.log" 2>&1 ||
  fail "lintian found errors: $(grep '^E:' "$work/lintian.log" || cat "$work/lintian.log")"
rm -rf "$work"
