// Numeric factorisation: the supernodal factor against a dense LAPACK Cholesky of the permuted
// matrix, dependent columns of singular equations, constraints, the load, the substitution of
// the dense routines, and the messages and results of the task.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "mmekit/dense/blas.hpp"
#include "mmekit/skelda/multifrontal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"
#include "sx2_reference.hpp"

namespace {

using mmekit::Array1;
using mmekit::densem;
using skelda_test::Sx2Structure;

// The upper triangle of a dense symmetric matrix, diagonal first in each row (always stored),
// then the non-zero entries to its right.
mmekit::sparse_ija upper_ija(const densem& d) {
  const auto n = static_cast<std::int32_t>(d.order());
  mmekit::sparse_ija p;
  p.n = n;
  std::vector<std::int32_t> cols;
  std::vector<double> vals;
  p.ia = Array1<std::int32_t>(n + 1);
  for (std::int32_t i = 1; i <= n; ++i) {
    p.ia(i) = static_cast<std::int32_t>(cols.size()) + 1;
    cols.push_back(i);
    vals.push_back(d(i, i));
    for (std::int32_t j = i + 1; j <= n; ++j)
      if (d(i, j) != 0) {
        cols.push_back(j);
        vals.push_back(d(i, j));
      }
  }
  p.ia(n + 1) = static_cast<std::int32_t>(cols.size()) + 1;
  p.nel = static_cast<std::int32_t>(cols.size());
  p.ja = Array1<std::int32_t>(p.nel);
  p.a = Array1<double>(p.nel);
  for (std::int32_t k = 1; k <= p.nel; ++k) {
    p.ja(k) = cols[static_cast<std::size_t>(k - 1)];
    p.a(k) = vals[static_cast<std::size_t>(k - 1)];
  }
  return p;
}

densem dense_of(const mmekit::sparse_ija& p) {
  densem d(p.n, 0.0);
  for (std::int32_t i = 1; i <= p.n; ++i)
    for (std::int32_t k = p.ia(i); k < p.ia(i + 1); ++k) d(i, p.ja(k)) = d(p.ja(k), i) = p.a(k);
  return d;
}

Array1<std::int32_t> random_iperm(std::int32_t n, unsigned seed) {
  std::vector<std::int32_t> v(static_cast<std::size_t>(n));
  std::iota(v.begin(), v.end(), 1);
  std::mt19937 g(seed);
  std::shuffle(v.begin(), v.end(), g);
  Array1<std::int32_t> a(n);
  for (std::int32_t i = 1; i <= n; ++i) a(i) = v[static_cast<std::size_t>(i - 1)];
  return a;
}

Array1<std::int32_t> identity(std::int32_t n) {
  Array1<std::int32_t> a(n);
  for (std::int32_t i = 1; i <= n; ++i) a(i) = i;
  return a;
}

// B(iperm(i), iperm(j)) = A(i, j).
densem permuted(const densem& a, const Array1<std::int32_t>& iperm) {
  const std::int64_t n = a.order();
  densem b(n, 0.0);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) b(iperm(i), iperm(j)) = a(i, j);
  return b;
}

// The factor read back through the layout as a dense lower triangle (permuted numbering).
densem read_factor(const mmekit::Sx2Layout& l, const Array1<double>& lnz) {
  densem d(l.n, 0.0);
  for (std::int32_t k = 1; k <= l.nsn; ++k) {
    const std::int64_t f = l.first(k), w = l.width(k), m = l.rows_below(k);
    for (std::int64_t c = 1; c <= w; ++c) {
      for (std::int64_t r = c; r <= w; ++r) d(f + r - 1, f + c - 1) = lnz(l.diag_position(k, r, c));
      for (std::int64_t q = 0; q < m; ++q)
        d((*l.lindx)((*l.xlindx)(k) + q), f + c - 1) = lnz(l.below_position(k, q, c));
    }
  }
  return d;
}
densem read_factor(const Sx2Structure& s, const Array1<double>& lnz) { return read_factor(s.layout(), lnz); }

densem lapack_cholesky(densem a) {
  EXPECT_EQ(mmekit::blas::potrf('L', static_cast<mmekit::blas_int>(a.order()), a.data(),
                                static_cast<mmekit::blas_int>(a.ld())),
            0);
  for (std::int64_t j = 1; j <= a.order(); ++j)
    for (std::int64_t i = 1; i < j; ++i) a(i, j) = 0;
  return a;
}

struct Factored {
  Sx2Structure s;
  Array1<double> lnz;
  Array1<std::int32_t> cflag;
  std::int64_t rank = -1;
  std::int32_t status = -1;
};

Factored factorise(const mmekit::sparse_ija& p, const Array1<std::int32_t>& iperm, mmekit::SnllOptions opt,
                   std::int64_t panel = 256, std::int64_t split = 2147483647,
                   const mmekit::SkeldaBlas& blas = mmekit::default_skelda_blas()) {
  Factored f;
  f.s = skelda_test::reference_sx2(p.n, p.ia, p.ja, iperm, panel, split);
  f.lnz = Array1<double>(f.s.lx_size, -7.0);  // the load must clear what it does not set
  f.cflag = Array1<std::int32_t>(p.n, 0);
  const mmekit::Sx2Layout l = f.s.layout();
  EXPECT_EQ(mmekit::load_matrix(p.n, p.ia, p.ja, p.a, iperm, l, f.lnz, f.cflag), 0);
  opt.tmp_words = mmekit::snll_simulate(l, f.s.lx_size, 0, opt.small_update).tmp;
  f.status = mmekit::snll_factor(l, f.lnz, f.cflag, opt, blas, f.rank);
  return f;
}

double max_diff(const densem& a, const densem& b) {
  double m = 0;
  for (std::int64_t j = 1; j <= a.order(); ++j)
    for (std::int64_t i = 1; i <= a.order(); ++i) m = std::max(m, std::abs(a(i, j) - b(i, j)));
  return m;
}

// L of the LDL form times the square root of D: the Cholesky factor again.
densem cholesky_of_ldl(densem l) {
  for (std::int64_t j = 1; j <= l.order(); ++j) {
    const double d = std::sqrt(l(j, j));
    l(j, j) = 1.0;
    for (std::int64_t i = j; i <= l.order(); ++i) l(i, j) *= d;
  }
  return l;
}

