// Shared pieces of the sparse-matrix and solver tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"

namespace sparse_test {

// Starts and ends every test with the package parameters at their defaults.
struct FreshParameters : ::testing::Test {
  void SetUp() override { mmekit::reset_sparse_parameters(); }
  void TearDown() override { mmekit::reset_sparse_parameters(); }
};

// A hash matrix of order n ('u' upper, 'f' full storage) made by adding the listed elements
// (row, column, value) in turn.
inline mmekit::sparse_hashm hash_with(std::int32_t n, std::initializer_list<std::tuple<int, int, double>> elements,
                                      char storage = 'u') {
  mmekit::sparse_hashm h;
  mmekit::init_sparse_hashm(h, n, std::nullopt, storage);
  for (const auto& [i, j, v] : elements) mmekit::addm_sparse_hashm(v, i, j, h);
  return h;
}

// A random sparse symmetric matrix of order n, accumulated at once into an upper-stored hash
// matrix `h` and into a dense matrix `d` with both triangles. Each upper position drawn is
// added once or twice, some values are zero, and all are exact in binary. Rows 1, 1 + step,
// 1 + 2 step, ... get a diagonal of 1 + twice the absolute sum of their off-diagonal elements
// (all rows with step 1: diagonally dominant); the other rows have no diagonal element.
// `pattern` holds the upper positions added.
struct RandomSymmetric {
  mmekit::densem d;
  mmekit::sparse_hashm h;
  std::set<std::pair<int, int>> pattern;

  RandomSymmetric(int n, unsigned seed, int diagonal_step = 1) : d(n, 0.0) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> idx(1, n), val(-40, 40);
    mmekit::init_sparse_hashm(h, n);
    std::vector<double> rowsum(static_cast<std::size_t>(n) + 1, 0.0);
    auto add = [&](double v, int i, int j) {
      mmekit::addm_sparse_hashm(v, i, j, h);
      d(i, j) += v;
      if (i != j) {
        d(j, i) += v;
        rowsum[i] += std::abs(v);
        rowsum[j] += std::abs(v);
      }
      pattern.insert({i, j});
    };
    for (int k = 0; k < 4 * n; ++k) {
      int i = idx(gen), j = idx(gen);
      if (i == j) continue;
      if (j < i) std::swap(i, j);
      add(k % 7 == 0 ? 0.0 : val(gen) / 4.0, i, j);
      if (k % 3 == 0) add(0.5, i, j);
    }
    if (diagonal_step > 0)
      for (int i = 1; i <= n; i += diagonal_step) add(1.0 + 2.0 * rowsum[i], i, i);
  }
  // The upper row form, or the full one.
  mmekit::sparse_ija ija(bool full = false) const {
    mmekit::sparse_ija a;
    if (full) mmekit::CONVERT_HASH_IJA_GENERAL(a, h, 1);
    else mmekit::CONVERT_HASH_IJA(a, h);
    return a;
  }
};

}  // namespace sparse_test
