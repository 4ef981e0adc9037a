// Block, trace and quadratic forms on dense, hash and row-form matrices, against the dense
// products of the library and against hand-worked small cases.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/forms.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "sparse/test_helpers.hpp"

using namespace mmekit;
using mmekit::test::array1;
using mmekit::test::expect_stop;

namespace {

// A random symmetric matrix, every other diagonal present, in all the kinds.
struct Sym : sparse_test::RandomSymmetric {
  sparse_ija up, full;
  Sym(int n, unsigned seed) : RandomSymmetric(n, seed, 2), up(ija()), full(ija(true)) {}
};

// A row form built by hand from its rows: each row a list of (column, value), diagonal first.
sparse_ija ija_by_rows(const std::vector<std::vector<std::pair<int, double>>>& rows) {
  sparse_ija a;
  a.n = static_cast<std::int32_t>(rows.size());
  for (const auto& r : rows) a.nel += static_cast<std::int32_t>(r.size());
  a.ia = Array1<std::int32_t>(a.n + 1);
  a.ja = Array1<std::int32_t>(a.nel);
  a.a = Array1<double>(a.nel);
  int k = 1;
  for (int i = 1; i <= a.n; ++i) {
    a.ia(i) = k;
    for (const auto& [j, v] : rows[i - 1]) {
      a.ja(k) = j;
      a.a(k++) = v;
    }
  }
  a.ia(a.n + 1) = k;
  return a;
}

densem dense2(double a11, double a12, double a21, double a22) { return dense_test::from_rows({{a11, a12}, {a21, a22}}); }

sparse_hashm sorted_copy(const sparse_hashm& h) {
  sparse_hashm s;
  copy_sparse_hashm(s, h);
  sort_sparse_hashm(s);
  return s;
}

}  // namespace

TEST(FormsBlock, BlocksByRangeAndStepInEveryKind) {
  Sym s(12, 11);
  densem t;
  BLOCK_DENSEM(t, s.d, 1, 12, 1, 12);  // step 1 over the whole range is a copy
  EXPECT_EQ(t, s.d);
  // A range whose length is no multiple of the step ends at the last element inside it.
  BLOCK_DENSEM(t, s.d, 3, 8, 1, 6, 3);
  EXPECT_EQ(t, dense2(s.d(3, 1), s.d(3, 4), s.d(6, 1), s.d(6, 4)));
  // A target of another order is reallocated and cleared; a target may be its own source.
  densem self = s.d;
  BLOCK_DENSEM(self, self, 4, 6, 4, 6);
  ASSERT_EQ(self.order(), 3);
  EXPECT_EQ(std::make_pair(self(1, 3), self(3, 1)), std::make_pair(s.d(4, 6), s.d(6, 4)));

  // Rows 2, 4, .., 10 and columns 4, 6, .., 12: the block crosses the diagonal. Upper storage
  // reads a position below the diagonal as zero; the full form holds it.
  const std::int32_t i1 = 2, i2 = 10, j1 = 4, j2 = 12, step = 2, order = 5;
  densem td, th, tu, tf;
  BLOCK_DENSEM(td, s.d, i1, i2, j1, j2, step);
  BLOCK_HASHM(th, s.h, i1, i2, j1, j2, step);
  BLOCK_IJA(tu, s.up, i1, i2, j1, j2, step);
  BLOCK_IJA(tf, s.full, i1, i2, j1, j2, step);
  int below = 0;
  for (int r = 1; r <= order; ++r)
    for (int c = 1; c <= order; ++c) {
      const int p = i1 + (r - 1) * step, q = j1 + (c - 1) * step;
      const double upper_read = p <= q ? s.d(p, q) : 0.0;
      if (p > q && s.d(p, q) != 0.0) ++below;
      EXPECT_EQ(std::make_tuple(td(r, c), th(r, c), tu(r, c), tf(r, c)), std::make_tuple(s.d(p, q), upper_read, upper_read, s.d(p, q)))
          << p << ' ' << q;
    }
  EXPECT_GT(below, 0);
  // A row that holds a column twice reads as its element access does: the first one counts.
  const sparse_ija dup = ija_by_rows({{{1, 1.0}, {2, 5.0}, {2, 7.0}}, {{2, 3.0}}});
  BLOCK_IJA(tu, dup, 1, 2, 1, 2);
  EXPECT_EQ(tu, dense2(1.0, 5.0, 0.0, 3.0));
}

