#!/bin/sh
# Builds and runs the ordering benchmark of the supernodal solver with its peers:
# SuiteSparse AMD (installed from Debian if missing) and METIS called directly.
# Usage: bench/skelda/run.sh [build-dir] [extra benchmark arguments]
set -e
src=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-/tmp/build-skelda-bench}
[ $# -gt 0 ] && shift
if [ ! -f /usr/include/suitesparse/amd.h ]; then
  sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo
  # A stale package list makes the install fail: update it and try once more.
  $sudo apt-get install -y --no-install-recommends libsuitesparse-dev ||
    { $sudo apt-get update && $sudo apt-get install -y --no-install-recommends libsuitesparse-dev; }
fi
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMMEKIT_TESTS=OFF -DMMEKIT_BENCH=ON
cmake --build "$build" -j2 --target bench_skelda_ordering
cd "$build"
./bin/bench_skelda_ordering "$@"
