// Small dense matrices for the dense tests: built from rows, plain products.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "mmekit/dense/dense.hpp"
#include "mmekit/support/array.hpp"

namespace dense_test {

// The square matrix whose rows are listed.
inline mmekit::densem from_rows(std::initializer_list<std::initializer_list<double>> rows) {
  const auto n = static_cast<std::int64_t>(rows.size());
  mmekit::densem a(n);
  std::int64_t i = 1;
  for (const auto& r : rows) {
    std::int64_t j = 1;
    for (double v : r) a(i, j++) = v;
    ++i;
  }
  return a;
}

// A B, element by element.
inline mmekit::densem product(const mmekit::densem& a, const mmekit::densem& b) {
  const std::int64_t n = a.order();
  mmekit::densem c(n);
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t k = 1; k <= n; ++k)
      for (std::int64_t i = 1; i <= n; ++i) c(i, j) += a(i, k) * b(k, j);
  return c;
}

// B B^T of a 1-based matrix B: the order is the rows of B, each element summed over the
// columns in turn.
inline mmekit::densem rows_times_transpose(const mmekit::Array2<double>& b) {
  const std::int64_t n = b.rows(), cols = b.cols();
  mmekit::densem a(n);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) {
      double s = 0;
      for (std::int64_t c = 1; c <= cols; ++c) s += b(i, c) * b(j, c);
      a(i, j) = s;
    }
  return a;
}

}  // namespace dense_test
