#!/usr/bin/env bash
# The Debian packages: builds them with cpack from the build, unpacks them
# with dpkg -x into a scratch root (nothing is installed on the machine),
# and uses only what they hold: the tool, its manual page and completion,
# and the example host program built with pkg-config against the unpacked
# headers and libraries.
#
# Usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
set -euo pipefail

build=$(realpath "$1")
source=$(realpath "$2")
version=$3
unset QSLAVE_DATA QSLAVE_SIM QSLAVE_TRACE DSPDEBUG DEBUG_NO_CLEAR

work=$(mktemp -d "${TMPDIR:-/tmp}/qslave-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT
root=$work/root

fail() {
  echo "package test: $*" >&2
  exit 1
}

echo "== cpack -G DEB"
(cd "$build" && cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) ||
  { cat "$work/cpack.log" >&2; fail "cpack failed"; }

# Package, the file it must hold, and what it must depend on.
check_package() {
  local name=$1 depends=$2
  local deb=$work/out/${name}_${version}_amd64.deb
  [ -f "$deb" ] || fail "no $name package ($(ls "$work/out"))"
  [ "$(dpkg-deb -f "$deb" Package)" = "$name" ] || fail "$deb is not $name"
  [ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "$name is not version $version"
  [ "$(dpkg-deb -f "$deb" Depends)" = "$depends" ] ||
    fail "$name depends on \"$(dpkg-deb -f "$deb" Depends)\", not \"$depends\""
  dpkg -x "$deb" "$root"
}
check_package libqslave0 "libc6, libstdc++6, libgcc-s1, libflxmlrpc1"
check_package libqslave-dev "libqslave0 (= $version)"
check_package qslave-tools "libqslave0 (= $version), libreadline8, libcpp-httplib0.11"

# What goes where: the libraries in libqslave0, the development files in
# libqslave-dev, the tool with its manual page and completion in
# qslave-tools.
owner() { dpkg-deb -c "$work/out/${1}_${version}_amd64.deb" | awk '{print $6}' | sed 's|^\./||'; }
for f in usr/lib/libqslave.so.0 usr/lib/libqdb.so usr/lib/libcdispenser.so \
         usr/lib/libzutable-small.so usr/lib/libqdsp32.so; do
  owner libqslave0 | grep -qx "$f" || fail "libqslave0 lacks $f"
done
for f in usr/include/qslave/slave.h usr/include/qslave/host/cdispenser.h \
         usr/lib/pkgconfig/qslave.pc usr/lib/libqslave.so \
         usr/share/doc/libqslave-dev/examples/host_example.cpp; do
  owner libqslave-dev | grep -qx "$f" || fail "libqslave-dev lacks $f"
done
for f in usr/bin/qslave usr/share/man/man1/qslave.1 \
         usr/share/bash-completion/completions/qslave; do
  owner qslave-tools | grep -qx "$f" || fail "qslave-tools lacks $f"
done

echo "== the unpacked tool"
qslave=$root/usr/bin/qslave
[ "$("$qslave" --version)" = "qslave $version" ] || fail "qslave --version: $("$qslave" --version)"
prefix_lib=$(realpath "$root/usr/lib")
ldd "$qslave" >"$work/ldd.txt"
for lib in libqslave.so.0 libqdb.so libcdispenser.so libzutable-small.so libqdsp32.so; do
  path=$(sed -n "s|^[[:space:]]*$lib => \\(.*\\) (0x.*|\\1|p" "$work/ldd.txt")
  [ "$(dirname "$(realpath "$path")")" = "$prefix_lib" ] ||
    fail "the unpacked qslave loads $lib from \"$path\", not from the package"
done
"$qslave" init "$work/shop" >/dev/null || fail "the unpacked qslave init failed"
"$qslave" --data "$work/shop" info >"$work/info.out" || fail "the unpacked qslave info failed"
head -n 1 "$work/info.out" | grep -qx "dispenser:    1" ||
  fail "the unpacked qslave info printed something else"
"$qslave" --data "$work/shop" --json check "(3:10)" >"$work/check.json" ||
  fail "the unpacked qslave check failed"
/usr/bin/python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); assert d["verdict"] == 2, d' \
  "$work/check.json" || fail "the unpacked qslave --json check gave another verdict"

echo "== the manual page"
MANWIDTH=80 man -l "$root/usr/share/man/man1/qslave.1" >"$work/man.txt" 2>"$work/man.err" ||
  fail "man cannot show qslave.1"
[ ! -s "$work/man.err" ] || { cat "$work/man.err" >&2; fail "man warns about qslave.1"; }
grep -q "qslave - inspect and drive a colourant dispenser through libqslave" "$work/man.txt" ||
  fail "the manual page lacks its NAME line"

echo "== bash completion"
completions=$(bash -c 'source "$1"; COMP_WORDS=(qslave pu); COMP_CWORD=1; _qslave; echo "${COMPREPLY[*]}"' \
  _ "$root/usr/share/bash-completion/completions/qslave")
[ "$completions" = "purge" ] || fail "completing \"qslave pu\" gave \"$completions\""

echo "== the example against the unpacked development files"
export PKG_CONFIG_PATH=$root/usr/lib/pkgconfig
g++ -std=c++17 -Wall -Wextra -Werror -o "$work/host_example" \
  "$root/usr/share/doc/libqslave-dev/examples/host_example.cpp" \
  $(pkg-config --cflags --libs qslave) || fail "the example does not build from the packages"
(cd "$work" && QSLAVE_DATA=$work/shop ./host_example >"$work/example.out" 2>/dev/null) ||
  fail "the example failed"
diff -u "$source/tests/cli/host_example.expected" "$work/example.out" >&2 ||
  fail "the example printed something else"

echo "package test: passed"
