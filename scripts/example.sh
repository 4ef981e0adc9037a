#!/usr/bin/env bash
# Builds mmekit in release mode (library, programs, tests and benchmarks) and runs the programs
# on the bundled examples: regcov on examples/regcov_data.txt and the MME example program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$(nproc)"
echo "--- regcov dialogue (answers from examples/regcov.answers)"
build/bin/regcov < examples/regcov.answers
echo "--- first lines of build/example_covariates.txt"
head -n 5 build/example_covariates.txt
echo "--- mme_example: an animal model solved by Gauss-Seidel, PCG and the sparse Cholesky package"
(cd build && bin/mme_example)
