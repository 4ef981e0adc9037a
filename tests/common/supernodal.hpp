// Supernodal factors made by hand, for the tests of the kernels that read or write the factor
// storage: a partition of the columns into supernodes with the rows of each written out, a
// dense factor stored into (and read back from) lnz by the layout's positions, and the factor
// put into the solver state the way numerical factorisation leaves it.
//
// The usual round: pick a structure, draw a factor L on it (random_factor_on), form the dense
// matrix A = L L' (dense_product), let LAPACK factorise A (lapack_cholesky; its L equals the
// drawn one to rounding), store that into lnz and check a kernel against dense algebra on A.
// Link mmekit_skelda, mmekit_dense and mmekit_sparse.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit::test {

// Position in lnz of element (r, c) of the factor (global, permuted numbering, r >= c), or 0
// when the structure has no room for it.
inline std::int64_t factor_position(const Sx2Layout& l, std::int32_t r, std::int32_t c) {
  const std::int32_t s = (*l.snode)(c);
  const std::int64_t f = l.first(s), w = l.width(s);
  if (r < f + w) return l.diag_position(s, r - f + 1, c - f + 1);
  for (std::int64_t k = (*l.xlindx)(s); k < (*l.xlindx)(s + 1); ++k)
    if ((*l.lindx)(k) == r) return l.below_position(s, k - (*l.xlindx)(s), c - f + 1);
  return 0;
}

// Stores the lower triangle of the dense factor `f` (n x n, permuted numbering) into lnz.
// Elements that the structure has no room for must be below `tol` in magnitude.
inline void store_factor(const Sx2Layout& l, Array1<double>& lnz, const densem& f, double tol = 1e-10) {
  for (std::int32_t c = 1; c <= l.n; ++c)
    for (std::int32_t r = c; r <= l.n; ++r) {
      const std::int64_t p = factor_position(l, r, c);
      if (p > 0)
        lnz(p) = f(r, c);
      else
        EXPECT_LE(std::abs(f(r, c)), tol) << "element (" << r << ", " << c << ") outside the structure";
    }
}

struct HandFactor {
  std::int32_t n = 0, nsn = 0;
  std::int64_t panel = 256;
  Array1<std::int32_t> xsuper, snode, lindx;
  Array1<std::int64_t> xlindx, xlnz;
  Array1<double> lnz;

  Sx2Layout layout() const {
    Sx2Layout l;
    l.n = n;
    l.nsn = nsn;
    l.panel = panel;
    l.xsuper = &xsuper;
    l.snode = &snode;
    l.xlindx = &xlindx;
    l.lindx = &lindx;
    l.xlnz = &xlnz;
    return l;
  }
  std::int64_t position(std::int32_t r, std::int32_t c) const { return factor_position(layout(), r, c); }
};

// The structure: `firsts` the first column of each supernode (ascending, starting at 1),
// rows[s] the rows of supernode s+1 below its diagonal block (ascending). lnz is zeroed.
inline HandFactor hand_structure(std::int32_t n, const std::vector<std::int32_t>& firsts,
                                 const std::vector<std::vector<std::int32_t>>& rows, std::int64_t panel) {
  HandFactor h;
  h.n = n;
  h.nsn = static_cast<std::int32_t>(firsts.size());
  h.panel = panel;
  h.xsuper = Array1<std::int32_t>(h.nsn + 1);
  h.snode = Array1<std::int32_t>(n);
  h.xlindx = Array1<std::int64_t>(h.nsn + 1);
  h.xlnz = Array1<std::int64_t>(h.nsn + 1);
  std::int64_t nrows = 0;
  for (const auto& r : rows) nrows += static_cast<std::int64_t>(r.size());
  h.lindx = Array1<std::int32_t>(nrows);
  h.xlindx(1) = 1;
  h.xlnz(1) = 1;
  for (std::int32_t s = 1; s <= h.nsn; ++s) {
    h.xsuper(s) = firsts[s - 1];
    const std::int32_t next = s < h.nsn ? firsts[s] : n + 1;
    for (std::int32_t c = firsts[s - 1]; c < next; ++c) h.snode(c) = s;
    const auto& r = rows[s - 1];
    for (std::size_t k = 0; k < r.size(); ++k) h.lindx(h.xlindx(s) + static_cast<std::int64_t>(k)) = r[k];
    h.xlindx(s + 1) = h.xlindx(s) + static_cast<std::int64_t>(r.size());
    h.xlnz(s + 1) = h.xlnz(s) + sx2_size(next - firsts[s - 1], static_cast<std::int64_t>(r.size()), panel);
  }
  h.xsuper(h.nsn + 1) = n + 1;
  h.lnz = Array1<double>(h.xlnz(h.nsn + 1) - 1, 0.0);
  return h;
}

inline void store_factor(HandFactor& h, const densem& f, double tol = 1e-10) { store_factor(h.layout(), h.lnz, f, tol); }

// The factor in lnz as a dense lower triangle (zero above and outside the structure).
inline densem read_factor(const HandFactor& h) {
  densem l(h.n, 0.0);
  for (std::int32_t c = 1; c <= h.n; ++c)
    for (std::int32_t r = c; r <= h.n; ++r)
      if (const std::int64_t p = h.position(r, c); p > 0) l(r, c) = h.lnz(p);
  return l;
}