// The factor of a positive definite matrix equals LAPACK's Cholesky of the permuted matrix, in
// both routes, both forms of the root, with and without cut supernodes, as L or as LDL.
TEST(SkeldaNumeric, FactorMatchesDenseCholesky) {
  struct Case {
    const char* name;
    mmekit::sparse_ija p;
    unsigned seed;
  };
  std::vector<Case> cases;
  cases.push_back({"random 60", upper_ija(mmekit::test::random_spd(60, 0.06, 3)), 11});
  cases.push_back({"random 45 dense-ish", upper_ija(mmekit::test::random_spd(45, 0.3, 5)), 12});
  cases.push_back({"grid 7x6", skelda_test::grid2d(7, 6), 13});
  cases.push_back({"disconnected", skelda_test::disconnected(), 14});
  for (const Case& c : cases) {
    const densem a = dense_of(c.p);
    for (const bool shuffle : {false, true}) {
      const Array1<std::int32_t> iperm = shuffle ? random_iperm(c.p.n, c.seed) : identity(c.p.n);
      const densem ref = lapack_cholesky(permuted(a, iperm));
      for (const std::int64_t panel : {256, 4, 3, 1})
        for (const std::int64_t split : {2147483647, 2, 3})
          for (const bool kachman : {false, true})
            for (const bool ldl : {false, true}) {
              mmekit::SnllOptions opt;
              opt.small_update = ldl ? 0 : 512;  // written out or all through the dense routines
              opt.kachman = kachman;
              opt.ldl = ldl;
              opt.tol_abs = opt.tol_rel = 1e-10;
              opt.block_alt = panel == 4 ? 3 : 256;  // blocked and unblocked dense kernels
              Factored f = factorise(c.p, iperm, opt, panel, split);
              SCOPED_TRACE(std::string(c.name) + " shuffle=" + std::to_string(shuffle) + " p=" +
                           std::to_string(panel) + " T=" + std::to_string(split) + " kachman=" +
                           std::to_string(kachman) + " ldl=" + std::to_string(ldl));
              ASSERT_EQ(f.status, 0);
              EXPECT_EQ(f.rank, c.p.n);
              densem l = read_factor(f.s, f.lnz);
              if (ldl) {
                for (std::int64_t j = 1; j <= l.order(); ++j) ASSERT_GT(l(j, j), 0.0);
                l = cholesky_of_ldl(l);
              }
              EXPECT_LT(max_diff(l, ref), 1e-11);
              for (std::int32_t i = 1; i <= c.p.n; ++i) EXPECT_EQ(f.cflag(i), 0);
            }
    }
  }
}

// The panel form really occurs above, with padding: a dense matrix of 10 is one root of width
// 10 stored as 3 block columns of 4 (storage 6 * 16), and its padding stays zero.
TEST(SkeldaNumeric, PanelRootKeepsPaddingZero) {
  const mmekit::sparse_ija p = upper_ija(mmekit::test::random_spd(10, 1.0, 8));
  mmekit::SnllOptions opt;
  Factored f = factorise(p, identity(10), opt, 4);
  ASSERT_EQ(f.s.nsn, 1);
  ASSERT_TRUE(f.s.layout().panel_form(1));
  EXPECT_EQ(f.s.lx_size, 6 * 16);
  ASSERT_EQ(f.status, 0);
  EXPECT_LT(max_diff(read_factor(f.s, f.lnz), lapack_cholesky(dense_of(p))), 1e-12);
  // Block column 3 holds rows 9..12 of columns 9..12: rows and columns 11, 12 are padding.
  const std::int64_t off3 = mmekit::sx2_block_column_offset(3, 3, 4);
  for (std::int64_t c = 0; c < 4; ++c)
    for (std::int64_t r = 0; r < 4; ++r)
      if (r >= 2 || c >= 2) {
        EXPECT_EQ(f.lnz(1 + off3 + r + 4 * c), 0.0) << r << ' ' << c;
      }
  // Rows 11 and 12 of block columns 1 and 2 are padding too.
  for (std::int64_t jb = 1; jb <= 2; ++jb) {
    const std::int64_t ld = (3 - jb + 1) * 4, off = mmekit::sx2_block_column_offset(jb, 3, 4);
    for (std::int64_t c = 0; c < 4; ++c)
      for (std::int64_t r = ld - 2; r < ld; ++r) EXPECT_EQ(f.lnz(1 + off + r + ld * c), 0.0);
  }
}

// Dependent columns of singular equations: the columns kept are factorised as the dense
// Cholesky of the matrix without the lost ones, the rank is that of the matrix, the lost columns
// carry a unit pivot, zeros below it and cflag -1.
void check_generalised(const mmekit::sparse_ija& p, const Array1<std::int32_t>& iperm, std::int64_t panel,
                       std::int64_t block_alt, bool ldl) {
  mmekit::SnllOptions opt;
  opt.kachman = true;
  opt.ldl = ldl;
  opt.tol_abs = opt.tol_rel = 1.000000013351432e-10;
  opt.block_alt = block_alt;
  Factored f = factorise(p, iperm, opt, panel);
  ASSERT_EQ(f.status, 0);
  const densem a = permuted(dense_of(p), iperm);
  EXPECT_EQ(f.rank, mmekit::test::lapack_rank(a));
  std::vector<std::int64_t> kept;
  for (std::int32_t i = 1; i <= p.n; ++i)
    if (f.cflag(i) == 0) kept.push_back(i);
    else EXPECT_EQ(f.cflag(i), -1);
  EXPECT_EQ(static_cast<std::int64_t>(kept.size()), f.rank);
  densem l = read_factor(f.s, f.lnz);
  for (std::int32_t j = 1; j <= p.n; ++j)
    if (f.cflag(j) != 0) {
      EXPECT_EQ(l(j, j), 1.0);
      for (std::int32_t i = j + 1; i <= p.n; ++i) EXPECT_LT(std::abs(l(i, j)), 1e-6) << i << ' ' << j;
    }
  if (ldl) l = cholesky_of_ldl(l);
  const auto nk = static_cast<std::int64_t>(kept.size());
  densem sub(nk, 0.0), lsub(nk, 0.0);
  for (std::int64_t j = 1; j <= nk; ++j)
    for (std::int64_t i = 1; i <= nk; ++i) {
      sub(i, j) = a(kept[i - 1], kept[j - 1]);
      lsub(i, j) = i >= j ? l(kept[i - 1], kept[j - 1]) : 0.0;
    }
  const densem ref = lapack_cholesky(sub);
  EXPECT_LT(max_diff(lsub, ref), 1e-8 * (1 + std::abs(ref(1, 1))));
  // The log-determinant sums the kept pivots only.
  double logdet = 0;
  for (std::int64_t i = 1; i <= nk; ++i) logdet += 2 * std::log(ref(i, i));
  EXPECT_NEAR(mmekit::supernodal_logdet(f.s.layout(), f.lnz, ldl ? 2 : 1), logdet, 1e-8 * std::abs(logdet));
}