TEST(FormsQuadr, HandCaseAndAllKindsAgree) {
  // x = (1, 2), A = [1 2; 3 4], y = (5, 6): A y = (17, 39), x'A y = 17 + 78 = 95.
  EXPECT_EQ(QUADR_DENSEM(array1<double>({1, 2}), dense2(1, 2, 3, 4), array1<double>({5, 6})), 95.0);
  // The same nonsymmetric matrix in the full row form (lower elements present, read as stored).
  const sparse_ija nonsym = ija_by_rows({{{1, 1.0}, {2, 2.0}}, {{2, 4.0}, {1, 3.0}}});
  EXPECT_EQ(QUADR_IJA(array1<double>({1, 2}), nonsym, array1<double>({5, 6})), 95.0);
  // Upper form of [1 2; 2 4]: the off-diagonal element counts twice: 5 + 2*6 + 2*2*5 + 4*2*6 = 85.
  const sparse_ija upper = ija_by_rows({{{1, 1.0}, {2, 2.0}}, {{2, 4.0}}});
  EXPECT_EQ(QUADR_IJA(array1<double>({1, 2}), upper, array1<double>({5, 6})), 85.0);

  Sym s(13, 5);
  std::mt19937 gen(17);
  std::uniform_int_distribution<int> v(-9, 9);
  Array1<double> x(13), y(13);
  for (int i = 1; i <= 13; ++i) x(i) = v(gen) / 2.0, y(i) = v(gen) / 4.0;
  const double expect = dot(x, matvec(s.d, y));
  EXPECT_NEAR(QUADR_DENSEM(x, s.d, y), expect, 1e-10);
  EXPECT_NEAR(QUADR_HASHM(x, s.h, y), expect, 1e-10);
  EXPECT_NEAR(QUADR_HASHM(x, sorted_copy(s.h), y), expect, 1e-10);
  EXPECT_NEAR(QUADR_IJA(x, s.up, y), expect, 1e-10);
  EXPECT_NEAR(QUADR_IJA(x, s.full, y), expect, 1e-10);
}

TEST(FormsTrace, HandCasesAndAllKindsAgree) {
  // [1 2; 3 4] [5 6; 7 8] = [19 22; 43 50], trace 69 (not the sum of the element-wise
  // products, which is 70).
  EXPECT_EQ(TRACE_DENSEM(dense2(1, 2, 3, 4), dense2(5, 6, 7, 8)), 69.0);
  EXPECT_EQ(TRACE_DENSEM(densem(), densem()), 0.0);
  Sym a(14, 21), b(14, 22);
  const double expect = trace(matmul(a.d, b.d));
  CaptureOutput cap;
  EXPECT_NEAR(TRACE_DENSEM(a.d, b.d), expect, 1e-9);
  EXPECT_NEAR(TRACE_HASHM(a.h, b.h), expect, 1e-9);
  EXPECT_NEAR(TRACE_HASHM(sorted_copy(a.h), b.h), expect, 1e-9);  // the first may be sorted
  EXPECT_NEAR(TRACE_IJA(a.up, b.up), expect, 1e-9);
  EXPECT_NEAR(TRACE_IJA(a.full, b.full), expect, 1e-9);
  EXPECT_NEAR(TRACE_IJA(a.up, b.full), expect, 1e-9);
  EXPECT_NEAR(TRACE_IJA(a.full, b.up), expect, 1e-9);
  // diag(1, 2, 3) and diag(4, 5, 6): 4 + 10 + 18 = 32; both triangle sums are zero.
  const sparse_hashm ha = sparse_test::hash_with(3, {{1, 1, 1}, {2, 2, 2}, {3, 3, 3}}),
                     hb = sparse_test::hash_with(3, {{1, 1, 4}, {2, 2, 5}, {3, 3, 6}});
  sparse_ija ia, ib;
  CONVERT_HASH_IJA(ia, ha);
  CONVERT_HASH_IJA(ib, hb);
  EXPECT_EQ(std::make_pair(TRACE_HASHM(ha, hb), TRACE_IJA(ia, ib)), std::make_pair(32.0, 32.0));
  EXPECT_EQ(cap.text(), "");  // symmetric matrices: no warning
}

