#!/usr/bin/env bash
# Builds the benchmarks in Release and runs every comparison with a peer of docs/benchmarks.md,
# one program after the other, keeping the output of each in a log directory.
#
#   bench/run_all.sh [build dir] [log dir] [part...]
#
# Parts (default: all but torvex): sparse dense format regcov orderings orderings300k torvex.
# orderings300k is the 300,000-equation MME on its own: it takes the longest (tens of minutes
# on a loaded 2-core machine).
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$src/build-bench}")
logs=$(realpath -m "${2:-/tmp/mmekit-bench-logs/$(date +%Y%m%d-%H%M%S)}")
shift $(($# < 2 ? $# : 2))
parts=("$@")
((${#parts[@]})) || parts=(sparse dense format regcov orderings orderings300k)
for part in "${parts[@]}"; do
  case $part in
    sparse | dense | format | regcov | orderings | orderings300k | torvex) ;;
    *) echo "unknown part $part (parts: sparse dense format regcov orderings orderings300k torvex)" >&2; exit 2 ;;
  esac
done

if [ ! -f /usr/include/suitesparse/amd.h ]; then
  sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo
  # A stale package list makes the install fail: update it and try once more.
  $sudo apt-get install -y --no-install-recommends libsuitesparse-dev ||
    { $sudo apt-get update && $sudo apt-get install -y --no-install-recommends libsuitesparse-dev; }
fi
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMMEKIT_TESTS=OFF -DMMEKIT_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target bench_sparse bench_dense_ginv2 bench_support_format bench_skelda_ordering \
  bench_torvex regcov
mkdir -p "$logs"
echo "logs in $logs"

for part in "${parts[@]}"; do
  echo "$part: started $(date '+%Y-%m-%d %H:%M:%S'), load average $(cut -d' ' -f1-3 /proc/loadavg)"
  case $part in
    sparse) "$build/bin/bench_sparse" ;;
    dense) OPENBLAS_NUM_THREADS=1 "$build/bin/bench_dense_ginv2" --benchmark_filter=vs_lapack ;;
    format) "$build/bin/bench_support_format" ;;
    regcov) "$src/bench/regcov/run.sh" "$build/bin/regcov" 1000000 ;;
    orderings) "$build/bin/bench_skelda_ordering" --benchmark_filter='mme50k|grid' ;;
    orderings300k) "$build/bin/bench_skelda_ordering" --benchmark_filter=mme300k ;;  # MMEKIT_BENCH_METHODS applies
    torvex) (cd "$build" && ./bin/bench_torvex) ;;
  esac > "$logs/$part.log" 2>&1
  echo "$part: ended $(date '+%Y-%m-%d %H:%M:%S'), load average $(cut -d' ' -f1-3 /proc/loadavg)"
done