TEST(SkeldaNumeric, DependentColumnsAreLost) {
  // The small generated MME: herd-years and parities sum to the same records.
  const mmekit::test::SmallMme mme = mmekit::test::small_mme(100, 7);
  const mmekit::sparse_ija& p = mme.ija;
  for (const std::int64_t panel : {256, 16})
    for (const std::int64_t alt : {256, 4})
      for (const bool ldl : {false, true}) {
        SCOPED_TRACE("mme p=" + std::to_string(panel) + " alt=" + std::to_string(alt));
        check_generalised(p, identity(p.n), panel, alt, ldl);
        check_generalised(p, random_iperm(p.n, 21), panel, alt, ldl);
      }
  {
    Factored f = factorise(p, identity(p.n), {.kachman = true, .tol_abs = 1e-10, .tol_rel = 1e-10});
    EXPECT_EQ(f.rank, p.n - 1);
  }
  // A zero row and column, and two identical columns.
  densem d = mmekit::test::random_spd(30, 0.15, 9);
  for (std::int64_t i = 1; i <= 30; ++i) d(5, i) = d(i, 5) = 0;
  for (std::int64_t i = 1; i <= 30; ++i) d(12, i) = d(i, 12) = d(20, i);  // then 12 == 20
  d(12, 12) = d(12, 20) = d(20, 12) = d(20, 20);
  const mmekit::sparse_ija q = upper_ija(d);
  for (const std::int64_t panel : {256, 5})
    for (const std::int64_t alt : {256, 3}) {
      SCOPED_TRACE("zero row p=" + std::to_string(panel) + " alt=" + std::to_string(alt));
      check_generalised(q, identity(30), panel, alt, true);
      Factored f = factorise(q, identity(30), {.kachman = true, .tol_abs = 1e-10, .tol_rel = 1e-10,
                                               .block_alt = alt}, panel);
      EXPECT_EQ(f.rank, 28);
      EXPECT_EQ(f.cflag(5), -1);
      EXPECT_EQ(f.cflag(20), -1);  // the later of the identical pair
      EXPECT_EQ(f.cflag(12), 0);
    }
  // Tolerances zero: only a pivot that is zero or negative is lost. A tiny positive pivot
  // (1e-14 of its diagonal) stays with zero tolerances and is lost with the defaults.
  densem e(3, 0.0);
  e(1, 1) = 1;
  e(1, 2) = e(2, 1) = 1;
  e(2, 2) = 1 + 1e-14;
  e(3, 3) = 0;
  for (const double tol : {0.0, 1e-10}) {
    Factored f = factorise(upper_ija(e), identity(3), {.kachman = true, .tol_abs = tol, .tol_rel = tol});
    EXPECT_EQ(f.cflag(3), -1);
    EXPECT_EQ(f.cflag(2), tol == 0 ? 0 : -1);
    EXPECT_EQ(f.rank, tol == 0 ? 2 : 1);
  }
  // The plain route stops at a singular matrix with status 8.
  Factored g = factorise(q, identity(30), {});
  EXPECT_EQ(g.status, 8);
  EXPECT_EQ(g.rank, 0);
}

// The kernel by itself, unblocked and blocked, on a 7x7 matrix of rank 5: the diagonal values
// passed in decide, and the blocked form agrees with the unblocked one on the kept columns.
TEST(SkeldaNumeric, DenseKernelBlockedAndUnblocked) {
  std::mt19937 g(4);
  std::normal_distribution<double> u;
  densem x(7, 0.0);  // columns 3 = 1 + 2 and 6 = 2 * 4
  for (std::int64_t i = 1; i <= 7; ++i)
    for (std::int64_t j = 1; j <= 7; ++j) x(i, j) = u(g);
  for (std::int64_t i = 1; i <= 7; ++i) {
    x(i, 3) = x(i, 1) + x(i, 2);
    x(i, 6) = 2 * x(i, 4);
  }
  densem a(7, 0.0);
  for (std::int64_t i = 1; i <= 7; ++i)
    for (std::int64_t j = 1; j <= 7; ++j)
      for (std::int64_t k = 1; k <= 7; ++k) a(i, j) += x(k, i) * x(k, j);
  const auto& blas = mmekit::default_skelda_blas();
  densem first;
  for (const std::int64_t bs : {0, 2, 3, 7}) {
    densem b = a;
    std::vector<double> diag0(7);
    for (int i = 0; i < 7; ++i) diag0[static_cast<std::size_t>(i)] = a(i + 1, i + 1);
    std::vector<std::int32_t> flag(7, 0);
    std::int64_t lost = 2;  // added to
    mmekit::kachman_dense(7, b.data(), 7, 1e-10, 1e-10, lost, diag0.data(), flag.data(), bs, blas);
    EXPECT_EQ(lost, 4) << bs;
    EXPECT_EQ(flag, (std::vector<std::int32_t>{0, 0, -1, 0, 0, -1, 0})) << bs;
    EXPECT_EQ(b(3, 3), 1.0);
    EXPECT_EQ(b(6, 6), 1.0);
    if (bs == 0) first = b;
    for (std::int64_t j : {1, 2, 4, 5, 7})
      for (std::int64_t i = j; i <= 7; ++i) EXPECT_NEAR(b(i, j), first(i, j), 1e-9) << bs << ' ' << i << ' ' << j;
  }
  // Unblocked: a lost column is zeroed below its pivot.
  for (std::int64_t i = 4; i <= 7; ++i) EXPECT_EQ(first(i, 3), 0.0);
}

