#!/usr/bin/env bash
# The lines of src/ and refhost/qdb/ that the fuzz corpora reach: builds the
# library, the reference host and every fuzz target with clang's
# source-based coverage (no sanitizers), replays each corpus once
# (libFuzzer's -runs=0), merges the profiles and prints llvm-cov's report
# per file with the totals.
#
#   scripts/fuzz_coverage.sh [CORPUS_ROOT]
#
# CORPUS_ROOT holds one directory per target (default fuzz/corpus, the
# seeds; give the corpora a long run grew, e.g. build-fuzz/corpus-out).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
corpora=${1:-fuzz/corpus}
build=build-cov
jobs=${JOBS:-2}

cmake -S . -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Debug -DQSLAVE_BUILD_FUZZ=ON -DQSLAVE_FUZZ_COVERAGE=ON \
  -DQSLAVE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$jobs" --target fuzz_all >/dev/null

profiles="$root/$build/profiles"
rm -rf "$profiles"
mkdir -p "$profiles"
objects=()
for bin in "$build"/fuzz/fuzz_*; do
  [ -x "$bin" ] || continue
  t=$(basename "$bin")
  objects+=(-object "$bin")
  [ -d "$corpora/$t" ] || continue
  LLVM_PROFILE_FILE="$profiles/$t-%p.profraw" \
    "$bin" -runs=0 -close_fd_mask=3 "$corpora/$t" >/dev/null 2>&1 || true
done
for lib in "$build"/src/libqslave.so "$build"/refhost/qdb/libqdb.so; do
  objects+=(-object "$lib")
done
llvm-profdata-14 merge -sparse "$profiles"/*.profraw -o "$profiles/all.profdata"
llvm-cov-14 report "${objects[@]:1}" -instr-profile="$profiles/all.profdata" \
  "$root/src" "$root/refhost/qdb"
