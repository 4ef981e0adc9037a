// Random symmetric positive definite matrices for the tests of factorisations, inverses and
// solvers.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>

#include "mmekit/dense/dense.hpp"

namespace mmekit::test {

// A sparse symmetric matrix of order n, each off-diagonal pair present with probability
// `density` and uniform in (-1, 1), made positive definite by a diagonal that exceeds the sum
// of the absolute values of its row by 0.5 to 1.5. The same seed gives the same matrix.
inline densem random_spd(std::int64_t n, double density, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  densem d(n, 0.0);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i + 1; j <= n; ++j)
      if (u(g) < density) d(i, j) = d(j, i) = u(g) * 2.0 - 1.0;
  for (std::int64_t i = 1; i <= n; ++i) {
    double s = 0;
    for (std::int64_t j = 1; j <= n; ++j)
      if (j != i) s += std::abs(d(i, j));
    d(i, i) = s + 0.5 + u(g);
  }
  return d;
}

}  // namespace mmekit::test