TEST(FormsTrace, InconsistentTrianglesWarnAndReturn) {
  // Full form of the nonsymmetric [1 1; 3 1] with itself: lower 3*3 = 9, diagonal 2, upper 1.
  const sparse_ija ns = ija_by_rows({{{1, 1.0}, {2, 1.0}}, {{2, 1.0}, {1, 3.0}}});
  // An upper form against that full form: its element (1, 2) = 2 meets 1 above and 3 below.
  const sparse_ija up = ija_by_rows({{{1, 1.0}, {2, 2.0}}, {{2, 1.0}}});
  // The limit is a relative difference of 1e-06: 1 against 1 - 2e-6 warns, against 1 - 5e-7 not.
  const sparse_ija warn = ija_by_rows({{{1, 0.0}, {2, 1.0}}, {{2, 0.0}, {1, 1.0 - 2e-6}}});
  const sparse_ija quiet = ija_by_rows({{{1, 0.0}, {2, 1.0}}, {{2, 0.0}, {1, 1.0 - 5e-7}}});
  const sparse_ija ones = ija_by_rows({{{1, 0.0}, {2, 1.0}}, {{2, 0.0}, {1, 1.0}}});
  CaptureOutput cap;
  EXPECT_EQ(TRACE_IJA(ns, ns), 12.0);
  EXPECT_EQ(TRACE_IJA(up, ns), 10.0);
  EXPECT_NEAR(TRACE_IJA(warn, ones), 2.0 - 2e-6, 1e-15);
  EXPECT_NEAR(TRACE_IJA(quiet, ones), 2.0 - 5e-7, 1e-15);
  EXPECT_EQ(cap.text(),
            "TRACE_IJA: inconsistent trace value: tr[lower,diag,upper]= 9.0 2.0 1.0\n"
            "TRACE_IJA: inconsistent trace value: tr[lower,diag,upper]= 6.0 2.0 2.0\n"
            "TRACE_IJA: inconsistent trace value: tr[lower,diag,upper]= 0.999998 0.0 1.0\n");
}

