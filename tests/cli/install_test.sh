#!/usr/bin/env bash
# Installs a build into a temporary prefix and uses only the installed copy:
# builds examples/host_example.cpp with the flags pkg-config gives for
# qslave, writes tables with the installed qslave, runs both, and compares
# their output with what they must print.
#
# Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail

build=$1
source=$2
expected_dir=$source/tests/cli
unset QSLAVE_DATA QSLAVE_SIM QSLAVE_TRACE DSPDEBUG DEBUG_NO_CLEAR

work=$(mktemp -d "${TMPDIR:-/tmp}/qslave-install-XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "install test: $*" >&2
  exit 1
}

# Compares a file with the expected one and shows the difference.
same() {
  diff -u "$1" "$2" >&2 || fail "$3"
}

echo "== install into $prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
  { cat "$work/install.log" >&2; fail "cmake --install failed"; }

for f in bin/qslave lib/libqslave.so lib/libqdb.so lib/libcdispenser.so \
         lib/libzutable-small.so lib/libqdsp32.so lib/pkgconfig/qslave.pc \
         include/qslave/slave.h include/qslave/host/cdispenser.h \
         include/qslave/host/qdbase.h include/qslave/host/zutable.h \
         include/qslave/host/qdsp32.h; do
  [ -e "$prefix/$f" ] || fail "the install lacks $f"
done

echo "== pkg-config"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
pc_prefix=$(pkg-config --variable=prefix qslave) || fail "pkg-config does not find qslave"
[ "$(realpath -m "$pc_prefix")" = "$(realpath -m "$prefix")" ] ||
  fail "qslave.pc names the prefix $pc_prefix, not $prefix where it was installed"
flags=$(pkg-config --cflags --libs qslave)
echo "$flags"

echo "== build the example against the installed copy"
g++ -std=c++17 -Wall -Wextra -Werror -o "$work/host_example" \
  "$source/examples/host_example.cpp" $flags ||
  fail "examples/host_example.cpp does not build with the installed copy"

# Every library the example and the tool load comes from the prefix.
prefix_lib=$(realpath "$prefix/lib")
for program in "$work/host_example" "$prefix/bin/qslave"; do
  ldd "$program" >"$work/ldd.txt"
  for lib in libqslave.so libqdb.so libcdispenser.so libzutable-small.so libqdsp32.so; do
    path=$(sed -n "s|^[[:space:]]*$lib[^ ]* => \\(.*\\) (0x.*|\\1|p" "$work/ldd.txt")
    [ -n "$path" ] || fail "$program does not load $lib"
    [ "$(dirname "$(realpath "$path")")" = "$prefix_lib" ] ||
      fail "$program loads $lib from $path, outside the prefix"
  done
done

echo "== tables from the installed qslave"
"$prefix/bin/qslave" init "$work/shop" >"$work/init.out" ||
  fail "the installed qslave init failed"
[ "$(wc -l <"$work/init.out")" -eq 5 ] || fail "qslave init did not report five tables"

echo "== run the example"
# From another directory, finding the tables through QSLAVE_DATA; the
# library's trace goes to a file.
cd "$work"
QSLAVE_DATA=$work/shop QSLAVE_TRACE=$work/trace.log ./host_example >"$work/example.out" 2>"$work/example.err" ||
  { cat "$work/example.err" >&2; fail "host_example failed"; }
same "$expected_dir/host_example.expected" "$work/example.out" "host_example printed something else"
[ ! -s "$work/example.err" ] || { cat "$work/example.err" >&2; fail "host_example wrote to standard error"; }
grep -Eq '^\[TH_ID=[0-9]+\] /! --> 198  $' "$work/trace.log" ||
  fail "the trace lacks the status command's line"

QSLAVE_DATA=$work/shop ./host_example 1 >"$work/example1.out" 2>/dev/null ||
  fail "host_example 1 failed"
same "$expected_dir/host_example.expected" "$work/example1.out" "host_example 1 printed something else"

if QSLAVE_DATA=$work/shop ./host_example 7 >/dev/null 2>"$work/example7.err"; then
  fail "host_example 7 succeeded without a dispenser 7"
fi
grep -qx "host_example: no dispenser 7 in the tables" "$work/example7.err" ||
  fail "host_example 7 did not name the missing dispenser"

echo "/! 70" >"$work/door_open.rules"
QSLAVE_DATA=$work/shop QSLAVE_SIM=$work/door_open.rules ./host_example 2>/dev/null |
  sed -n '/^status word/,$p' >"$work/door.out"
same "$expected_dir/host_example_door_open.expected" "$work/door.out" \
  "host_example decoded the door-open status wrongly"

echo "== run the installed qslave"
"$prefix/bin/qslave" --data "$work/shop" info >"$work/info.out" ||
  fail "the installed qslave info failed"
head -n 1 "$work/info.out" | grep -qx "dispenser:    1" || fail "qslave info printed something else"
grep -qx "tank  12: colourant 10" "$work/info.out" || fail "qslave info lacks tank 12"

echo "install test: passed"
