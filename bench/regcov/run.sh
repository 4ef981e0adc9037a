#!/usr/bin/env bash
# Throughput of regcov against awk '{$1=$1; print}' on the same generated data file, and the
# peak memory of regcov for two file sizes (it streams: memory must not grow with the file).
# The two run interleaved, round by round (regcov, awk, regcov, awk, ...), REPEAT rounds (at
# least 3); the best wall time and the best CPU time of each are kept, and the load average is
# printed at the start and at the end of the timed rounds.
#
#   bench/regcov/run.sh [regcov binary] [records] [work dir]
#
# Defaults: build/bin/regcov (a Release build), 1000000 records, a fresh temporary directory.
# The file has 6 columns (animal, herd, days in milk, age in months, yield, fat %); regcov
# inserts 4 polynomials after column 3 (5..305) and 3 after column 4 (20..120).
set -euo pipefail
REGCOV=$(realpath "${1:-build/bin/regcov}")
N=${2:-1000000}
WORK=${3:-$(mktemp -d)}
AWK=${AWK:-awk}
REPEAT=${REPEAT:-5}
mkdir -p "$WORK"
cd "$WORK"

generate() {  # generate <records> <file>
  "$AWK" -v n="$1" 'BEGIN {
    srand(20261122);
    for (i = 1; i <= n; i++) {
      animal = 100000 + int(i / 10); herd = 1 + int(rand() * 400);
      dim = 1 + int(rand() * 330); age = 20 + int(rand() * 110);
      printf "%d %d %d %d %.1f %.2f\n", animal, herd, dim, age, 5 + rand() * 40, 2.8 + rand() * 2.5;
    }
  }' > "$2"
}

answers() {  # answers <input> <output>
  printf '%s\n%s\n3 4\n5 305 4\n20 120 3\n' "$1" "$2"
}

# timed <command...>: "wall cpu" in seconds (CPU = user + system) of one run, to the
# millisecond (the time keyword of bash; /usr/bin/time gives only hundredths).
timed() {
  local TIMEFORMAT='%3R %3U %3S'
  { time "$@" 2> run.err; } 2> run.time
  "$AWK" '{ printf "%.3f %.3f\n", $1, $2 + $3 }' run.time
}

# min <a> <b>: the smaller of two numbers, b when a is empty.
min() { "$AWK" -v a="$1" -v b="$2" 'BEGIN { print (a != "" && a + 0 < b + 0) ? a : b }'; }

run_regcov() { "$REGCOV" < regcov.answers > regcov.log; }
run_awk() { "$AWK" '{$1=$1; print}' data.txt > awk.out; }

generate "$N" data.txt
answers data.txt regcov.out > regcov.answers
BYTES=$(stat -c %s data.txt)
export -f run_regcov run_awk
export REGCOV AWK
((REPEAT >= 3)) || REPEAT=3
LOAD_START=$(cut -d' ' -f1-3 /proc/loadavg)
STARTED=$(date '+%Y-%m-%d %H:%M:%S')
W_REGCOV="" C_REGCOV="" W_AWK="" C_AWK="" ROUNDS=""
for ((r = 1; r <= REPEAT; r++)); do
  read -r w c < <(timed bash -c run_regcov)
  W_REGCOV=$(min "$W_REGCOV" "$w"); C_REGCOV=$(min "$C_REGCOV" "$c")
  ROUNDS+="round $r: regcov CPU $c s (wall $w s)"
  read -r w c < <(timed bash -c run_awk)
  W_AWK=$(min "$W_AWK" "$w"); C_AWK=$(min "$C_AWK" "$c")
  ROUNDS+=", awk CPU $c s (wall $w s)"$'\n'
done
LOAD_END=$(cut -d' ' -f1-3 /proc/loadavg)
grep -q "# records = $N" regcov.log || { echo "regcov did not report $N records"; cat regcov.log; exit 1; }

# Peak memory for the full file and for a tenth of it.
N_SMALL=$((N / 10))
generate "$N_SMALL" small.txt
rss() {  # rss <input>: max resident set size of regcov in kB
  answers "$1" rss.out > rss.answers
  /usr/bin/time -f '%M' -o rss.time "$REGCOV" < rss.answers > /dev/null
  cat rss.time
}
RSS_BIG=$(rss data.txt)
RSS_SMALL=$(rss small.txt)

"$AWK" -v n="$N" -v b="$BYTES" -v ob="$(stat -c %s regcov.out)" -v wr="$W_REGCOV" -v cr="$C_REGCOV" \
  -v wa="$W_AWK" -v ca="$C_AWK" -v rb="$RSS_BIG" -v rs="$RSS_SMALL" -v ns="$N_SMALL" -v awkname="$AWK" 'BEGIN {
  printf "records              %d (input %.1f MB, regcov output %.1f MB), best of %d interleaved rounds\n", n, b / 1e6, ob / 1e6, '"$REPEAT"';
  printf "                     CPU s   records/s (CPU)  MB/s in (CPU)   wall s\n";
  printf "regcov               %5.3f   %14.0f   %13.1f   %6.3f\n", cr, n / cr, b / 1e6 / cr, wr;
  printf "%-20s %5.3f   %14.0f   %13.1f   %6.3f\n", awkname " {$1=$1;print}", ca, n / ca, b / 1e6 / ca, wa;
  printf "ratio regcov/awk     CPU %.3f, wall %.3f\n", cr / ca, wr / wa;
  printf "max RSS regcov       %d kB for %d records, %d kB for %d records\n", rb, n, rs, ns;
}'
printf 'started %s, load average %s at the start of the rounds, %s at the end\n%s' "$STARTED" "$LOAD_START" "$LOAD_END" "$ROUNDS"
