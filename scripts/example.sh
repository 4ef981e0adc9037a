#!/usr/bin/env bash
# Builds mmekit in release mode and runs regcov on the bundled example.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target regcov
echo "--- regcov dialogue (answers from examples/regcov.answers)"
build/bin/regcov < examples/regcov.answers
echo "--- first lines of build/example_covariates.txt"
head -n 5 build/example_covariates.txt
