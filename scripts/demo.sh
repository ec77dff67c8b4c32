#!/usr/bin/env bash
# Builds the qslave tool and shows it at work on the simulated dispenser:
# sample tables written by `qslave init`, the dispenser's record, its
# status, and one command sent with the library's trace.
#
# Usage: scripts/demo.sh [BUILD_DIR]   (JOBS=N sets the build's parallelism)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}

cmake -S . -B "$build" >/dev/null
cmake --build "$build" -j"${JOBS:-$(nproc)}" --target qslave_cli
qslave=$build/tools/qslave/qslave

data=$(mktemp -d "${TMPDIR:-/tmp}/qslave-demo-XXXXXX")
trap 'rm -rf "$data"' EXIT
# The demo uses the simulator's healthy idle machine.
unset QSLAVE_SIM QSLAVE_TRACE QSLAVE_DATA

show() {
  echo
  echo "\$ qslave $*"
  "$qslave" "$@"
}

show init "$data/shop"
show --data "$data/shop" info
show --data "$data/shop" status
show --data "$data/shop" --trace send "/!"
show --data "$data/shop" --trace send "/M1"
