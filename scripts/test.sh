#!/usr/bin/env bash
# Builds the tests under AddressSanitizer and UndefinedBehaviorSanitizer and runs them all; then
# builds the release tree (tool and benchmarks) so that nothing there is left broken.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# Readers of the files the library writes for other programs, used by the tests only: Graphviz
# dot for the tree files, netpbm's xbmtopbm and xpmtoppm for the pictures.
test_packages=(graphviz netpbm)
missing=()
for p in "${test_packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null ||
    { $sudo apt-get update -q </dev/null && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null; }
fi
jobs=$(nproc)
cmake -S . -B build-test -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMMEKIT_SANITIZE=ON \
      -DMMEKIT_BENCH=OFF >/dev/null
cmake --build build-test -j "$jobs"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$jobs"
cd build-test
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --output-on-failure -j "$jobs"
cd ..
bash scripts/check-install.sh
