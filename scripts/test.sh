#!/usr/bin/env bash
# Builds the tests under AddressSanitizer and UndefinedBehaviorSanitizer and runs them all; then
# builds the release tree (tool and benchmarks) so that nothing there is left broken.
set -euo pipefail
cd "$(dirname "$0")/.."
# Besides the build's packages, the readers of the files the library writes for other programs,
# used by the tests only: Graphviz dot for the tree files, netpbm for the pictures.
bash scripts/setup.sh graphviz netpbm
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
