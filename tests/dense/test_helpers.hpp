// Small dense matrices for the dense and solver tests: built from rows, and positive
// semidefinite matrices with chosen dependent rows.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <random>
#include <set>

#include "mmekit/dense/dense.hpp"
#include "mmekit/support/array.hpp"

namespace dense_test {

// The square matrix whose rows are listed.
template <class T = double>
mmekit::densem_t<T> from_rows(std::initializer_list<std::initializer_list<double>> rows) {
  mmekit::densem_t<T> a(static_cast<std::int64_t>(rows.size()));
  std::int64_t i = 1;
  for (const auto& r : rows) {
    std::int64_t j = 1;
    for (double v : r) a(i, j++) = static_cast<T>(v);
    ++i;
  }
  return a;
}

// B B^T of order n, where each row of B listed in `dependent` is a random combination of the
// rows before it (the zero row when it is the first) and every other row is random: exactly the
// listed rows of the result depend on earlier ones, and its rank is n - |dependent|.
inline mmekit::densem with_dependent_rows(std::int64_t n, const std::set<std::int64_t>& dependent, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  const std::int64_t cols = n + 3;
  mmekit::Array2<double> b(n, cols);
  for (std::int64_t i = 1; i <= n; ++i) {
    if (dependent.count(i)) {
      for (std::int64_t k = 1; k < i; ++k) {
        const double w = u(gen);
        for (std::int64_t c = 1; c <= cols; ++c) b(i, c) += w * b(k, c);
      }
    } else {
      for (std::int64_t c = 1; c <= cols; ++c) b(i, c) = u(gen);
    }
  }
  mmekit::densem a(n);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j)
      for (std::int64_t c = 1; c <= cols; ++c) a(i, j) += b(i, c) * b(j, c);
  return a;
}

}  // namespace dense_test