TEST(FormsBlockTrace, HandCaseAndAllKindsAgree) {
  // a = [5 6; 7 8] against the whole of b = [1 2; 3 4]: the sum of a(r, c) b(c, r) is
  // 5*1 + 6*3 + 7*2 + 8*4 = 69, the trace of a b = [23 34; 31 46]; an empty a gives 0.
  EXPECT_EQ(BLOCKTRACE_DENSEM(dense2(5, 6, 7, 8), dense2(1, 2, 3, 4), 1, 2, 1, 2), 69.0);
  EXPECT_EQ(BLOCKTRACE_DENSEM(densem(), dense2(1, 2, 3, 4), 1, 2, 1, 2), 0.0);
  Sym s(15, 31);
  EXPECT_EQ(std::make_pair(BLOCKTRACE_HASHM(densem(), s.h, 1, 2, 1, 2), BLOCKTRACE_IJA(densem(), s.up, 1, 2, 1, 2)),
            std::make_pair(0.0, 0.0));
  std::mt19937 gen(5);
  std::uniform_int_distribution<int> v(-8, 8);
  struct Case {
    int i1, i2, j1, j2, step;
  };
  // Diagonal blocks, blocks across the diagonal, blocks wholly above and below it, with steps.
  const Case cases[] = {{1, 15, 1, 15, 1}, {3, 8, 3, 8, 1},  {2, 10, 5, 13, 2}, {9, 15, 1, 7, 3},
                        {4, 4, 12, 12, 1}, {1, 13, 3, 15, 4}, {6, 12, 2, 8, 1}};
  const sparse_hashm sorted = sorted_copy(s.h);
  for (const Case& k : cases) {
    const int m = (k.i2 - k.i1) / k.step + 1;
    densem a(m, 0.0), blk(m, 0.0);  // a nonsymmetric small matrix and the block of s
    for (int r = 1; r <= m; ++r)
      for (int c = 1; c <= m; ++c) {
        a(r, c) = v(gen) / 2.0;
        blk(r, c) = s.d(k.i1 + (r - 1) * k.step, k.j1 + (c - 1) * k.step);
      }
    const double expect = trace(matmul(a, blk));
    SCOPED_TRACE("case " + std::to_string(&k - cases));
    EXPECT_NEAR(BLOCKTRACE_DENSEM(a, s.d, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
    EXPECT_NEAR(BLOCKTRACE_HASHM(a, s.h, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
    EXPECT_NEAR(BLOCKTRACE_IJA_HASHM(a, s.h, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
    EXPECT_NEAR(BLOCKTRACE_IJA_HASHM(a, sorted, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
    EXPECT_NEAR(BLOCKTRACE_IJA(a, s.up, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
    EXPECT_NEAR(BLOCKTRACE_IJA(a, s.full, k.i1, k.i2, k.j1, k.j2, k.step), expect, 1e-9);
  }
}

TEST(Forms, FailuresStopWithTheirMessages) {
  Sym s(6, 3), b(5, 1);
  densem t;
  const densem a2(2, 1.0);
  const Array1<double> x4(4, 1.0), x3(3, 1.0), x6(6, 1.0), x7(7, 1.0);
  sparse_hashm f;
  HASHM_UPPER_FULL(f, s.h);
  const sparse_hashm sorted = sorted_copy(s.h);
  // An element beyond the order (the hash matrix takes one) is refused rather than read past x.
  const sparse_hashm over = sparse_test::hash_with(3, {{2, 5, 1.0}});
  const std::string not_ready = "Structure sparse_hashm not ready; probably sorted";
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { BLOCK_IJA(t, s.up, INT32_MIN, INT32_MAX, 1, 1); }, "BLOCK_IJA: matrix not square"},
      {[&] { BLOCK_HASHM(t, s.h, 1, 3, 1, 3, -2); }, "BLOCK_HASHM: step not positive"},
      {[&] { BLOCK_IJA(t, s.up, 3, 1, 4, 2); }, "BLOCK_IJA: empty range"},
      {[&] { BLOCK_DENSEM(t, s.d, 0, 2, 1, 3); }, "BLOCK_DENSEM: range outside the matrix"},
      {[&] { BLOCK_HASHM(t, sorted, 1, 2, 1, 2); }, not_ready},
      {[&] { QUADR_DENSEM(x3, s.d, x6); }, "QUADR_DENSEM: incompatible dimensions"},
      {[&] { QUADR_DENSEM(x6, s.d, x7); }, "QUADR_DENSEM: incompatible dimensions"},
      {[&] { QUADR_HASHM(x7, s.h, x6); }, "QUADR_HASHM: incompatible dimensions"},
      {[&] { QUADR_IJA(x6, s.up, x4); }, "QUADR_IJA: incompatible dimensions"},
      {[&] { QUADR_HASHM(x6, f, x6); }, "QUADR_HASHM: not yet implemented for full-stored matrix"},
      {[&] { QUADR_HASHM(x3, over, x3); }, "QUADR_HASHM: element outside the order of the matrix 2 5 3"},
      {[&] { TRACE_DENSEM(densem(2, 1.0), densem(3, 1.0)); }, "TRACE_DENSEM: Matrices of different size"},
      {[&] { TRACE_HASHM(b.h, s.h); }, "TRACE_HASHM: Matrices of different size"},
      {[&] { TRACE_IJA(b.up, s.up); }, "TRACE_IJA: Matrices of different size"},
      {[&] { TRACE_HASHM(f, s.h); }, "TRACE_HASHM: not yet implemented for full-stored matrix"},
      {[&] { TRACE_HASHM(s.h, sorted); }, not_ready},
      {[&] { BLOCKTRACE_HASHM(a2, s.h, 1, 2, 1, 3); }, "BLOCKTRACE_HASHM: ranges not equal"},
      {[&] { BLOCKTRACE_IJA(a2, s.up, 2, 3, 1, 1); }, "BLOCKTRACE_IJA: ranges not equal"},
      {[&] { BLOCKTRACE_IJA_HASHM(a2, s.h, 1, 2, 1, 3); }, "BLOCKTRACE_IJA_HASHM: ranges not equal"},
      {[&] { BLOCKTRACE_IJA(a2, s.up, 1, 5, 1, 5, 2); }, "BLOCKTRACE_IJA: Matrices of different size"},
      {[&] { BLOCKTRACE_HASHM(a2, f, 1, 2, 1, 2); }, "BLOCKTRACE_HASHM: not yet implemented for full-stored matrix"},
      {[&] { BLOCKTRACE_HASHM(a2, sorted, 2, 3, 5, 6); }, not_ready}};
  for (const auto& [call, message] : stops) expect_stop(call, message);
}