// The load: values stored not added, constrained columns as unit columns, the position map,
// entries that do not fit the structure.
TEST(SkeldaNumeric, LoadMatrix) {
  // An arrow: rows 1..3 couple to 4. Supernodes {1}, {2} with row 4 below, and the root {3, 4}.
  densem d(4, 0.0);
  for (std::int64_t i = 1; i <= 4; ++i) d(i, i) = 10 + i;
  for (std::int64_t i = 1; i <= 3; ++i) d(i, 4) = d(4, i) = -i;
  mmekit::sparse_ija p = upper_ija(d);
  const Array1<std::int32_t> id = identity(4);
  Sx2Structure s = skelda_test::reference_sx2(4, p.ia, p.ja, id);
  ASSERT_EQ(s.nsn, 3);
  Array1<double> lnz(s.lx_size, 5.0);
  Array1<std::int32_t> cflag(4, 0);
  Array1<std::int64_t> map;
  ASSERT_EQ(mmekit::load_matrix(4, p.ia, p.ja, p.a, id, s.layout(), lnz, cflag, &map), 0);
  ASSERT_EQ(map.size(), p.nel);
  for (std::int32_t k = 1; k <= p.nel; ++k) EXPECT_EQ(lnz(map(k)), p.a(k));
  EXPECT_EQ(read_factor(s, lnz)(4, 2), -2.0);
  double total = 0;
  for (double v : lnz) total += v;
  EXPECT_DOUBLE_EQ(total, 11 + 12 + 13 + 14 - 6);  // everything else cleared
  // Constrained column 2 (bit 0 of its word): unit column.
  cflag(2) = 3;
  ASSERT_EQ(mmekit::load_matrix(4, p.ia, p.ja, p.a, id, s.layout(), lnz, cflag), 0);
  EXPECT_EQ(read_factor(s, lnz)(2, 2), 1.0);
  EXPECT_EQ(read_factor(s, lnz)(4, 2), 0.0);
  EXPECT_EQ(read_factor(s, lnz)(4, 1), -1.0);
  cflag(2) = 2;  // bit 0 clear: not constrained
  ASSERT_EQ(mmekit::load_matrix(4, p.ia, p.ja, p.a, id, s.layout(), lnz, cflag), 0);
  EXPECT_EQ(read_factor(s, lnz)(2, 2), 12.0);
  // A duplicate entry keeps the last value.
  mmekit::sparse_ija dup = p;
  dup.ja(2) = 1;  // row 1: (1,1) twice, the second 4.5
  dup.a(2) = 4.5;
  ASSERT_EQ(mmekit::load_matrix(4, dup.ia, dup.ja, dup.a, id, s.layout(), lnz, Array1<std::int32_t>(4, 0)), 0);
  EXPECT_EQ(read_factor(s, lnz)(1, 1), 4.5);
  // An index outside 1..n, and an entry whose row is not in the structure: status 1.
  mmekit::sparse_ija bad = p;
  bad.ja(2) = 5;
  EXPECT_EQ(mmekit::load_matrix(4, bad.ia, bad.ja, bad.a, id, s.layout(), lnz, Array1<std::int32_t>(4, 0)), 1);
  bad = p;
  densem d2 = d;
  d2(1, 2) = d2(2, 1) = 0.5;  // (2,1) is not in the structure of d
  bad = upper_ija(d2);
  EXPECT_EQ(mmekit::load_matrix(4, bad.ia, bad.ja, bad.a, id, s.layout(), lnz, Array1<std::int32_t>(4, 0)), 1);
  // A panel-form root {1, 2} (panels of 1) cannot hold an element in row 3: a structure made
  // by hand that does not fit the matrix.
  Sx2Structure h;
  h.n = 3;
  h.nsn = 2;
  h.panel = 1;
  h.xsuper = mmekit::test::ints({1, 3, 4});
  h.snode = mmekit::test::ints({1, 1, 2});
  h.snparent = mmekit::test::ints({0, 0});
  h.xlindx = Array1<std::int64_t>(3, 1);
  h.lindx = Array1<std::int32_t>(0);
  h.xlnz = Array1<std::int64_t>(3);
  h.xlnz(1) = 1;
  h.xlnz(2) = 1 + mmekit::sx2_size(2, 0, 1);
  h.xlnz(3) = h.xlnz(2) + 1;
  ASSERT_TRUE(h.layout().panel_form(1));
  densem e(3, 0.0);
  for (std::int64_t i = 1; i <= 3; ++i) e(i, i) = 2;
  e(1, 3) = e(3, 1) = 1;  // row 3 of column 1 lies outside the root {1, 2}
  const mmekit::sparse_ija pe = upper_ija(e);
  Array1<double> lh(h.xlnz(3) - 1);
  mmekit::test::expect_stop(
      [&] { mmekit::load_matrix(3, pe.ia, pe.ja, pe.a, identity(3), h.layout(), lh, Array1<std::int32_t>(3, 0)); },
      "ERROR: set_sx2_factor_element() Element not allocated");
}

// A substituted routine is the one called: counting wrappers see the level-3 calls, and a
// dpotrf that reports failure makes the plain route fail with status 8.
mmekit::SkeldaBlas counting;
int n_syrk = 0, n_gemm = 0, n_potrf = 0, n_trsm = 0;
TEST(SkeldaNumeric, SubstitutedRoutinesAreCalled) {
  n_syrk = n_gemm = n_potrf = n_trsm = 0;
  counting = mmekit::default_skelda_blas();
  counting.dsyrk = [](char u, char t, mmekit::blas_int n, mmekit::blas_int k, double al, const double* a,
                      mmekit::blas_int lda, double be, double* c, mmekit::blas_int ldc) {
    ++n_syrk;
    mmekit::default_skelda_blas().dsyrk(u, t, n, k, al, a, lda, be, c, ldc);
  };
  counting.dgemm = [](char ta, char tb, mmekit::blas_int m, mmekit::blas_int n, mmekit::blas_int k, double al,
                      const double* a, mmekit::blas_int lda, const double* b, mmekit::blas_int ldb, double be,
                      double* c, mmekit::blas_int ldc) {
    ++n_gemm;
    mmekit::default_skelda_blas().dgemm(ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
  };
  counting.dtrsm = [](char s, char u, char t, char d, mmekit::blas_int m, mmekit::blas_int n, double al,
                      const double* a, mmekit::blas_int lda, double* b, mmekit::blas_int ldb) {
    ++n_trsm;
    mmekit::default_skelda_blas().dtrsm(s, u, t, d, m, n, al, a, lda, b, ldb);
  };
  counting.dpotrf = [](char u, mmekit::blas_int n, double* a, mmekit::blas_int lda) {
    ++n_potrf;
    return mmekit::default_skelda_blas().dpotrf(u, n, a, lda);
  };
  const mmekit::sparse_ija p = skelda_test::grid2d(6, 6);
  Factored f = factorise(p, random_iperm(36, 2), {.small_update = 0}, 4, 2147483647, counting);
  ASSERT_EQ(f.status, 0);
  EXPECT_GT(n_syrk, 0);
  EXPECT_GT(n_gemm, 0);
  EXPECT_GT(n_trsm, 0);
  std::int64_t blocks = 0;  // dpotrf runs once per normal supernode and per block column of a panel root
  for (std::int32_t k = 1; k <= f.s.nsn; ++k)
    blocks += f.s.layout().panel_form(k) ? mmekit::sx2_blocks(f.s.layout().width(k), 4) : 1;
  EXPECT_EQ(n_potrf, blocks);
  EXPECT_TRUE(f.s.layout().panel_form(f.s.nsn));
  EXPECT_LT(max_diff(read_factor(f.s, f.lnz), lapack_cholesky(permuted(dense_of(p), random_iperm(36, 2)))), 1e-12);
  mmekit::SkeldaBlas failing = mmekit::default_skelda_blas();
  failing.dpotrf = [](char, mmekit::blas_int, double*, mmekit::blas_int) { return mmekit::blas_int{1}; };
  EXPECT_EQ(factorise(p, identity(36), {}, 256, 2147483647, failing).status, 8);
  // The dense kernel of the dependent-column route goes through ddot, dgemv and dscal.
  static int n_dot = 0, n_gemv = 0;
  n_dot = n_gemv = 0;
  mmekit::SkeldaBlas k2 = mmekit::default_skelda_blas();
  k2.ddot = [](mmekit::blas_int n, const double* x, mmekit::blas_int ix, const double* y, mmekit::blas_int iy) {
    ++n_dot;
    return mmekit::default_skelda_blas().ddot(n, x, ix, y, iy);
  };
  k2.dgemv = [](char t, mmekit::blas_int m, mmekit::blas_int n, double al, const double* a, mmekit::blas_int lda,
                const double* x, mmekit::blas_int ix, double be, double* y, mmekit::blas_int iy) {
    ++n_gemv;
    mmekit::default_skelda_blas().dgemv(t, m, n, al, a, lda, x, ix, be, y, iy);
  };
  Factored k = factorise(upper_ija(mmekit::test::random_spd(12, 1.0, 3)), identity(12),
                         {.kachman = true, .tol_abs = 1e-10, .tol_rel = 1e-10}, 256, 2147483647, k2);
  EXPECT_EQ(k.rank, 12);
  EXPECT_EQ(n_dot, 11);   // every column after the first
  EXPECT_EQ(n_gemv, 10);  // every column with columns before and rows below it
}

// The memory simulation: the temporary is the largest update that goes through it. An arrow
// whose hub is coupled to columns 1..3 reaches the hub by contiguous rows (no temporary); a
// matrix whose supernode rows skip a row of the target needs one.
TEST(SkeldaNumeric, MemorySimulation) {
  densem d(6, 0.0);
  for (std::int64_t i = 1; i <= 6; ++i) d(i, i) = 10;
  auto link = [&](int i, int j) { d(i, j) = d(j, i) = -1; };
  link(1, 4);
  link(1, 6);
  link(4, 5);
  link(5, 6);
  const mmekit::sparse_ija p = upper_ija(d);
  Sx2Structure s = skelda_test::reference_sx2(6, p.ia, p.ja, identity(6));
  // Column structures: 1 {4, 6}; 2 {}; 3 {}; 4 {5, 6}; 5 {6}; 6 {}. Supernodes {1}, {2}, {3},
  // {4, 5, 6}. The update of {4, 5, 6} by {1}: rows 4 and 6, positions 2 and 0, not consecutive:
  // both rows are columns of the target, a 2-by-2 temporary.
  ASSERT_EQ(s.nsn, 4);
  ASSERT_EQ(s.lx_size, 3 + 1 + 1 + 9);
  mmekit::CaptureOutput cap;
  const mmekit::SnllMemory mem = mmekit::snll_simulate(s.layout(), s.lx_size, 3);
  EXPECT_EQ(mem.tmp, 4);
  EXPECT_EQ(mem.lj, 9);
  // tmp, the widest supernode for diag0, and the index words (link and remain of nsn+1, relidx
  // of n+1, gather of the most rows + 1) in 8-byte words.
  EXPECT_EQ(mem.max_mem, 4 + 3 + (5 + 5 + 7 + 3 + 1) / 2);
  const double mb = 8.0 / 1048576.0;
  EXPECT_EQ(cap.text(), "SKELDA_FAC_SNLL\nsimulation supernodal left-looking\nsize: maxMEM, TMP, LJ 17 4 9\n"
                        "MB  : maxMEM, TMP, LJ" + mmekit::free_format(17 * mb, 4 * mb, 9 * mb) + "\n" +
                        "maxMEM/|Lx|=" + mmekit::free_format(17.0 / 14.0) + "\n");
  cap.clear();
  mmekit::snll_simulate(s.layout(), s.lx_size, 2);
  EXPECT_EQ(cap.text(), "");
  // The factor is right all the same.
  Factored f = factorise(p, identity(6), {});
  EXPECT_LT(max_diff(read_factor(f.s, f.lnz), lapack_cholesky(d)), 1e-13);
}

}  // namespace

