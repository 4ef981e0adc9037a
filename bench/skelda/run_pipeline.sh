#!/bin/sh
# Builds and runs the supernodal solver's pipeline against CHOLMOD (SuiteSparse, installed from
# Debian if missing) on the generator's MME.
# Usage: bench/skelda/run_pipeline.sh [build-dir] [extra benchmark arguments]
# Environment: MMEKIT_PIPELINE_RECORDS, MMEKIT_PIPELINE_THREADS, MMEKIT_BENCH_ROUNDS (see
# pipeline_bench.cpp).
set -e
src=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-/tmp/build-skelda-bench}
[ $# -gt 0 ] && shift
if [ ! -f /usr/include/suitesparse/cholmod.h ]; then
  sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo
  $sudo apt-get install -y --no-install-recommends libsuitesparse-dev ||
    { $sudo apt-get update && $sudo apt-get install -y --no-install-recommends libsuitesparse-dev; }
fi
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMMEKIT_TESTS=OFF -DMMEKIT_BENCH=ON
cmake --build "$build" -j2 --target bench_skelda_pipeline
cd "$build"
./bin/bench_skelda_pipeline "$@"
