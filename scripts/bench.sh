#!/bin/sh
# Builds the benchmarks (Release) and runs them: every operation's time, the
# ratios of the dispense and the level batch to their floors, and (when
# valgrind is installed) the instructions each of those executes, which do
# not depend on the machine's load.
#
# Environment: BUILD (build directory, default build-bench), JOBS (default
# 2), REPS (repetitions, default 5), CALLGRIND=0 to skip the instruction
# counts. Extra arguments go to the benchmark program (e.g.
# --benchmark_filter=Dispense).
#
# The last two lines of the output are "dispense/floor=R levels/floor=R"
# (median times, two decimals) and "dispense/floor instr=R levels/floor
# instr=R" (instructions), for scripts that take only those. The
# instructions are also counted with the purge server told
# (dispense_purge), its client side only, and with the floors' bookings
# made through the host's table class (dispense_table_class,
# levels_table_class), which splits each ratio into the table class's
# share and the library's own.
set -eu

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${BUILD:-$ROOT/build-bench}
JOBS=${JOBS:-2}
REPS=${REPS:-5}
CALLGRIND=${CALLGRIND:-1}
PYTHON=/usr/bin/python3

cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DQSLAVE_BUILD_BENCH=ON >/dev/null
cmake --build "$BUILD" -j"$JOBS" --target qslave_bench >/dev/null
BIN="$BUILD/bench/qslave_bench"

WORK=$(mktemp -d "${TMPDIR:-/tmp}/qslave-bench-run-XXXXXX")
trap 'rm -rf "$WORK"' EXIT INT TERM

echo "cpu:  $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //') ($(nproc) cores)"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
# Repetitions of different benchmarks are interleaved at random, so that a
# slow spell of the disk weighs on the library and its floor alike.
"$BIN" --benchmark_repetitions="$REPS" --benchmark_report_aggregates_only=true \
       --benchmark_enable_random_interleaving=true \
       --benchmark_out="$WORK/results.json" --benchmark_out_format=json "$@"
echo "load after:  $(cut -d' ' -f1-3 /proc/loadavg)"

