#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, address and undefined-behaviour
# sanitizers) in build-fuzz and runs each for a bounded time on a copy of
# its seed corpus, so fuzz/corpus/ is left as it is. Fails when any target
# crashes, leaks, times out or runs out of memory; the input that did it is
# kept in build-fuzz/artifacts/<target>/.
#
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
#   SECONDS  run time of each target (default 20)
#   TARGET   targets to run (default: every one)
# JOBS sets the build's parallelism and how many targets run at once
# (default 1). KEEP_CORPUS=1 leaves each
# grown corpus in build-fuzz/corpus-out/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-20}
shift || true
jobs=${JOBS:-1}
build=build-fuzz

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(fuzz_formula fuzz_reports fuzz_sendcommand fuzz_dispenser_record
           fuzz_tank_records fuzz_dbf fuzz_sim_rules fuzz_journal fuzz_dialects)
fi

cmake -S . -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQSLAVE_BUILD_FUZZ=ON -DQSLAVE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$jobs" --target "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}

work=$(mktemp -d "${TMPDIR:-/tmp}/qslave-fuzz-run-XXXXXX")
trap 'rm -rf "$work"' EXIT

# Runs one target on a copy of its corpus; its summary line (and the
# first lines of a finding) go to $work/$t.summary, its exit to $work/$t.rc.
run_target() {
  local t=$1
  local corpus="$work/$t"
  mkdir -p "$corpus" "$root/$build/artifacts/$t" "$root/$build/logs"
  if [ -d "fuzz/corpus/$t" ]; then cp -r "fuzz/corpus/$t/." "$corpus/"; fi
  local log="$root/$build/logs/$t.log"
  local rc=0
  "$root/$build/fuzz/$t" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
    -max_len=4096 -print_final_stats=1 -close_fd_mask=1 \
    -artifact_prefix="$root/$build/artifacts/$t/" "$corpus" > "$log" 2>&1 || rc=$?
  local execs speed files
  execs=$(grep -E '^stat::number_of_executed_units' "$log" | awk '{print $2}' || true)
  speed=$(grep -E '^stat::average_exec_per_sec' "$log" | awk '{print $2}' || true)
  files=$(find "$corpus" -type f | wc -l)
  {
    echo "$t: exit $rc, ${execs:-?} runs (${speed:-?}/s), corpus $files files"
    if [ "$rc" -ne 0 ]; then
      grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$log" | head -5 || true
    fi
  } > "$work/$t.summary"
  echo "$rc" > "$work/$t.rc"
  if [ "${KEEP_CORPUS:-0}" = 1 ]; then
    rm -rf "$root/$build/corpus-out/$t"
    mkdir -p "$root/$build/corpus-out"
    cp -r "$corpus" "$root/$build/corpus-out/$t"
  fi
}

# JOBS targets at a time, each on one core; the summaries are printed in
# the targets' order once all have run.
running=0
for t in "${targets[@]}"; do
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
  run_target "$t" &
  running=$((running + 1))
done
wait || true

failed=()
for t in "${targets[@]}"; do
  cat "$work/$t.summary" 2>/dev/null || echo "$t: did not report"
  if [ "$(cat "$work/$t.rc" 2>/dev/null || echo 1)" -ne 0 ]; then failed+=("$t"); fi
done

if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzz.sh: failed: ${failed[*]} (logs in $build/logs, inputs in $build/artifacts)" >&2
  exit 1
fi
echo "fuzz.sh: every target ran ${seconds}s without a finding"
