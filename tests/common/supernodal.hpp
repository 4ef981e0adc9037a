// Supernodal factors made by hand for the tests of the solves: a partition of the columns into
// supernodes with the rows of each written out, a dense factor stored into lnz by the layout's
// positions and put into the solver state as numerical factorisation leaves it, and the dense
// algebra to check against.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit::test {

// Position in lnz of element (r, c) of a factor (r >= c), 0 when the structure has no room.
inline std::int64_t factor_position(const Sx2Layout& l, std::int32_t r, std::int32_t c) {
  return sx2_element_position(l, (*l.snode)(c), r, c);
}

// A structure made by hand with its own arrays: `firsts` the first column of each supernode
// (ascending from 1), rows[s] the rows of supernode s+1 below its diagonal block (ascending);
// lnz zero.
struct HandFactor {
  std::int32_t n = 0, nsn = 0;
  std::int64_t panel = 256;
  Array1<std::int32_t> xsuper, snode, lindx;
  Array1<std::int64_t> xlindx, xlnz;
  Array1<double> lnz;

  Sx2Layout layout() const {
    Sx2Layout l;
    l.n = n, l.nsn = nsn, l.panel = panel;
    l.xsuper = &xsuper, l.snode = &snode, l.xlindx = &xlindx, l.lindx = &lindx, l.xlnz = &xlnz;
    return l;
  }
};

inline HandFactor hand_factor(std::int32_t n, const std::vector<std::int32_t>& firsts,
                              const std::vector<std::vector<std::int32_t>>& rows, std::int64_t panel) {
  HandFactor h;
  h.n = n, h.nsn = static_cast<std::int32_t>(firsts.size()), h.panel = panel;
  h.xsuper = Array1<std::int32_t>(h.nsn + 1);
  h.snode = Array1<std::int32_t>(n);
  h.xlindx = Array1<std::int64_t>(h.nsn + 1, 1);
  h.xlnz = Array1<std::int64_t>(h.nsn + 1, 1);
  for (std::int32_t s = 1; s <= h.nsn; ++s) {
    const std::int32_t next = s < h.nsn ? firsts[s] : n + 1, m = static_cast<std::int32_t>(rows[s - 1].size());
    h.xsuper(s) = firsts[s - 1];
    for (std::int32_t c = firsts[s - 1]; c < next; ++c) h.snode(c) = s;
    h.lindx.vec().insert(h.lindx.vec().end(), rows[s - 1].begin(), rows[s - 1].end());
    h.xlindx(s + 1) = h.xlindx(s) + m;
    h.xlnz(s + 1) = h.xlnz(s) + sx2_size(next - firsts[s - 1], m, panel);
  }
  h.xsuper(h.nsn + 1) = n + 1;
  h.lnz = Array1<double>(h.xlnz(h.nsn + 1) - 1, 0.0);
  return h;
}

// A factor in lnz under its layout as a dense lower triangle (zero outside the structure).
inline densem read_factor(const Sx2Layout& l, const Array1<double>& lnz) {
  densem f(l.n, 0.0);
  for (std::int32_t c = 1; c <= l.n; ++c)
    for (std::int32_t r = c; r <= l.n; ++r)
      if (const std::int64_t p = factor_position(l, r, c); p > 0) f(r, c) = lnz(p);
  return f;
}
inline densem read_factor(const HandFactor& h) { return read_factor(h.layout(), h.lnz); }

// The symmetric matrix a renumbered: element (i, j) goes to (iperm(i), iperm(j)).
inline densem permuted(const densem& a, const Array1<std::int32_t>& iperm) {
  densem b(a.order(), 0.0);
  for (std::int64_t j = 1; j <= a.order(); ++j)
    for (std::int64_t i = 1; i <= a.order(); ++i) b(iperm(i), iperm(j)) = a(i, j);
  return b;
}

// The same structure put into skelda_state as numerical factorisation leaves it (stage 30):
// lnz zero, perm the identity, cflag zero.
inline void hand_structure(std::int32_t n, const std::vector<std::int32_t>& firsts,
                           const std::vector<std::vector<std::int32_t>>& rows, std::int64_t panel) {
  HandFactor h = hand_factor(n, firsts, rows, panel);
  SkeldaState& st = skelda_state;
  st = SkeldaState{};
  skelda_init();
  Array1<std::int32_t> perm(n);
  std::iota(perm.begin(), perm.end(), 1);
  st.xsuper = h.xsuper, st.snode = h.snode, st.xlindx = h.xlindx, st.lindx = h.lindx, st.xlnz = h.xlnz;
  st.perm = perm, st.lnz = h.lnz;
  st.cflag = Array1<std::int32_t>(n, 0);
  st.iparm(kPanelSize) = panel, st.iparm(kN) = n, st.iparm(kNsn) = h.nsn;
  st.stage() = 30;
}

