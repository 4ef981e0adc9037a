#!/usr/bin/env bash
# The large genomic data set of the benchmarks: a pedigree of 500,000 animals, 20,000 of them
# genotyped for 50,000 SNPs (25 chromosomes of 2,000), with the planted faults listed in
# gsim.truth. Writes gsim.snp, gsim.snp_XrefID, gsim.map, gsim.ped and gsim.truth (about 1 GB)
# into the directory given, and prints the elapsed time and peak memory of the simulation.
#
#   bench/genomic/make_data.sh <directory> [more genosim options, e.g. --real 4 --seed 7]
#
# GENOSIM names the program (default: build/bin/genosim of a Release build, built when absent).
set -euo pipefail
cd "$(dirname "$0")/../.."
if [ $# -lt 1 ]; then
  echo "usage: $0 <directory> [genosim options]" >&2
  exit 2
fi
DIR=$1
shift
GENOSIM=${GENOSIM:-build/bin/genosim}
if [ ! -x "$GENOSIM" ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release > /dev/null
  cmake --build build --target genosim
fi
GENOSIM=$(realpath "$GENOSIM")
mkdir -p "$DIR"
cd "$DIR"
TIME=()
[ -x /usr/bin/time ] && TIME=(/usr/bin/time -f "genosim: %e s elapsed, %M KB peak memory")
"${TIME[@]}" "$GENOSIM" --animals 500000 --genotyped 20000 --chromosomes 25 --snps 2000 --seed 1 \
  --prefix gsim "$@"
