// Dense references for the tests of the sparse Cholesky package.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "common/lapack_ref.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/ija.hpp"

namespace torvex_test {

// The upper row form of a dense matrix.
inline mmekit::sparse_ija to_ija(const mmekit::densem& d) {
  mmekit::sparse_ija m;
  mmekit::assign(m, d);
  return m;
}

// The inverse of the rows and columns in `keep` (1-based), zero in all others, and the
// log-determinant of that part.
inline mmekit::densem kept_inverse(const mmekit::densem& d, const std::vector<std::int64_t>& keep, double* logdet) {
  const auto m = static_cast<std::int64_t>(keep.size());
  mmekit::densem s(m), g(d.order(), 0.0);
  for (std::int64_t j = 1; j <= m; ++j)
    for (std::int64_t i = 1; i <= m; ++i) s(i, j) = d(keep[i - 1], keep[j - 1]);
  s = mmekit::test::lapack_spd_inverse(s, logdet);
  for (std::int64_t j = 1; j <= m; ++j)
    for (std::int64_t i = 1; i <= m; ++i) g(keep[i - 1], keep[j - 1]) = s(i, j);
  return g;
}

// Every stored element of an upper row form against the dense reference.
inline void expect_pattern_near(const mmekit::sparse_ija& m, const mmekit::densem& ref, double tol) {
  for (std::int32_t i = 1; i <= m.n; ++i)
    for (std::int32_t e = m.ia(i); e < m.ia(i + 1); ++e)
      EXPECT_NEAR(m.a(e), ref(i, m.ja(e)), tol) << i << " " << m.ja(e);
}

inline void expect_all_near(const mmekit::Array1<double>& x, const mmekit::Array1<double>& ref, double tol) {
  ASSERT_EQ(x.size(), ref.size());
  for (std::int64_t i = 1; i <= x.size(); ++i) EXPECT_NEAR(x(i), ref(i), tol) << i;
}

}  // namespace torvex_test