// Position in lnz of element (r, c) of the factor in the state (r >= c), 0 when it has no room.
inline std::int64_t position(std::int32_t r, std::int32_t c) { return factor_position(skelda_layout(), r, c); }

// Stores the lower triangle of the dense factor f as the state's factor of the given type; what
// the structure has no room for must be zero to rounding.
inline void store_factor(const densem& f, int factor_type) {
  skelda_state.iparm(kFactorType) = factor_type;
  for (std::int32_t c = 1; c <= f.order(); ++c)
    for (std::int32_t r = c; r <= f.order(); ++r)
      if (const std::int64_t p = position(r, c); p > 0)
        (*skelda_state.lnz)(p) = f(r, c);
      else
        EXPECT_LE(std::abs(f(r, c)), 1e-10) << r << ", " << c;
}

// A lower factor with elements uniform in (-1, 1) wherever the structure has room and a
// diagonal in (1, 2); the same seed gives the same factor.
inline densem random_factor(unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem l(skelda_state.iparm(kN), 0.0);
  for (std::int32_t c = 1; c <= l.order(); ++c)
    for (std::int32_t r = c; r <= l.order(); ++r)
      if (position(r, c) > 0) l(r, c) = r == c ? 1.5 + 0.5 * u(g) : u(g);
  return l;
}

// L L' by definition.
inline densem gram(const densem& l) {
  densem c(l.order(), 0.0);
  for (std::int64_t j = 1; j <= l.order(); ++j)
    for (std::int64_t k = 1; k <= l.order(); ++k)
      for (std::int64_t i = 1; i <= l.order(); ++i) c(i, j) += l(i, k) * l(j, k);
  return c;
}

// The Cholesky factor of an SPD matrix by dpotrf, the part above the diagonal zeroed.
inline densem lapack_cholesky(densem a) {
  EXPECT_EQ(blas::potrf('L', static_cast<blas_int>(a.order()), a.data(), static_cast<blas_int>(a.ld())), 0);
  for (std::int64_t j = 2; j <= a.order(); ++j)
    for (std::int64_t i = 1; i < j; ++i) a(i, j) = 0.0;
  return a;
}

// The LDL form of a Cholesky factor as the storage holds it: l(j,j)^2 on the diagonal, the unit
// lower triangle l(i,j)/l(j,j) below it.
inline densem ldl_of_cholesky(densem l) {
  for (std::int64_t j = 1; j <= l.order(); ++j) {
    for (std::int64_t i = j + 1; i <= l.order(); ++i) l(i, j) /= l(j, j);
    l(j, j) *= l(j, j);
  }
  return l;
}

// The upper triangle of a dense symmetric matrix as skeldatask takes it (every diagonal, the
// zero off-diagonal elements left out), and back.
inline sparse_ija upper_ija(const densem& d) {
  sparse_ija m;
  m.n = static_cast<std::int32_t>(d.order());
  m.ia = Array1<std::int32_t>(m.n + 1);
  for (std::int32_t i = 1; i <= m.n; ++i) {
    m.ia(i) = static_cast<std::int32_t>(m.ja.size() + 1);
    for (std::int32_t j = i; j <= m.n; ++j)
      if (j == i || d(i, j) != 0.0) m.ja.vec().push_back(j), m.a.vec().push_back(d(i, j));
  }
  m.nel = static_cast<std::int32_t>(m.ja.size());
  m.ia(m.n + 1) = m.nel + 1;
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

// A X, or A' X when `transpose`, for a dense square A.
inline Array2<double> dense_times(const Array2<double>& a, const Array2<double>& x, bool transpose = false) {
  Array2<double> y(a.rows(), x.cols(), 0.0);
  for (std::int64_t c = 1; c <= x.cols(); ++c)
    for (std::int64_t j = 1; j <= a.rows(); ++j)
      for (std::int64_t i = 1; i <= a.rows(); ++i) y(i, c) += (transpose ? a(j, i) : a(i, j)) * x(j, c);
  return y;
}

// The largest absolute difference of two arrays of the same shape (infinity when they differ).
inline double max_diff(const Array2<double>& a, const Array2<double>& b) {
  if (a.rows() != b.rows() || a.cols() != b.cols()) return INFINITY;
  double d = 0;
  for (std::size_t k = 0; k < a.vec().size(); ++k) d = std::max(d, std::abs(a.vec()[k] - b.vec()[k]));
  return d;
}

}  // namespace mmekit::test
