#!/bin/sh
# Builds and runs the sparse-inversion benchmark of the supernodal solver (see spinv_bench.cpp).
# Usage: bench/skelda/run_spinv.sh [build-dir] [extra benchmark arguments]
# Environment: MMEKIT_SPINV_RECORDS, MMEKIT_BENCH_ROUNDS.
set -e
src=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-/tmp/build-skelda-bench}
[ $# -gt 0 ] && shift
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMMEKIT_TESTS=OFF -DMMEKIT_BENCH=ON
cmake --build "$build" -j2 --target bench_skelda_spinv
cd "$build"
./bin/bench_skelda_spinv "$@"
