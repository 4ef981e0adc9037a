// Small dense matrices for the inversion tests: built from rows, and a plain product.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "dense/dense.hpp"

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

}  // namespace dense_test
