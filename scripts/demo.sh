#!/usr/bin/env bash
# Builds qslave, installs it, and shows it at work on the simulated
# dispenser: sample tables written by `qslave init`, the dispenser's record,
# its status, a formula dispensed (the command the machine received and the
# levels before and after), and the tanks with their levels.
#
# It leaves you with the tool and tables to try it on:
#   - qslave installed under PREFIX (default /usr/local), so that
#     `qslave` runs by name;
#   - the sample tables in SHOP (default ~/qslave-shop), kept after the
#     demo (written once; a later run uses them as they are).
#
# Usage: scripts/demo.sh [BUILD_DIR]   (JOBS=N sets the build's parallelism,
#        PREFIX=DIR where to install, SHOP=DIR where the tables go)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
prefix=${PREFIX:-/usr/local}
shop=${SHOP:-$HOME/qslave-shop}

bash scripts/deps.sh

cmake -S . -B "$build" >/dev/null
cmake --build "$build" -j"${JOBS:-$(nproc)}" --target qslave_cli
cmake --install "$build" --prefix "$prefix" >/dev/null
qslave=$prefix/bin/qslave

# The demo uses the simulator's healthy idle machine.
unset QSLAVE_SIM QSLAVE_TRACE QSLAVE_DATA

show() {
  echo
  local line
  line=$(printf '%q ' "$@")
  echo "\$ qslave ${line% }"
  "$qslave" "$@"
}

if [ -e "$shop/disps.dbf" ]; then
  echo
  echo "(using the tables already in $shop)"
else
  show init "$shop"
fi
show --data "$shop" info
show --data "$shop" status
# 10 of oxide yellow (colourant 3), 2.5 of phthalo blue (5) and 120 of
# titanium white (1), which two linked tanks share.
show --data "$shop" dispense "(3:10.000)(5:2.500)(1:120.000)"
show --data "$shop" tanks

# Said plainly: by name when the prefix is on PATH, else by its path.
case ":$PATH:" in
  *":$prefix/bin:"*) run=qslave; where="" ;;
  *) run=$qslave; where=" ($prefix/bin is not on your PATH: run it by its path)" ;;
esac
cat <<TEXT

qslave is installed as $qslave$where.
The sample tables are in $shop and stay there. Try:

  $run --data $shop check "(8:600)"
  $run --data $shop --json tanks
  $run --data $shop shell
  $run --data $shop serve          # then open http://127.0.0.1:8080/
TEXT
