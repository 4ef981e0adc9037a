#!/usr/bin/env bash
# Non-blank lines of the library (src/) and of its tests (tests/), per folder, and the share of
# the tests: the measure of how lean the tests are.
set -euo pipefail
cd "$(dirname "$0")/.."
count() { find "$1" \( -name '*.cpp' -o -name '*.hpp' \) -print0 | xargs -0 -r cat | grep -cv '^[[:space:]]*$' || true; }
printf '%-10s %7s %7s\n' folder src tests
for d in src/*/; do
  f=$(basename "$d")
  t=0
  [ -d "tests/$f" ] && t=$(count "tests/$f")
  printf '%-10s %7d %7d\n' "$f" "$(count "$d")" "$t"
done
s=$(count src)
t=$(count tests)
printf '%-10s %7d %7d\n' all "$s" "$t"
awk -v s="$s" -v t="$t" 'BEGIN { printf "tests are %.1f%% of the library\n", 100 * t / s }'