namespace {

using mmekit::skeldatask;


void set_param(std::int32_t index, std::int64_t value) {
  std::int64_t v = value;
  skeldatask(2, {.parnum = &index, .parval8 = &v});
}

// The task chain with the library's symbolic step (false) or the plain one of the tests (true).
class SkeldaNumericTask : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    skelda_test::fresh_state_with_reference_symfac();
    if (!GetParam()) mmekit::skelda_steps().symfac = mmekit::skelda_symfac_step;
  }
  void TearDown() override { mmekit::skelda_state = mmekit::SkeldaState{}; }
};
INSTANTIATE_TEST_SUITE_P(BothSymbolicSteps, SkeldaNumericTask, ::testing::Bool());

// The task through the front end on the small generated MME (rank n-1): results, printouts,
// the generalised log-determinant, constraints, the plain route's failure, and the statuses
// of the step.
TEST_P(SkeldaNumericTask, FactorisesTheMme) {
  mmekit::test::SmallMme mme = mmekit::test::small_mme(100, 7);
  mmekit::sparse_ija& p = mme.ija;
  const std::int32_t n = p.n;
  std::int32_t st = -1, rank = -1, verbose = 3;
  double det = 0;
  skeldatask(0);
  set_param(mmekit::kLogdetOnFactor, 1);
  mmekit::CaptureOutput cap;
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .det = &det, .verbose = &verbose,
                  .status = &st});
  const std::string text = cap.text();
  ASSERT_EQ(st, 0) << text;
  EXPECT_EQ(rank, n - 1);
  mmekit::SkeldaState& s = mmekit::skelda_state;
  EXPECT_EQ(s.stage(), 30);
  EXPECT_EQ(s.iparm(mmekit::kRank), n - 1);
  EXPECT_EQ(s.iparm(mmekit::kFlaggedColumns), 1);
  EXPECT_GT(s.iparm(mmekit::kTempFact), 0);
  EXPECT_NE(text.find("SKELDA_FAC_SNLL\nsimulation supernodal left-looking\nsize: maxMEM, TMP, LJ " +
                      std::to_string(s.iparm(mmekit::kTempFact)) + " "),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("   rank     = " + std::to_string(n - 1) + "\n   lost     = 1\n"), std::string::npos) << text;
  // The log-determinant is that of the matrix without the lost column (original numbering).
  Array1<std::int32_t> getc(n, 0);
  skeldatask(7, {.getc = &getc, .status = &st});
  ASSERT_EQ(st, 0);
  std::vector<std::int64_t> kept;
  for (std::int32_t i = 1; i <= n; ++i)
    if (getc(i) == 0) kept.push_back(i);
    else EXPECT_EQ(getc(i), -1);
  ASSERT_EQ(static_cast<std::int32_t>(kept.size()), n - 1);
  const densem a = dense_of(p);
  densem sub(n - 1, 0.0);
  for (std::int32_t j = 1; j < n; ++j)
    for (std::int32_t i = 1; i < n; ++i) sub(i, j) = a(kept[i - 1], kept[j - 1]);
  double ref = 0;
  mmekit::test::lapack_spd_inverse(sub, &ref);
  EXPECT_NEAR(det, ref, 1e-9 * std::abs(ref));
  EXPECT_EQ(s.rparm(41), det);

  // Constraints: the first herd-year fixed at zero. It loads as a unit column, the rest is
  // regular, the dependent-column detection is off: rank n, the caller's word stays as given.
  Array1<std::int32_t> setc(n, 0);
  setc(1) = 5;
  skeldatask(6, {.setc = &setc, .status = &st});
  ASSERT_EQ(st, 0);
  cap.clear();
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .verbose = &verbose, .status = &st});
  ASSERT_EQ(st, 0) << cap.text();
  EXPECT_NE(cap.text().find("<numfac> new matrix: previous factor is cleared (zero-filled)."), std::string::npos);
  EXPECT_NE(cap.text().find("   rank     = " + std::to_string(n) + "\n   lost     = 0\n"), std::string::npos);
  EXPECT_EQ(rank, n);
  EXPECT_EQ(s.iparm(mmekit::kFlaggedColumns), 1);
  skeldatask(7, {.getc = &getc, .status = &st});
  EXPECT_EQ(getc(1), 5);
  for (std::int32_t i = 2; i <= n; ++i) EXPECT_EQ(getc(i), 0);
  const mmekit::Sx2Layout l = mmekit::skelda_layout();
  const std::int32_t c1 = (*s.iperm)(1);
  EXPECT_EQ((*s.lnz)(l.diag_position((*s.snode)(c1), c1 - l.first((*s.snode)(c1)) + 1,
                                     c1 - l.first((*s.snode)(c1)) + 1)),
            1.0);

  // Without the detection the singular matrix fails in the dense factorisation: status 8.
  skeldatask(0);
  set_param(mmekit::kKachman, 0);
  std::int32_t one = 1;
  cap.clear();
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .verbose = &one, .status = &st});
  EXPECT_EQ(st, 8);
  EXPECT_EQ(cap.text(), " SKELDATASK: [numfac] Trouble in numerical fact (maybe BLAS/LAPACK error).\n");
  EXPECT_EQ(s.stage(), 20);
  std::int32_t minus = -1;
  mmekit::test::expect_stop(
      [&] { skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .verbose = &minus, .status = &st}); },
      " SKELDATASK: [numfac] Trouble in numerical fact (maybe BLAS/LAPACK error).");
}

