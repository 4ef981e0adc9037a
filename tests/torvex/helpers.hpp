// Test matrices and dense references for the sparse Cholesky package.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace torvex_test {

using Dense = std::vector<double>;  // column-major n x n

inline double& at(Dense& d, int n, int i, int j) { return d[static_cast<std::size_t>(j) * n + i]; }
inline double at(const Dense& d, int n, int i, int j) { return d[static_cast<std::size_t>(j) * n + i]; }

// Upper form with the diagonal first and the other columns of each row in a shuffled order.
inline mmekit::sparse_ija to_ija(const Dense& d, int n, unsigned seed = 1) {
  std::mt19937 g(seed);
  mmekit::sparse_ija m;
  m.n = n;
  m.ia.assign(n + 1, 0);
  std::vector<int> ja;
  std::vector<double> a;
  for (int i = 0; i < n; ++i) {
    m.ia(i + 1) = static_cast<int>(ja.size()) + 1;
    ja.push_back(i + 1);
    a.push_back(at(d, n, i, i));
    std::vector<int> cols;
    for (int j = i + 1; j < n; ++j)
      if (at(d, n, i, j) != 0.0) cols.push_back(j);
    std::shuffle(cols.begin(), cols.end(), g);
    for (int j : cols) {
      ja.push_back(j + 1);
      a.push_back(at(d, n, i, j));
    }
  }
  m.ia(n + 1) = static_cast<int>(ja.size()) + 1;
  m.nel = static_cast<int>(ja.size());
  m.ja.assign(m.nel, 0);
  m.a.assign(m.nel, 0.0);
  for (int e = 0; e < m.nel; ++e) {
    m.ja(e + 1) = ja[static_cast<std::size_t>(e)];
    m.a(e + 1) = a[static_cast<std::size_t>(e)];
  }
  return m;
}

// A random sparse symmetric positive definite matrix (diagonally dominant).
inline Dense random_spd(int n, double density, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  Dense d(static_cast<std::size_t>(n) * n, 0.0);
  for (int i = 0; i < n; ++i)
    for (int j = i + 1; j < n; ++j)
      if (u(g) < density) at(d, n, i, j) = at(d, n, j, i) = u(g) * 2.0 - 1.0;
  for (int i = 0; i < n; ++i) {
    double s = 0;
    for (int j = 0; j < n; ++j)
      if (j != i) s += std::abs(at(d, n, i, j));
    at(d, n, i, i) = s + 0.5 + u(g);
  }
  return d;
}

// Mixed-model-like equations of a one-trait model: mean, two cross-classified fixed factors
// (each sums to the mean: rank falls by two) and a random effect with a ridge. Order
// 1 + f1 + f2 + r.
inline Dense mme_like(int f1, int f2, int r, int records, unsigned seed) {
  std::mt19937 g(seed);
  const int n = 1 + f1 + f2 + r;
  Dense d(static_cast<std::size_t>(n) * n, 0.0);
  for (int k = 0; k < records; ++k) {
    int e[4] = {0, 1 + static_cast<int>(g() % f1), 1 + f1 + static_cast<int>(g() % f2),
                1 + f1 + f2 + static_cast<int>(g() % r)};
    for (int p : e)
      for (int q : e) at(d, n, p, q) += 1.0;
  }
  for (int i = 1 + f1 + f2; i < n; ++i) at(d, n, i, i) += 2.0;
  return d;
}

// Rank by a symmetric eigen decomposition.
inline int dense_rank(Dense d, int n) {
  std::vector<double> w(static_cast<std::size_t>(n));
  double q = 0;
  mmekit::blas::syev('N', 'U', n, d.data(), n, w.data(), &q, -1);
  std::vector<double> work(static_cast<std::size_t>(q) + 1);
  mmekit::blas::syev('N', 'U', n, d.data(), n, w.data(), work.data(), static_cast<int>(work.size()));
  double big = 0;
  for (double v : w) big = std::max(big, std::abs(v));
  int r = 0;
  for (double v : w) r += v > 1e-9 * big;
  return r;
}

// Inverse of an SPD matrix by LAPACK (both triangles filled) and its log-determinant.
inline Dense spd_inverse(Dense d, int n, double* logdet = nullptr) {
  EXPECT_EQ(mmekit::blas::potrf('L', n, d.data(), n), 0);
  if (logdet) {
    *logdet = 0;
    for (int i = 0; i < n; ++i) *logdet += 2.0 * std::log(at(d, n, i, i));
  }
  EXPECT_EQ(mmekit::blas::potri('L', n, d.data(), n), 0);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i) at(d, n, i, j) = at(d, n, j, i);
  return d;
}

// The inverse of the rows and columns in `keep`, zero in all others (n x n), and the
// log-determinant of that part.
inline Dense kept_inverse(const Dense& d, int n, const std::vector<int>& keep, double* logdet = nullptr) {
  const int m = static_cast<int>(keep.size());
  auto kept = [&](int i) { return keep[static_cast<std::size_t>(i)]; };
  Dense s(static_cast<std::size_t>(m) * m), g(static_cast<std::size_t>(n) * n, 0.0);
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) at(s, m, i, j) = at(d, n, kept(i), kept(j));
  s = spd_inverse(s, m, logdet);
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) at(g, n, kept(i), kept(j)) = at(s, m, i, j);
  return g;
}

// Every stored element of the upper-form matrix against the dense reference.
inline void expect_pattern_near(const mmekit::sparse_ija& m, const Dense& ref, double tol) {
  for (int i = 1; i <= m.n; ++i)
    for (int e = m.ia(i); e < m.ia(i + 1); ++e)
      EXPECT_NEAR(m.a(e), at(ref, m.n, i - 1, m.ja(e) - 1), tol) << i << " " << m.ja(e);
}

inline void expect_all_near(const std::vector<double>& x, const std::vector<double>& ref, double tol) {
  ASSERT_EQ(x.size(), ref.size());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(x[i], ref[i], tol) << i;
}

inline std::vector<double> to_vector(const mmekit::Array1<double>& a) { return {a.begin(), a.end()}; }

inline std::vector<double> multiply(const Dense& d, int n, const std::vector<double>& x) {
  std::vector<double> y(static_cast<std::size_t>(n), 0.0);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) y[static_cast<std::size_t>(i)] += at(d, n, i, j) * x[static_cast<std::size_t>(j)];
  return y;
}

}  // namespace torvex_test
