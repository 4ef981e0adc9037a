#!/usr/bin/env bash
# Runs hand-made faults of the library against the tests and counts how many the tests catch.
#
#   scripts/mutants.sh [--rev GIT-REV] [--out FILE] [--only ID...] [--check]
#
# The mutants are the lines of mutants.txt beside this script (its header gives the format).
# All work happens in a scratch copy under /tmp, never in the caller's tree: a detached
# worktree of GIT-REV, or without --rev a copy of the current working tree (tracked and
# untracked files that are not ignored). One build is configured there (RelWithDebInfo, index
# checks on, no sanitizers), built and tested unmutated (every test must pass, else the run
# stops), then each mutant in turn is applied, built and run against the whole test suite, and
# its file restored. The outcome of a mutant is
#   caught       a test failed, crashed or timed out
#   survived     every test passed
#   stillborn    the mutant does not compile (not counted as caught)
#   not-applied  its file is not found exactly once under src/, or its original text does not
#                occur exactly once in that file
# One line per mutant and a closing count go to standard output and, with --out, to FILE.
# --only runs the mutants of those ids alone; --check only tells which mutants apply to the
# tree, without building anything.
set -euo pipefail

usage() {
  sed -n '2,4p' "$0" | sed 's/^# \{0,1\}//'
}

die() {
  echo "mutants: $*" >&2
  exit 1
}

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
table=$here/mutants.txt
repo=$(git -C "$here" rev-parse --show-toplevel)

rev=""
out=""
check=0
only=()
while [ $# -gt 0 ]; do
  case "$1" in
    --rev)
      [ $# -ge 2 ] || die "--rev needs a revision"
      rev=$2
      shift 2
      ;;
    --out)
      [ $# -ge 2 ] || die "--out needs a file"
      out=$(realpath -m -- "$2")
      shift 2
      ;;
    --only)
      shift
      while [ $# -gt 0 ] && [[ $1 != --* ]]; do
        only+=("$1")
        shift
      done
      [ ${#only[@]} -gt 0 ] || die "--only needs at least one id"
      ;;
    --check)
      check=1
      shift
      ;;
    -h | --help)
      usage
      exit 0
      ;;
    *)
      usage >&2
      exit 2
      ;;
  esac
done

# ---- the table ------------------------------------------------------------------------------