// The statuses of the step called directly, and the matrix that is not loaded.
TEST_P(SkeldaNumericTask, StatusesAndNoLoad) {
  const mmekit::sparse_ija p = skelda_test::grid2d(4, 3);
  const std::int32_t n = p.n;
  std::int32_t st = -1, rank = -1, two = 2;
  skeldatask(0);
  EXPECT_EQ(mmekit::skelda_numfac(n, p.ia, p.ja, p.a, rank, nullptr, 0), 3);  // no structure yet
  skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  ASSERT_EQ(st, 0);
  EXPECT_EQ(mmekit::skelda_numfac(n - 1, p.ia, p.ja, p.a, rank, nullptr, 0), 4);
  mmekit::sparse_ija q = p;
  q.ia(n + 1) += 1;
  EXPECT_EQ(mmekit::skelda_numfac(n, q.ia, q.ja, q.a, rank, nullptr, 0), 4);
  // A pattern of the same size that the structure does not hold: the load fails, status 5.
  q = p;
  q.ja(2) = n;  // row 1 couples to the last column instead of column 2
  EXPECT_EQ(mmekit::skelda_numfac(n, q.ia, q.ja, q.a, rank, nullptr, 0), 5);
  EXPECT_EQ(mmekit::skelda_state.stage(), 20);
  // Regular: rank n, nothing flagged.
  EXPECT_EQ(mmekit::skelda_numfac(n, p.ia, p.ja, p.a, rank, nullptr, 0), 0);
  EXPECT_EQ(rank, n);
  EXPECT_EQ(mmekit::skelda_state.iparm(mmekit::kFlaggedColumns), 0);
  // Not loaded: the note at verbosity 2, and the cleared factor has every column lost.
  set_param(mmekit::kNoLoad, 1);
  mmekit::CaptureOutput cap;
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &q.a, .ival = &rank, .verbose = &two, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(rank, 0);
  EXPECT_NE(cap.text().find("NOTE: The sparse matrix is not loaded to the internal storage.\n"), std::string::npos)
      << cap.text();
  EXPECT_EQ(cap.text().find("   rank     ="), std::string::npos);  // only above verbosity 2
  // A caller's factor with an infinite pivot: the log-determinant fails with status 10.
  skeldatask(1);
  set_param(mmekit::kKachman, 0);
  set_param(mmekit::kLogdetOnFactor, 1);
  const mmekit::Sx2Layout l = mmekit::skelda_layout();
  mmekit::SkeldaState& s = mmekit::skelda_state;
  for (std::int32_t k = 1; k <= l.nsn; ++k)
    for (std::int64_t c = 1; c <= l.width(k); ++c) (*s.lnz)(l.diag_position(k, c, c)) = 1.0;
  (*s.lnz)(l.diag_position(1, 1, 1)) = std::numeric_limits<double>::infinity();
  EXPECT_EQ(mmekit::skelda_numfac(n, p.ia, p.ja, p.a, rank, nullptr, 0), 10);
  EXPECT_EQ(s.stage(), 30);  // the factor itself was made
  skeldatask(0);
}

}  // namespace

