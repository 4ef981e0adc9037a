#!/usr/bin/env bash
# Reading a genotype file into M (default 20,000 animals x 50,000 SNPs, 1 GB of text) against
# `wc -l` on the same file and against PLINK 1.9 reading the same genotypes from its own text
# form (.ped/.map) with --make-bed.
#
#   bench/genomic/run_read.sh [build dir] [work dir] [animals] [snps]
#
# Defaults: build (a Release tree, configured and built here), /tmp/mmekit-genomic-read,
# 20000, 50000. The files take about 1 GB (genotypes) and 4 GB (.ped) in the work directory.
# All reads are warm: each file is read once before the timed runs. wc -l runs twice and its
# second time is the reference; ours runs REPEAT times (default 3) and the best wall time is
# kept, with the peak memory of that run (/usr/bin/time -v). The load average is printed, since
# the machine is shared. PLINK 1.9 (Debian package plink1.9) is installed when missing; it is a
# benchmark-only tool, and its comparison is skipped with a message when it cannot be had.
set -euo pipefail
src=$(cd "$(dirname "$0")/../.." && pwd)
build=$(realpath -m "${1:-$src/build}")
work=$(realpath -m "${2:-/tmp/mmekit-genomic-read}")
N=${3:-20000}
S=${4:-50000}
REPEAT=${REPEAT:-3}

cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMMEKIT_TESTS=OFF -DMMEKIT_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target bench_genomic_read >/dev/null
bin="$build/bin/bench_genomic_read"
mkdir -p "$work"
cd "$work"

echo "load average at start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "writing geno.txt ($N x $S) and geno.txt_XrefID"
"$bin" write geno.txt "$N" "$S" 20261123
ls -l geno.txt | awk '{ printf "geno.txt: %d bytes\n", $5 }'

# seconds <command...>: wall seconds of one run, to the millisecond; the output is discarded.
seconds() {
  local TIMEFORMAT='%3R'
  { time "$@" >/dev/null 2>&1; } 2>&1
}

wc1=$(seconds wc -l geno.txt)
wc2=$(seconds wc -l geno.txt)
echo "wc -l: $wc1 s (first), $wc2 s (warm)"

# The floor of any reader that keeps M: fresh memory for it, every byte written once.
touch_best=""
for r in $(seq "$REPEAT"); do
  t=$("$bin" touch "$N" "$S" | awk '{ print $(NF - 1) }')
  if [ -z "$touch_best" ] || awk -v a="$t" -v b="$touch_best" 'BEGIN { exit !(a < b) }'; then touch_best=$t; fi
done
echo "fresh M written once (the floor of storing it): best $touch_best s"

best="" best_rss=""
for r in $(seq "$REPEAT"); do
  /usr/bin/time -v "$bin" read geno.txt > ours.out 2> ours.time
  wall=$(awk '/Elapsed \(wall clock\)/ { n = split($NF, t, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + t[i]; print s }' ours.time)
  rss=$(awk '/Maximum resident set size/ { print $NF }' ours.time)
  inside=$(awk '/^read / { print $(NF - 1) }' ours.out)
  echo "ours, round $r: $wall s for the process, $inside s reading, peak $((rss / 1024)) MiB"
  if [ -z "$best" ] || awk -v a="$wall" -v b="$best" 'BEGIN { exit !(a < b) }'; then best=$wall best_rss=$rss best_inside=$inside; fi
done
grep -E 'Number of SNPs|Number of Genotyped animals' ours.out || true
awk -v o="$best" -v i="$best_inside" -v w="$wc2" -v m="$best_rss" 'BEGIN {
  printf "ours best: %.3f s process (%.2f x wc -l), %.3f s reading (%.2f x wc -l), peak %d MiB\n", o, o / w, i, i / w, m / 1024 }'
awk -v i="$best_inside" -v t="$touch_best" -v w="$wc2" 'BEGIN {
  printf "ours reading less the floor of storing M: %.3f s (%.2f x wc -l)\n", i - t, (i - t) / w }'

if ! command -v plink1.9 >/dev/null 2>&1; then
  sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo
  $sudo apt-get install -y --no-install-recommends plink1.9 >/dev/null 2>&1 ||
    { $sudo apt-get update >/dev/null 2>&1 && $sudo apt-get install -y --no-install-recommends plink1.9 >/dev/null 2>&1; } || true
fi
if command -v plink1.9 >/dev/null 2>&1; then
  echo "writing plink_in.ped / plink_in.map from geno.txt"
  "$bin" plink geno.txt plink_in
  cat plink_in.ped > /dev/null  # warm
  /usr/bin/time -v plink1.9 --file plink_in --make-bed --threads 1 --out plink_out > plink.out 2> plink.time || {
    echo "plink1.9 failed:"; tail -5 plink.out; }
  pw=$(awk '/Elapsed \(wall clock\)/ { n = split($NF, t, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + t[i]; print s }' plink.time)
  prss=$(awk '/Maximum resident set size/ { print $NF }' plink.time)
  awk -v p="$pw" -v w="$wc2" -v o="$best" -v m="$prss" 'BEGIN {
    printf "plink1.9 --file --make-bed (1 thread): %.3f s (%.2f x wc -l, %.2f x ours), peak %d MiB\n", p, p / w, p / o, m / 1024 }'
else
  echo "plink1.9 not available: its comparison is skipped"
fi
echo "load average at end: $(cut -d' ' -f1-3 /proc/loadavg)"
