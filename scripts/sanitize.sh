#!/usr/bin/env bash
# Builds the library, the reference host and every test with gcc's address
# and undefined-behaviour sanitizers (QSLAVE_SANITIZE=ON) in build-asan and
# runs the whole ctest suite there. Leaks fail the run, and so does the
# first undefined-behaviour report.
#
# Usage: scripts/sanitize.sh [BUILD_DIR]      (default build-asan)
# JOBS sets the parallelism of the build and of ctest (default 1: the
# machine is shared).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-asan}
jobs=${JOBS:-1}

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}

# Line tables (-g1) are all a sanitizer's report needs (file and line of
# each frame); full debug information made the build a tenth slower.
cmake -S . -B "$build" \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG=-g1 -DCMAKE_CXX_FLAGS_DEBUG=-g1 \
  -DQSLAVE_SANITIZE=ON -DQSLAVE_BUILD_TESTS=ON -DQSLAVE_TEST_WHOLE_PROGRAMS=ON
cmake --build "$build" -j"$jobs"
# The install tests build a host program against the installed libraries
# with the plain compiler flags; sanitized libraries cannot be loaded into a
# program without the sanitizer runtime, so they (and the package test,
# which does the same with the unpacked packages, and the demo, which
# installs the tool) only run in normal builds.
# The system-call fault sweep of the tool and the thousand kills test what
# reaches the disk, the same in every build; they run hundreds of processes
# and stay in the plain run.
# Each test program runs all its cases in one process here (a sanitized
# process takes about a fifth of a second to start, which over some 1,700
# cases was half of the tests' run); the plain run keeps a process per
# case. A leak or an undefined-behaviour report still fails the program
# that has it.
export GTEST_FILTER=${GTEST_FILTER:--Durability.AThousandKillsLoseNoReportedDispense}
ctest --test-dir "$build" -j"$jobs" --output-on-failure \
  -E '^(install|package|demo)\.|^cli\.test_cli_syscall_faults$'