namespace {

// The multifrontal factor of the loaded matrix.
Factored factorise_mf(const mmekit::sparse_ija& p, const Array1<std::int32_t>& iperm, const mmekit::MfOptions& opt,
                      std::int64_t panel = 256, std::int64_t split = 2147483647, std::int32_t verbose = 0) {
  Factored f;
  f.s = skelda_test::reference_sx2(p.n, p.ia, p.ja, iperm, panel, split);
  f.lnz = Array1<double>(f.s.lx_size, 0.0);
  f.cflag = Array1<std::int32_t>(p.n, 0);
  EXPECT_EQ(mmekit::load_matrix(p.n, p.ia, p.ja, p.a, iperm, f.s.layout(), f.lnz, f.cflag), 0);
  f.status = mmekit::supernodal_sx2_mf_omp_v1(f.s.layout(), f.s.snparent, f.lnz, f.cflag, opt,
                                              mmekit::default_skelda_blas(), f.rank, verbose);
  return f;
}

// The multifrontal factor equals the left-looking one to rounding: regular and singular
// matrices, both update variants, panel roots, cut supernodes, L and LDL.
TEST(SkeldaMultifrontal, EqualsLeftLooking) {
  std::vector<mmekit::sparse_ija> cases = {upper_ija(mmekit::test::random_spd(60, 0.06, 3)),
                                           skelda_test::grid2d(7, 6), skelda_test::disconnected(),
                                           mmekit::test::small_mme(100, 7).ija};
  for (std::size_t k = 0; k < cases.size(); ++k) {
    const mmekit::sparse_ija& p = cases[k];
    const bool singular = k == 3;
    const Array1<std::int32_t> iperm = random_iperm(p.n, 30 + static_cast<unsigned>(k));
    for (const std::int64_t panel : {256, 4})
      for (const std::int64_t split : {2147483647, 3})
        for (const int variant : {1, 2})
          for (const bool ldl : {false, true}) {
            SCOPED_TRACE("case " + std::to_string(k) + " p=" + std::to_string(panel) + " T=" + std::to_string(split) +
                         " variant=" + std::to_string(variant) + " ldl=" + std::to_string(ldl));
            mmekit::SnllOptions lo;
            lo.kachman = true;
            lo.ldl = ldl;
            lo.tol_abs = lo.tol_rel = 1e-10;
            mmekit::MfOptions mo;
            mo.kachman = singular || ldl;  // the plain route where the matrix allows it
            lo.kachman = mo.kachman;
            mo.ldl = ldl;
            mo.tol_abs = mo.tol_rel = 1e-10;
            mo.variant = variant;
            Factored a = factorise(p, iperm, lo, panel, split);
            Factored b = factorise_mf(p, iperm, mo, panel, split);
            ASSERT_EQ(a.status, 0);
            ASSERT_EQ(b.status, 0);
            EXPECT_EQ(a.rank, b.rank);
            EXPECT_EQ(b.rank, singular ? p.n - 1 : p.n);
            EXPECT_EQ(a.cflag, b.cflag);
            const densem la = read_factor(a.s, a.lnz), lb = read_factor(b.s, b.lnz);
            EXPECT_LT(max_diff(la, lb), 1e-9);
            if (!singular && !ldl) {
              EXPECT_LT(max_diff(lb, lapack_cholesky(permuted(dense_of(p), iperm))), 1e-11);
            }
          }
  }
  // A singular matrix without the detection fails in the dense factorisation.
  const mmekit::sparse_ija mme = mmekit::test::small_mme(100, 7).ija;
  EXPECT_EQ(factorise_mf(mme, identity(mme.n), {}).status, 8);
}

// The messages: the simulation and its sizes, the roots, the timers, the trace, and the stops
// for a job list that misses supernodes and for a child row its parent does not hold.
TEST(SkeldaMultifrontal, MessagesAndSimulation) {
  // The arrow: supernodes {1}, {2} with row 4 below, root {3, 4}. Two updates of 1 by 1 are on
  // the stack at once.
  densem d(4, 0.0);
  for (std::int64_t i = 1; i <= 4; ++i) d(i, i) = 10 + i;
  for (std::int64_t i = 1; i <= 3; ++i) d(i, 4) = d(4, i) = -i;
  const mmekit::sparse_ija p = upper_ija(d);
  Sx2Structure s = skelda_test::reference_sx2(4, p.ia, p.ja, identity(4));
  ASSERT_EQ(s.nsn, 3);
  EXPECT_EQ(mmekit::mf_job_list(3, s.snparent), (std::vector<std::int32_t>{1, 2, 3}));
  mmekit::CaptureOutput cap;
  const mmekit::MfMemory mem = mmekit::supernodal_sx2_mf_simulate(s.layout(), s.snparent, 3);
  EXPECT_EQ(mem.mem_c, 1);
  EXPECT_EQ(mem.mem_u, 2);
  EXPECT_EQ(mem.mem_uidx, 2);
  EXPECT_EQ(mem.mem_extd, 1);
  EXPECT_EQ(mem.max_mem, 1 + 2 + (2 + 1 + 1) / 2);
  const double mb8 = 8.0 / 1048576.0, mb4 = 4.0 / 1048576.0;
  EXPECT_EQ(cap.text(), "simulation: supernodal_sx2_mf_omp_v1()\nnworkers= 1\n"
                        "memC    (size, MB)=" + mmekit::free_format(1, mb8) + "\n" +
                        "memU    (size, MB)=" + mmekit::free_format(2, 2 * mb8) + "\n" +
                        "memUIDX (size, MB)=" + mmekit::free_format(2, 2 * mb4) + "\n" +
                        "memEXTD (size, MB)=" + mmekit::free_format(1, mb4) + "\n");
  // Job list of a forest: children before parents, roots ascending.
  EXPECT_EQ(mmekit::mf_job_list(5, mmekit::test::ints({3, 3, 0, 5, 0})), (std::vector<std::int32_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(mmekit::mf_job_list(5, mmekit::test::ints({5, 4, 4, 5, 0})), (std::vector<std::int32_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(mmekit::mf_job_list(4, mmekit::test::ints({4, 3, 4, 0})), (std::vector<std::int32_t>{1, 2, 3, 4}));
  mmekit::test::expect_stop([] { mmekit::mf_job_list(3, mmekit::test::ints({2, 1, 0})); },
                            "ERROR: The joblist does not capture all nodes.");
  mmekit::test::expect_stop([] { mmekit::mf_job_list(2, mmekit::test::ints({0, 7})); },
                            "ERROR: The joblist does not capture all nodes.");

  // The run at verbosity 3: the variant, two roots (the arrow and a lone column), the summary.
  densem e(5, 0.0);
  for (std::int64_t i = 1; i <= 4; ++i)
    for (std::int64_t j = 1; j <= 4; ++j) e(i, j) = d(i, j);
  e(5, 5) = 3;
  const mmekit::sparse_ija q = upper_ija(e);
  cap.clear();
  Factored f = factorise_mf(q, identity(5), {.variant = 2}, 256, 2147483647, 3);
  ASSERT_EQ(f.status, 0);
  EXPECT_LT(max_diff(read_factor(f.s, f.lnz), lapack_cholesky(e)), 1e-13);
  const std::string t = cap.text();
  EXPECT_EQ(t.rfind("VARIANT 2 ********************\nThe matrix has 2 roots\nsimulation: supernodal_sx2_mf_omp_v1()\n", 0),
            0u)
      << t;
  std::size_t at = 0;
  for (const char* label : {"prep\n", "Total POP(ext-add) ", "Total ALLOCATE ", "Total POP(ext-add+alloc) ",
                            "Total MOD ", "Total PUSH ", "Total MOD panel ", "maxMEM 5\n"}) {
    const std::size_t k = t.find(label, at);
    EXPECT_NE(k, std::string::npos) << label << t;
    if (k != std::string::npos) at = k;
  }
  EXPECT_EQ(t.find("pop  norm"), std::string::npos);  // the trace only above verbosity 4
  cap.clear();
  factorise_mf(q, identity(5), {}, 256, 2147483647, 2);
  EXPECT_EQ(cap.text(), "");
  // The trace, with a panel root: a dense 6 over panels of 4 under a leaf.
  densem g = mmekit::test::random_spd(7, 1.0, 2);
  for (std::int64_t j = 2; j <= 6; ++j) g(1, j) = g(j, 1) = 0;  // column 1 couples to 7 only
  cap.clear();
  f = factorise_mf(upper_ija(g), identity(7), {}, 4, 2147483647, 5);
  EXPECT_EQ(f.s.nsn, 2);
  EXPECT_TRUE(f.s.layout().panel_form(2));
  ASSERT_EQ(f.status, 0);
  EXPECT_LT(max_diff(read_factor(f.s, f.lnz), lapack_cholesky(g)), 1e-12);
  const std::string tr = cap.text();
  EXPECT_NE(tr.find("VARIANT 1 ********************\n"), std::string::npos);
  for (const char* label : {"pop  norm 1 0\nmod  norm 1 1 1\npush norm 1 1\npop  panel 2 1\n - index 1 1\n"
                            " - U value 1\nmod  panel 2 6 0\nnext/full 1 2\nnext/full 2 2\n"})
    EXPECT_NE(tr.find(label), std::string::npos) << label << tr;

  // A supernode with a row below it that its parent does not hold.
  Sx2Structure h;
  h.n = 3;
  h.nsn = 2;
  h.xsuper = mmekit::test::ints({1, 2, 4});
  h.snode = mmekit::test::ints({1, 2, 2});
  h.snparent = mmekit::test::ints({2, 0});
  h.xlindx = Array1<std::int64_t>(3);
  h.xlindx(1) = 1;
  h.xlindx(2) = h.xlindx(3) = 2;
  h.lindx = mmekit::test::ints({2});
  h.xlnz = Array1<std::int64_t>(3);
  h.xlnz(1) = 1;
  h.xlnz(2) = 3;
  h.xlnz(3) = 7;
  Array1<double> lh(6, 0.0);
  lh(1) = 4;
  lh(2) = 1;
  lh(3) = lh(6) = 4;
  Array1<std::int32_t> fl(3, 0);
  std::int64_t rank = 0;
  h.lindx(1) = 2;
  EXPECT_EQ(mmekit::supernodal_sx2_mf_omp_v1(h.layout(), h.snparent, lh, fl, {}, mmekit::default_skelda_blas(), rank, 0),
            0);
  EXPECT_EQ(rank, 3);
  EXPECT_DOUBLE_EQ(lh(3), std::sqrt(4 - 0.25));  // the child's update reached the parent
  h.xsuper = mmekit::test::ints({1, 2, 4});
  h.lindx(1) = 2;
  Sx2Structure bad = h;
  bad.xsuper = mmekit::test::ints({1, 2, 3});  // parent {2} only: width 1
  bad.snode = mmekit::test::ints({1, 2, 2});
  bad.lindx(1) = 3;  // the child's row 3 is neither a column nor a row of the parent
  bad.xlnz(3) = 4;
  Array1<double> lb(6, 1.0);
  mmekit::test::expect_stop(
      [&] {
        mmekit::supernodal_sx2_mf_omp_v1(bad.layout(), bad.snparent, lb, fl, {}, mmekit::default_skelda_blas(), rank, 0);
      },
      "ERROR: set_relative_indices2() ridx is not determined.");
  // A supernode with a row below it that claims to be a root: its update stays on the stack.
  Sx2Structure root = h;
  root.snparent = mmekit::test::ints({0, 0});
  Array1<double> lr(6, 0.0);
  lr(1) = lr(3) = lr(6) = 4;
  cap.clear();
  EXPECT_EQ(mmekit::supernodal_sx2_mf_omp_v1(root.layout(), root.snparent, lr, fl, {}, mmekit::default_skelda_blas(),
                                             rank, 0),
            0);
  EXPECT_EQ(cap.text(), "ERROR: Not deallocated C\nERROR: Not deallocated UIDX\n");
}

}  // namespace

namespace {

// End to end through the task with the library's ordering and symbolic steps: the factor in
// the state equals LAPACK's Cholesky of the matrix under the state's permutation, for L and
// LDL, panel roots with padding (small iparm(10)), the detected panel size (iparm(3)) and cut
// supernodes (iparm(12)).
TEST(SkeldaNumericChain, FactorOfTheState) {
  std::vector<mmekit::sparse_ija> cases = {upper_ija(mmekit::test::random_spd(80, 0.05, 17)),
                                           skelda_test::grid2d(9, 8), mmekit::test::small_mme(100, 7).ija};
  struct Setting {
    std::int64_t panel, detect, split, type;
  };
  const Setting settings[] = {{256, 0, 2147483647, 2}, {256, 0, 2147483647, 1}, {4, 0, 2147483647, 2},
                              {3, 0, 2, 1},           {256, 1, 2147483647, 2}, {5, 0, 3, 2}};
  for (std::size_t k = 0; k < cases.size(); ++k)
    for (const Setting& st : settings) {
      SCOPED_TRACE("case " + std::to_string(k) + " p=" + std::to_string(st.panel) + " detect=" +
                   std::to_string(st.detect) + " T=" + std::to_string(st.split) + " type=" + std::to_string(st.type));
      mmekit::skelda_state = mmekit::SkeldaState{};
      mmekit::skelda_steps() = mmekit::SkeldaSteps{};
      mmekit::skelda_steps().symfac = mmekit::skelda_symfac_step;
      mmekit::skelda_steps().numfac = mmekit::skelda_numfac_step;
      mmekit::sparse_ija& p = cases[k];
      const std::int32_t n = p.n;
      skeldatask(0);
      set_param(mmekit::kPanelSize, st.panel);
      set_param(mmekit::kDetectPanel, st.detect);
      set_param(mmekit::kSplitThreshold, st.split);
      set_param(mmekit::kFactorType, st.type);
      std::int32_t status = -1, rank = -1;
      skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .status = &status});
      ASSERT_EQ(status, 0);
      mmekit::SkeldaState& s = mmekit::skelda_state;
      const mmekit::Sx2Layout l = mmekit::skelda_layout();
      bool any_panel = false;
      for (std::int32_t j = 1; j <= l.nsn; ++j) any_panel = any_panel || l.panel_form(j);
      EXPECT_EQ(any_panel, st.panel <= 5 && !st.detect);  // the small panels do make panel-form roots
      densem f = read_factor(l, *s.lnz);
      const densem a = permuted(dense_of(p), *s.iperm);
      if (k < 2) {
        if (st.type == 2) f = cholesky_of_ldl(f);
        EXPECT_EQ(rank, n);
        EXPECT_LT(max_diff(f, lapack_cholesky(a)), 1e-11);
        continue;
      }
      // The singular MME: the kept columns against the Cholesky of the matrix without the lost one.
      EXPECT_EQ(rank, n - 1);
      std::vector<std::int64_t> kept;
      for (std::int32_t i = 1; i <= n; ++i)
        if (((*s.cflag)(i) & 1) == 0) kept.push_back(i);
      ASSERT_EQ(static_cast<std::int64_t>(kept.size()), n - 1);
      if (st.type == 2) f = cholesky_of_ldl(f);
      densem sub(n - 1, 0.0), fs(n - 1, 0.0);
      for (std::int64_t j = 1; j < n; ++j)
        for (std::int64_t i = 1; i < n; ++i) {
          sub(i, j) = a(kept[i - 1], kept[j - 1]);
          fs(i, j) = i >= j ? f(kept[i - 1], kept[j - 1]) : 0.0;
        }
      EXPECT_LT(max_diff(fs, lapack_cholesky(sub)), 1e-8);
    }
  mmekit::skelda_state = mmekit::SkeldaState{};
}

}  // namespace
