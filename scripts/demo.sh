#!/usr/bin/env bash
# Builds the qslave tool and shows it at work on the simulated dispenser:
# sample tables written by `qslave init`, the dispenser's record, its
# status, a formula dispensed (the command the machine received and the
# levels before and after), and the tanks with their levels.
#
# Usage: scripts/demo.sh [BUILD_DIR]   (JOBS=N sets the build's parallelism)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}

bash scripts/deps.sh

cmake -S . -B "$build" >/dev/null
cmake --build "$build" -j"${JOBS:-$(nproc)}" --target qslave_cli
qslave=$build/tools/qslave/qslave

data=$(mktemp -d "${TMPDIR:-/tmp}/qslave-demo-XXXXXX")
trap 'rm -rf "$data"' EXIT
# The demo uses the simulator's healthy idle machine.
unset QSLAVE_SIM QSLAVE_TRACE QSLAVE_DATA

show() {
  echo
  local line
  line=$(printf '%q ' "$@")
  echo "\$ qslave ${line% }"
  "$qslave" "$@"
}

show init "$data/shop"
show --data "$data/shop" info
show --data "$data/shop" status
# 10 of oxide yellow (colourant 3), 2.5 of phthalo blue (5) and 120 of
# titanium white (1), which two linked tanks share.
show --data "$data/shop" dispense "(3:10.000)(5:2.500)(1:120.000)"
show --data "$data/shop" tanks