// A lower triangular factor with random elements in (-1, 1) wherever the structure has room,
// and a diagonal in (1, 2). The same seed gives the same factor.
inline densem random_factor_on(const HandFactor& h, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem l(h.n, 0.0);
  for (std::int32_t c = 1; c <= h.n; ++c)
    for (std::int32_t r = c; r <= h.n; ++r)
      if (h.position(r, c) > 0) l(r, c) = r == c ? 1.5 + 0.5 * u(g) : u(g);
  return l;
}

// a b' by definition: dense_product(l, l) is L L'.
inline densem dense_product(const densem& a, const densem& b) {
  const std::int64_t n = a.order();
  densem c(n, 0.0);
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t k = 1; k <= n; ++k)
      for (std::int64_t i = 1; i <= n; ++i) c(i, j) += a(i, k) * b(j, k);
  return c;
}

// The Cholesky factor of an SPD matrix by dpotrf, the part above the diagonal zeroed.
inline densem lapack_cholesky(densem a) {
  EXPECT_EQ(blas::potrf('L', static_cast<blas_int>(a.order()), a.data(), static_cast<blas_int>(a.ld())), 0);
  for (std::int64_t j = 2; j <= a.order(); ++j)
    for (std::int64_t i = 1; i < j; ++i) a(i, j) = 0.0;
  return a;
}

// The LDL form of a Cholesky factor as the factor storage holds it: d = l(j,j)^2 on the
// diagonal, the unit lower triangle l(i,j)/l(j,j) below it.
inline densem ldl_of_cholesky(densem l) {
  for (std::int64_t j = 1; j <= l.order(); ++j) {
    const double d = l(j, j);
    for (std::int64_t i = j + 1; i <= l.order(); ++i) l(i, j) /= d;
    l(j, j) = d * d;
  }
  return l;
}

// The upper triangle of a dense symmetric matrix as skeldatask takes it (diagonal first in
// each row, every diagonal present, zero off-diagonal elements left out), and back.
inline sparse_ija upper_ija(const densem& d) {
  sparse_ija m;
  m.n = static_cast<std::int32_t>(d.order());
  std::vector<std::int32_t> ja;
  std::vector<double> a;
  m.ia = Array1<std::int32_t>(m.n + 1);
  for (std::int32_t i = 1; i <= m.n; ++i) {
    m.ia(i) = static_cast<std::int32_t>(ja.size() + 1);
    for (std::int32_t j = i; j <= m.n; ++j)
      if (j == i || d(i, j) != 0.0) ja.push_back(j), a.push_back(d(i, j));
  }
  m.nel = static_cast<std::int32_t>(ja.size());
  m.ia(m.n + 1) = m.nel + 1;
  m.ja = Array1<std::int32_t>(m.nel);
  m.a = Array1<double>(m.nel);
  for (std::int32_t k = 1; k <= m.nel; ++k) m.ja(k) = ja[k - 1], m.a(k) = a[k - 1];
  return m;
}
inline densem dense_of(const sparse_ija& m) {
  densem d(m.n, 0.0);
  for (std::int32_t i = 1; i <= m.n; ++i)
    for (std::int32_t k = m.ia(i); k < m.ia(i + 1); ++k) {
      d(i, m.ja(k)) += m.a(k);
      if (m.ja(k) != i) d(m.ja(k), i) += m.a(k);
    }
  return d;
}

// n-by-k values uniform in (-2, 2); the same seed gives the same values.
inline Array2<double> random_columns(std::int64_t n, std::int64_t k, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-2.0, 2.0);
  Array2<double> b(n, k);
  for (double& v : b.vec()) v = u(g);
  return b;
}

// A X for dense A, column by column.
inline Array2<double> dense_times(const densem& a, const Array2<double>& x) {
  Array2<double> y(a.order(), x.cols(), 0.0);
  for (std::int64_t c = 1; c <= x.cols(); ++c)
    for (std::int64_t j = 1; j <= a.order(); ++j)
      for (std::int64_t i = 1; i <= a.order(); ++i) y(i, c) += a(i, j) * x(j, c);
  return y;
}

// The factor in skelda_state as numerical factorisation leaves it: the structure, lnz, perm
// and its inverse, cflag (zeros when empty), iparm(10), (19), (41), (43), (44) and stage 30.
inline void install_factor(const HandFactor& h, const Array1<std::int32_t>& perm, int factor_type,
                           Array1<std::int32_t> cflag = {}) {
  SkeldaState& s = skelda_state;
  s = SkeldaState{};
  skelda_init();
  s.xsuper = h.xsuper;
  s.snode = h.snode;
  s.xlindx = h.xlindx;
  s.lindx = h.lindx;
  s.xlnz = h.xlnz;
  s.lnz = h.lnz;
  s.perm = perm;
  Array1<std::int32_t> iperm(h.n);
  for (std::int32_t i = 1; i <= h.n; ++i) iperm(perm(i)) = i;
  s.iperm = iperm;
  s.cflag = cflag.empty() ? Array1<std::int32_t>(h.n, 0) : cflag;
  s.iparm(kPanelSize) = h.panel;
  s.iparm(kFactorType) = factor_type;
  s.iparm(kN) = h.n;
  s.iparm(kNsn) = h.nsn;
  s.iparm(kLnzAllocated) = h.lnz.size();
  s.stage() = 30;
}

}  // namespace mmekit::test