: > "$WORK/instructions"
if [ "$CALLGRIND" != 0 ] && command -v valgrind >/dev/null 2>&1; then
  # The driver-kept level updates touch up to 999 circuits each: ten of
  # them are enough for a steady count.
  for work in dispense:100 dispense_floor:100 levels:100 levels_floor:100 \
              dispense_purge:100 dispense_purge_floor:100 \
              dispense_table_class:100 levels_table_class:100 \
              driver_levels:16:10 driver_levels:128:10 driver_levels:999:10 \
              levels:16:10 levels:128:10 levels:999:10 \
              levels_falling:16:10 levels_falling:128:10 levels_falling:999:10 \
              split_single:20 split_independent:20 split_linked:20 \
              tank_report:16:10 tank_report:128:10 tank_report:999:10 \
              driver_tank_report:16:10 driver_tank_report:128:10 driver_tank_report:999:10 \
              field_levels:16:10 field_levels:128:10 field_levels:999:10 \
              field_tank_report:16:10 field_tank_report:128:10 field_tank_report:999:10; do
    name=${work%:*}
    iterations=${work##*:}
    valgrind --tool=callgrind --collect-atstart=no \
      --callgrind-out-file="$WORK/callgrind.$name" \
      "$BIN" --count="$name" --count_iterations="$iterations" >/dev/null 2>"$WORK/callgrind.$name.err"
    n=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$WORK/callgrind.$name.err")
    echo "$name ${n:-0} $iterations" >> "$WORK/instructions"
  done
fi

"$PYTHON" - "$WORK/results.json" "$WORK/instructions" <<'PY'
import json, sys

results = json.load(open(sys.argv[1]))
median = {}
for b in results["benchmarks"]:
    # With REPS=1 there are no aggregates: the one run is the median.
    once = b.get("run_type") == "iteration" and b.get("repetitions", 1) <= 1
    if b.get("aggregate_name") == "median" or once:
        median[b["run_name"]] = b["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]

def show(ns):
    if ns >= 1e6: return "%.2f ms" % (ns / 1e6)
    if ns >= 1e3: return "%.1f us" % (ns / 1e3)
    return "%.0f ns" % ns

floors = {
    "BM_Dispense/purge:0": "BM_DispenseFloor/purge:0",
    "BM_Dispense/purge:1": "BM_DispenseFloor/purge:1",
    "BM_LevelBatch": "BM_LevelBatchFloor",
}
print()
print("%-44s %12s %12s %8s" % ("median of %s runs" % results["benchmarks"][0].get("repetitions", "?"),
                                  "time", "floor", "ratio"))
for name, ns in median.items():
    if name in floors.values() or name == "BM_PurgeCallFloor":
        continue
    floor = median.get(floors.get(name, ""))
    print("%-44s %12s %12s %8s" % (name, show(ns), show(floor) if floor else "",
                                   "%.2f" % (ns / floor) if floor else ""))
if "BM_PurgeCallFloor" in median:
    print("%-44s %12s" % ("BM_PurgeCallFloor (one XML-RPC call)", show(median["BM_PurgeCallFloor"])))

counts = {}
for line in open(sys.argv[2]):
    work, n, it = line.split()
    counts[work] = int(n) / int(it)
if counts:
    print()
    print("instructions per operation (callgrind, client side):")
    for lib, floor in (("dispense", "dispense_floor"), ("levels", "levels_floor"),
                       ("dispense_purge", "dispense_purge_floor")):
        if not counts.get(floor):
            continue
        print("  %-14s %10.0f   floor %10.0f   ratio %.2f" %
              (lib, counts[lib], counts[floor], counts[lib] / counts[floor]))
        # The floor's booking made through the table class: how much of the
        # ratio is the table class's and how much the library's own.
        through = counts.get(lib + "_table_class")
        if through:
            print("  %-14s floor through the table class %10.0f   table class/floor %.2f   "
                  "library/table class %.2f" %
                  (lib, through, through / counts[floor], counts[lib] / through))
    for kind, what in (("levels", "UpdateLevels of %3d circuits, rising"),
                       ("levels_falling", "UpdateLevels of %3d circuits, falling"),
                       ("driver_levels", "UpdateLevels of %3d driver-kept circuits"),
                       ("field_levels", "UpdateLevels of %3d driver-kept circuits, by field"),
                       ("tank_report", "tank report of %3d circuits"),
                       ("driver_tank_report", "tank report of %3d driver-kept circuits"),
                       ("field_tank_report", "tank report of %3d driver-kept circuits, by field")):
        for n in (16, 128, 999):
            work = "%s:%d" % (kind, n)
            if counts.get(work):
                print("  %-42s %12.0f   per circuit %6.0f" %
                      (what % n, counts[work], counts[work] / n))
    for kind in ("single", "independent", "linked"):
        work = "split_" + kind
        if counts.get(work):
            print("  split of 12 colourants, %-12s %12.0f   per colourant %6.0f" %
                  (kind, counts[work], counts[work] / 12))

def ratio(a, b):
    return "%.2f" % (median[a] / median[b]) if a in median and b in median else "nan"
print()
print("dispense/floor=%s levels/floor=%s" % (ratio("BM_Dispense/purge:0", "BM_DispenseFloor/purge:0"),
                                             ratio("BM_LevelBatch", "BM_LevelBatchFloor")))

# Instructions do not move with the load of a shared machine: the stable
# figures, last.
def iratio(a, b):
    return "%.2f" % (counts[a] / counts[b]) if counts.get(a) and counts.get(b) else "nan"
print("dispense/floor instr=%s levels/floor instr=%s" % (iratio("dispense", "dispense_floor"),
                                                         iratio("levels", "levels_floor")))
PY
