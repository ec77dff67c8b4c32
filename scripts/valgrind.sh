#!/usr/bin/env bash
# Runs every test program of a normal build (build-vg) under valgrind's
# memcheck. A definite or indirect leak, or any memory error, fails the
# program (exit 99). Child processes (the Python helpers some tests start)
# are not traced: they are not ours.
#
# Usage: scripts/valgrind.sh [BUILD_DIR] [PROGRAM...]
#   BUILD_DIR  default build-vg
#   PROGRAM    test program names (e.g. test_tank_queries); default: all
# JOBS sets the build's parallelism and how many programs run at once
# (default 1). TRACK_ORIGINS=yes makes
# valgrind tell where an uninitialised value came from (slower). Logs are left in
# BUILD_DIR/valgrind/<program>.log.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${1:-build-vg}
shift || true
jobs=${JOBS:-1}
supp="$root/scripts/valgrind.supp"

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQSLAVE_BUILD_TESTS=ON \
  -DQSLAVE_SANITIZE=OFF
cmake --build "$build" -j"$jobs"

programs=("$@")
if [ ${#programs[@]} -eq 0 ]; then
  # test_alloc_failure replaces the allocator, which memcheck owns: it runs
  # in the suite only. The fault sweeps (*_faults) and the concurrent
  # bookings fork and kill hundreds of processes: they run in the suite and
  # under the sanitizers; memcheck would take hours over them.
  while IFS= read -r p; do programs+=("$(basename "$p")"); done < <(
    find "$build/tests" -maxdepth 1 -type f -name 'test_*' -perm -u+x \
      ! -name test_alloc_failure ! -name '*_faults' ! -name test_concurrent_bookings | sort)
fi
# The same reason for the thousand kills of the durability tests.
filter_of() {
  case "$1" in
    test_durability) echo "--gtest_filter=-*AThousandKills*" ;;
    *) echo "--gtest_filter=*" ;;
  esac
}

logs="$(cd "$build" && pwd)/valgrind"  # absolute: each program runs in its own directory
mkdir -p "$logs"
# The environment ctest gives every test program.
export QSLAVE_TRACE= QSLAVE_SIM= QSLAVE_DATA=

# Runs one program under memcheck; its line of the report goes to
# $logs/<program>.result and its exit status to $logs/<program>.rc.
run_one() {
  local p=$1 exe="$build/tests/$1" start rc secs summary used
  if [ ! -x "$exe" ]; then
    echo "valgrind.sh: no test program $exe" > "$logs/$p.result"
    echo 1 > "$logs/$p.rc"
    return
  fi
  start=$(date +%s)
  set +e
  (cd "$build/tests" && valgrind --tool=memcheck --leak-check=full \
      --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
      --error-exitcode=99 --trace-children=no --track-origins="${TRACK_ORIGINS:-no}" \
      --suppressions="$supp" -v --log-file="$logs/$p.log" \
      "./$p" --gtest_brief=1 "$(filter_of "$p")" > "$logs/$p.out" 2>&1)
  rc=$?
  set -e
  secs=$(( $(date +%s) - start ))
  summary=$(grep -E 'ERROR SUMMARY' "$logs/$p.log" | tail -1 | sed 's/^==[0-9]*== //' || true)
  used=$(grep -E 'used_suppression' "$logs/$p.log" | sed 's/^--[0-9]*-- *//' | tr '\n' ';' || true)
  echo "$p: exit $rc, ${secs}s, $summary${used:+ [suppressed: $used]}" > "$logs/$p.result"
  echo "$rc" > "$logs/$p.rc"
}

# JOBS programs at a time (the suite's programs already run side by side
# under ctest); the report keeps the programs' order.
running=0
for p in "${programs[@]}"; do
  rm -f "$logs/$p.result" "$logs/$p.rc"
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
  run_one "$p" &
  running=$((running + 1))
done
wait

failed=()
for p in "${programs[@]}"; do
  cat "$logs/$p.result" 2>/dev/null || echo "$p: no result"
  [ "$(cat "$logs/$p.rc" 2>/dev/null || echo 1)" -eq 0 ] || failed+=("$p")
done

if [ ${#failed[@]} -ne 0 ]; then
  echo "valgrind.sh: failed: ${failed[*]} (logs in $logs)" >&2
  exit 1
fi
echo "valgrind.sh: all ${#programs[@]} programs clean"
