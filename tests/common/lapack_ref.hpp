// Dense references computed by LAPACK alone, for the tests of the library's own inverses and
// factorisations.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/dense/dense.hpp"

namespace mmekit::test {

// The inverse of a symmetric positive definite matrix (both triangles) by dpotrf and dpotri,
// and its log-determinant in `logdet` when asked for.
inline densem lapack_spd_inverse(densem a, double* logdet = nullptr) {
  const auto n = static_cast<blas_int>(a.order());
  const auto ld = static_cast<blas_int>(a.ld());
  EXPECT_EQ(blas::potrf('L', n, a.data(), ld), 0);
  if (logdet) {
    *logdet = 0;
    for (std::int64_t i = 1; i <= n; ++i) *logdet += 2.0 * std::log(a(i, i));
  }
  EXPECT_EQ(blas::potri('L', n, a.data(), ld), 0);
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i < j; ++i) a(i, j) = a(j, i);
  return a;
}

// The solution of a x = b by the library's dense LAPACK solve.
inline Array1<double> solved(const densem& a, Array1<double> b) {
  EXPECT_EQ(solve_dense(a, b), 0);
  return b;
}

// The rank of a symmetric matrix: its eigenvalues (dsyev) above 1e-9 of the largest magnitude.
inline std::int64_t lapack_rank(densem a) {
  const auto n = static_cast<blas_int>(a.order());
  const auto ld = static_cast<blas_int>(a.ld());
  std::vector<double> w(static_cast<std::size_t>(n));
  double query = 0;
  blas::syev('N', 'U', n, a.data(), ld, w.data(), &query, -1);
  std::vector<double> work(static_cast<std::size_t>(query) + 1);
  EXPECT_EQ(blas::syev('N', 'U', n, a.data(), ld, w.data(), work.data(), static_cast<blas_int>(work.size())), 0);
  double big = 0;
  for (double v : w) big = std::max(big, std::abs(v));
  return std::count_if(w.begin(), w.end(), [&](double v) { return v > 1e-9 * big; });
}

}  // namespace mmekit::test