sep=' ||| '
ids=() files=() olds=() news=() descs=()
lineno=0
while IFS= read -r line || [ -n "$line" ]; do
  lineno=$((lineno + 1))
  [[ -z ${line//[[:space:]]/} || $line == \#* ]] && continue
  rest=$line
  fields=()
  while [[ $rest == *"$sep"* ]]; do
    fields+=("${rest%%"$sep"*}")
    rest=${rest#*"$sep"}
  done
  fields+=("$rest")
  [ ${#fields[@]} -eq 5 ] || die "$table:$lineno: 5 fields expected, ${#fields[@]} found"
  [ -n "${fields[0]}" ] && [ -n "${fields[1]}" ] && [ -n "${fields[2]}" ] ||
    die "$table:$lineno: empty id, file or original text"
  [ "${fields[2]}" != "${fields[3]}" ] || die "$table:$lineno: the replacement is the original"
  for id in "${ids[@]}"; do
    [ "$id" != "${fields[0]}" ] || die "$table:$lineno: id ${fields[0]} used twice"
  done
  ids+=("${fields[0]}")
  files+=("${fields[1]}")
  olds+=("${fields[2]}")
  news+=("${fields[3]}")
  descs+=("${fields[4]}")
done <"$table"
[ ${#ids[@]} -gt 0 ] || die "no mutants in $table"

selected=()
if [ ${#only[@]} -gt 0 ]; then
  for want in "${only[@]}"; do
    found=""
    for k in "${!ids[@]}"; do
      if [ "${ids[$k]}" = "$want" ]; then
        found=$k
        break
      fi
    done
    [ -n "$found" ] || die "no mutant with id $want"
    selected+=("$found")
  done
else
  selected=("${!ids[@]}")
fi

# ---- the scratch tree -----------------------------------------------------------------------

scratch=$(mktemp -d /tmp/mmekit-mutants.XXXXXX)
src=$scratch/tree
build=$scratch/build
worktree=0
cleanup() {
  if [ "$worktree" = 1 ]; then
    git -C "$repo" worktree remove --force "$src" >/dev/null 2>&1 || true
  fi
  rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

if [ -n "$rev" ]; then
  sha=$(git -C "$repo" rev-parse --verify --quiet "$rev^{commit}") || die "unknown revision $rev"
  git -C "$repo" worktree add --detach --quiet "$src" "$sha" >/dev/null
  worktree=1
  git -C "$src" ls-files src >"$scratch/files"
  origin="revision $rev ($(git -C "$repo" rev-parse --short "$sha"))"
else
  mkdir -p "$src"
  (
    cd "$repo"
    git ls-files -z -co --exclude-standard | while IFS= read -r -d '' f; do
      if [ -e "$f" ] || [ -L "$f" ]; then printf '%s\0' "$f"; fi
    done
  ) >"$scratch/copied"
  tar -C "$repo" --null -T "$scratch/copied" -cf - | tar -C "$src" -xf -
  tr '\0' '\n' <"$scratch/copied" | grep '^src/' >"$scratch/files" || true
  origin="working tree at $(git -C "$repo" rev-parse --short HEAD) with its local changes"
fi

# The one file under src/ of that name, or nothing.
locate() {
  local hits
  # A bare name matches the last part of a path; a name with a folder (skelda/solve.cpp) matches
  # the tail of a path, for names that occur in more than one folder.
  hits=$(awk -v name="$1" '{ n = split($0, part, "/"); if (part[n] == name || substr($0, length($0) - length(name)) == "/" name) print }' "$scratch/files")
  if [ -n "$hits" ] && [ "$(printf '%s\n' "$hits" | wc -l)" -eq 1 ]; then
    printf '%s\n' "$hits"
  fi
}

# replace FILE OLD NEW [dry]: replaces the one occurrence of OLD; status 3 when OLD does not
# occur exactly once (the file is then left as it was).
replace() {
  perl -e '
    my ($file, $old, $new, $dry) = @ARGV;
    open(my $in, "<", $file) or die "$file: $!\n";
    my $text = do { local $/; <$in> };
    close $in;
    my ($count, $at, $pos) = (0, -1, 0);
    while (($pos = index($text, $old, $pos)) >= 0) { ++$count; $at = $pos; ++$pos; }
    exit 3 unless $count == 1;
    exit 0 if $dry;
    substr($text, $at, length $old) = $new;
    open(my $out, ">", $file) or die "$file: $!\n";
    print $out $text;
    close $out or die "$file: $!\n";
  ' "$@"
}

if [ "$check" = 1 ]; then
  echo "# mutants of the $origin"
  applies=0
  for k in "${selected[@]}"; do
    path=$(locate "${files[$k]}")
    status=not-applied
    if [ -n "$path" ] && replace "$src/$path" "${olds[$k]}" "${news[$k]}" dry; then
      status=applies
      applies=$((applies + 1))
    fi
    printf '%-6s %-11s %s\n' "${ids[$k]}" "$status" "${path:-${files[$k]} (not found once under src/)}"
  done
  echo "$applies of ${#selected[@]} apply"
  exit 0
fi

# ---- build and baseline ---------------------------------------------------------------------

cmake_args=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMMEKIT_BOUNDS_CHECK=ON -DMMEKIT_BENCH=OFF
            -DMMEKIT_SANITIZE=OFF -DMMEKIT_FUZZ=OFF)
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_DIR=/work/.ccache
  # Paths below the scratch directory are hashed relative to it, so that files that are the
  # same in every run are found in the cache again.
  export CCACHE_BASEDIR=$scratch CCACHE_NOHASHDIR=1
  cmake_args+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi

build_tree() {
  nice -n 10 cmake --build "$build" -j 2 >"$1" 2>&1
}

# Runs the tests, each program in a clean scratch directory; extra arguments go to ctest.
run_tests() {
  local log=$1
  shift
  find "$build/testrun" -mindepth 2 -delete 2>/dev/null || true
  (cd "$build" && nice -n 10 ctest --timeout 120 "$@") >"$log" 2>&1
}

start=$SECONDS
echo "mutants: configuring and building the $origin in $scratch" >&2
nice -n 10 cmake -S "$src" -B "$build" "${cmake_args[@]}" >"$scratch/configure.log" 2>&1 || {
  tail -n 30 "$scratch/configure.log" >&2
  die "the unmutated tree does not configure"
}
build_tree "$scratch/build.log" || {
  grep -m 5 'error' "$scratch/build.log" >&2 || tail -n 30 "$scratch/build.log" >&2
  die "the unmutated tree does not build"
}
run_tests "$scratch/baseline.log" || {
  grep -A 30 'tests passed' "$scratch/baseline.log" >&2 || tail -n 30 "$scratch/baseline.log" >&2
  die "the unmutated tree fails its tests"
}
echo "mutants: baseline built and passing after $((SECONDS - start)) s; ${#selected[@]} mutants to run" >&2

# ---- the mutants ----------------------------------------------------------------------------

results=$scratch/results
report() {
  printf '%s\n' "$1" | tee -a "$results"
}
report "# mutants of the $origin"

caught=0 stillborn=0 skipped=0
for k in "${selected[@]}"; do
  id=${ids[$k]}
  t0=$SECONDS
  path=$(locate "${files[$k]}")
  status=not-applied
  if [ -n "$path" ]; then
    file=$src/$path
    cp "$file" "$scratch/original"
    if replace "$file" "${olds[$k]}" "${news[$k]}"; then
      if ! build_tree "$scratch/mutant-build.log"; then
        status=stillborn
        grep -m 1 'error:' "$scratch/mutant-build.log" >&2 || true
      elif [[ $path == *.cpp ]] && ! grep -q "/${path##*/}\.o" "$scratch/mutant-build.log"; then
        die "mutant $id: the build did not compile $path again"
      elif run_tests "$scratch/mutant-test.log" --stop-on-failure; then
        status=survived
      else
        status=caught
      fi
      # A copy, not a move with the old time: the build must see the file as changed again.
      cp "$scratch/original" "$file"
      cmp -s "$scratch/original" "$file" || die "could not restore $path"
    elif [ $? -ne 3 ]; then
      die "could not apply mutant $id to $path"
    fi
  fi
  case $status in
    caught) caught=$((caught + 1)) ;;
    stillborn) stillborn=$((stillborn + 1)) ;;
    not-applied) skipped=$((skipped + 1)) ;;
  esac
  report "$(printf '%-6s %-11s %s' "$id" "$status" "${descs[$k]}")"
  echo "mutants: $id took $((SECONDS - t0)) s" >&2
done
report "caught $caught of ${#selected[@]} ($stillborn stillborn, $skipped not applied)"
elapsed=$((SECONDS - start))
echo "mutants: run took $((elapsed / 60)) min $((elapsed % 60)) s" >&2

if [ -n "$out" ]; then
  mkdir -p "$(dirname "$out")"
  cp "$results" "$out"
fi
