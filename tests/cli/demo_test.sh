#!/usr/bin/env bash
# The README's first command: scripts/demo.sh leaves the user with the tool
# installed (here in a scratch prefix) and sample tables kept in a directory
# of their own, and says where both are. A second run uses the same tables.
#
# Usage: demo_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
unset QSLAVE_DATA QSLAVE_SIM QSLAVE_TRACE DSPDEBUG DEBUG_NO_CLEAR
work=$(mktemp -d "${TMPDIR:-/tmp}/qslave-demo-test-XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
  echo "demo test: $*" >&2
  exit 1
}

export PREFIX=$work/prefix SHOP=$work/shop JOBS=2
bash "$source/scripts/demo.sh" "$build" >"$work/first.out" 2>"$work/first.err" ||
  { cat "$work/first.err" >&2; fail "the demo failed"; }
grep -qx "qslave is installed as $PREFIX/bin/qslave ($PREFIX/bin is not on your PATH: run it by its path)." \
  "$work/first.out" || fail "the demo does not say where qslave is"
grep -qx "The sample tables are in $SHOP and stay there. Try:" "$work/first.out" ||
  fail "the demo does not say where the tables are"
grep -qx "  $PREFIX/bin/qslave --data $SHOP check \"(8:600)\"" "$work/first.out" ||
  fail "the demo does not show a command to try"

"$PREFIX/bin/qslave" --data "$SHOP" info >"$work/info.out" ||
  fail "the installed qslave does not work on the kept tables"
head -n 1 "$work/info.out" | grep -qx "dispenser:    1" || fail "qslave info printed something else"
# The demo dispensed 10 of oxide yellow from circuit 5.
"$PREFIX/bin/qslave" --data "$SHOP" --json tanks |
  /usr/bin/python3 -c 'import json,sys; d=json.load(sys.stdin); assert d["circuits"][4]["current"] == 1190.0, d["circuits"][4]' ||
  fail "the kept tables do not hold the demo's dispense"

PATH=$PREFIX/bin:$PATH bash "$source/scripts/demo.sh" "$build" >"$work/second.out" 2>&1 ||
  fail "the second demo failed"
grep -qx "(using the tables already in $SHOP)" "$work/second.out" ||
  fail "the second demo did not use the kept tables"
grep -qx "qslave is installed as $PREFIX/bin/qslave." "$work/second.out" ||
  fail "with the prefix on PATH the demo does not say qslave runs by name"
grep -qx "  qslave --data $SHOP shell" "$work/second.out" ||
  fail "with the prefix on PATH the demo does not run qslave by name"
echo "demo test: passed"
