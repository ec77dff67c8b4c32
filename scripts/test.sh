#!/usr/bin/env bash
# Builds everything and runs every test. Usage: scripts/test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
bash scripts/deps.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" -j"$(nproc)" --output-on-failure
