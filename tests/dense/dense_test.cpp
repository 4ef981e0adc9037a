// Storage forms, factorisation, generalised inverse, checks, solves, eigen decomposition,
// printing and arithmetic of the dense matrices, and the inversion kernels.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "common/lapack_ref.hpp"
#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/dense/inverse.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using namespace dense_test;
using mmekit::test::expect_stop;

TEST(DenseStorage, PackedPositionsAndOrderFromLength) {
  // Walking the upper triangle row by row visits the positions 1, 2, 3, ... in turn.
  for (std::int64_t n = 1; n <= 12; ++n) {
    std::int64_t expect = 0;
    for (std::int64_t i = 1; i <= n; ++i)
      for (std::int64_t j = i; j <= n; ++j) {
        ++expect;
        ASSERT_EQ(symm_pos(i, j, n), expect) << n << " " << i << " " << j;
        ASSERT_EQ(symm_pos(j, i, n), expect);
      }
    EXPECT_EQ(symm_length(n), expect);
    EXPECT_EQ(symm_order_from_length(expect), n);
    EXPECT_EQ(symm_order_from_length(expect - 1), n - 1);  // between two triangles: the smaller
  }
  EXPECT_EQ(std::make_pair(symm_order_from_length(-5), symm_order_from_length(3000000LL * 3000001 / 2)),
            std::make_pair(std::int64_t{0}, std::int64_t{3000000}));
  // 8 * 10619135 + 1 rounds to 84953080 in single precision, whose root rounds up to 9217: the
  // formula says 4608, whose triangle (10619136) does not fit, and the order is lowered.
  EXPECT_EQ(symm_order_from_length(10619135), 4607);
  // 8 * len overflows 64 bits: (2^32 - 1) 2^32 / 2 fits, 2^32 (2^32 + 1) / 2 does not.
  EXPECT_EQ(symm_order_from_length(std::numeric_limits<std::int64_t>::max()), 4294967295LL);

  // Pack and unpack; a non-triangular length keeps the element past the triangle.
  dense_symm p(3);
  for (std::int64_t k = 1; k <= 6; ++k) p(k) = static_cast<double>(k);
  densem f;
  unpack_symm(p, f);
  EXPECT_EQ(f, from_rows({{1, 2, 3}, {2, 4, 5}, {3, 5, 6}}));
  dense_symm back;
  pack_symm(f, back);
  EXPECT_EQ(back, p);
  dense_symm odd = dense_symm::from_length(4, 9.0);
  EXPECT_EQ(odd.order(), 2);
  odd(1) = 4;
  odd(2) = 2;
  odd(3) = 2;
  std::int32_t rank = 0;
  ginverse(odd, rank);
  EXPECT_EQ(rank, 2);
  EXPECT_EQ(std::vector<double>(odd.begin(), odd.end()), (std::vector<double>{0.5, -0.5, 1.0, 9.0}));
  densem empty;
  ginverse(empty, rank);
  EXPECT_EQ(rank, 0);
}

// Rank 2: row 3 = row 1 + row 2. By hand: L(1, 1) = 2, L(2, 1) = 1, L(3, 1) = 3, L(2, 2) = 1,
// L(3, 2) = 1, and the third pivot is 10 - 9 - 1 = 0, so row and column 3 become zero; the
// inverse of [4 2; 2 2] is [0.5 -0.5; -0.5 1].
TEST(DenseFactor, RankDeficientByHand) {
  const densem a = from_rows({{4, 2, 6}, {2, 2, 4}, {6, 4, 10}});
  std::int32_t rank = -1;
  CaptureOutput cap;
  densem f = a, g = a;
  fact_chol(f, rank);
  EXPECT_EQ(rank, 2);
  EXPECT_EQ(f, from_rows({{2, 1, 0}, {1, 1, 0}, {0, 0, 0}}));
  ginverse(g, rank);
  EXPECT_EQ(g, from_rows({{0.5, -0.5, 0}, {-0.5, 1, 0}, {0, 0, 0}}));
  // The packed members give the same.
  dense_symm p;
  pack_symm(a, p);
  rank = -1;
  ginverse(p, rank);
  densem gp;
  unpack_symm(p, gp);
  EXPECT_EQ(std::make_pair(rank, gp), std::make_pair(2, g));
  pack_symm(a, p);
  fact_chol(p);
  EXPECT_EQ(std::vector<double>(p.begin(), p.end()), (std::vector<double>{2, 1, 0, 1, 0, 0}));
  EXPECT_EQ(cap.text(), "");
}

TEST(DenseFactor, ToleranceAndNegativePivot) {
  // A last pivot of about -1.0E-11 is zero, not negative.
  const densem a = from_rows({{1, 1}, {1, 1 - 1e-11}});
  std::int32_t rank = 0;
  densem f = a, g = a;
  fact_chol(f, rank);
  EXPECT_EQ(rank, 1);
  EXPECT_EQ(f, from_rows({{1, 0}, {0, 0}}));
  ginverse(g, rank);
  EXPECT_EQ(g, from_rows({{1, 0}, {0, 0}}));
  // r4 members compare the widened magnitude with the r8 tolerance: 2E-10 counts, 5E-11 not.
  for (auto [d, want] : {std::pair{2e-10f, 2}, {5e-11f, 1}}) {
    densem_r4 s = from_rows<float>({{1, 0}, {0, d}});
    fact_chol(s, rank);
    EXPECT_EQ(rank, want);
  }
  // A negative pivot stops with the row, in every member.
  const densem b = from_rows({{1, 0, 0}, {0, 1, 2}, {0, 2, 1}});
  dense_symm bp;
  pack_symm(b, bp);
  const std::function<void()> members[] = {
      [&] { densem c = b; fact_chol(c); }, [&] { dense_symm c = bp; ginverse(c, rank); }};
  for (const auto& m : members) expect_stop(m, "  Matrix not semipositive-definite, row  3");
}

TEST(DenseFactor, GeneralisedInverseOnSingularInputs) {
  for (unsigned seed = 1; seed <= 3; ++seed) {
    const std::int64_t n = 3 + seed * 2, r = 1 + seed;
    std::set<std::int64_t> dependent;
    for (std::int64_t i = r + 1; i <= n; ++i) dependent.insert(i);
    const densem a = dense_test::with_dependent_rows(n, dependent, seed);
    densem g = a;
    std::int32_t rank = 0;
    ginverse(g, rank);
    EXPECT_EQ(rank, r);
    EXPECT_TRUE(is_symmetric(g));
    for (std::int64_t i = r + 1; i <= n; ++i)
      for (std::int64_t j = 1; j <= n; ++j) EXPECT_EQ(g(i, j), 0.0);
    EXPECT_LT(max_abs_diff(matmul(matmul(a, g), a), a), 1e-9) << seed;
  }
  // Full rank: the true inverse.
  const densem a = dense_test::with_dependent_rows(12, {}, 99);
  densem g = a;
  ginverse(g);
  EXPECT_LT(max_abs_diff(matmul(a, g), identity_densem<double>(12)), 1e-10);
}

TEST(DenseChecks, SymmetryAndPositiveDefinite) {
  densem a = from_rows({{2, 1, 0.1}, {1, 3, 0.2}, {0.1, 0.2, 4}});
  EXPECT_TRUE(is_symmetric(a));
  a(3, 1) = std::nextafter(0.1, 1.0);
  EXPECT_FALSE(is_symmetric(a));
  a(3, 1) = 0.1;
  a(2, 2) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(is_symmetric(a));
  a(2, 2) = 3;
  // Eigenvalues all positive; 0 and 2; -1 and 3.
  CaptureOutput cap;
  bool flag = true;
  check_positive_definite(a, "G not PD", flag);
  EXPECT_FALSE(flag);
  check_positive_definite(from_rows({{1, 1}, {1, 1}}), "G not PD", flag);
  EXPECT_TRUE(flag);
  flag = false;
  check_positive_definite(from_rows({{1, 2}, {2, 1}}), "indefinite", flag);
  EXPECT_TRUE(flag);
  EXPECT_EQ(cap.text(), " G not PD\n indefinite\n");
}

TEST(DenseSolveAndEigen, ByHand) {
  // x = (1, -2, 3): b = A x by hand; a second column with x = e1.
  const densem a = from_rows({{2, 1, 1}, {1, 3, 2}, {1, 0, 0}});
  const densem keep = a;
  Array2<double> bb(3, 2);
  bb.vec() = {3, 1, 1, 2, 1, 1};
  Array1<double> b(3);
  b.vec() = {3, 1, 1};
  EXPECT_EQ(std::make_pair(solve_dense(a, b), solve_dense(a, bb)), std::make_pair(0, 0));
  const std::vector<double> x = {1, -2, 3, 1, 0, 0};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(bb.vec()[i], x[i], 1e-14);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(b.vec()[i], x[i], 1e-14);
  EXPECT_EQ(a, keep);
  // Exactly singular: info names the zero pivot and b is left as it was.
  Array1<double> bs(2, 1.0);
  EXPECT_EQ(solve_dense(from_rows({{1, 2}, {2, 4}}), bs), 2);
  EXPECT_EQ(bs.vec(), std::vector<double>(2, 1.0));

  // Eigenvalues 1, 3, 5 rising, with unit vectors A v = w v.
  const densem e = from_rows({{2, 1, 0}, {1, 2, 0}, {0, 0, 5}});
  Array1<double> w;
  densem v;
  EXPECT_EQ(eigen_dense(e, w, v), 0);
  densem vw = v, vtv;
  for (std::int64_t k = 1; k <= 3; ++k) {
    EXPECT_NEAR(w(k), 2.0 * k - 1, 1e-14);
    for (std::int64_t i = 1; i <= 3; ++i) vw(i, k) *= w(k);
  }
  EXPECT_LT(max_abs_diff(matmul(e, v), vw), 1e-13);
  matmul(v, v, vtv, 'T', 'N');
  EXPECT_LT(max_abs_diff(vtv, identity_densem<double>(3)), 1e-14);
}

TEST(DensePrintAndArithmetic, ByHand) {
  CaptureOutput cap;
  const densem a = from_rows({{1, 2.5}, {-3, 1000}});
  print_matrix(a, "G matrix");
  print_matrix(a, "", "(2f6.1)");
  dense_symm p(2);
  for (std::int64_t k = 1; k <= 3; ++k) p(k) = static_cast<double>(k);
  print_matrix(p, "P", "(2f4.0)");
  EXPECT_EQ(cap.text(),
            " G matrix\n   1.000       2.500    \n  -3.000       1000.    \n"
            "   1.0   2.5\n  -3.01000.0\n"
            " P\n  1.  2.\n  2.  3.\n");

  const densem c = from_rows({{1, 2}, {3, 4}}), b = from_rows({{0, 1}, {1, 0}});
  densem t;
  matmul(c, b, t, 'T', 'N');
  EXPECT_EQ(t, from_rows({{3, 1}, {4, 2}}));
  EXPECT_EQ(matmul(c, b), from_rows({{2, 1}, {4, 3}}));
  EXPECT_EQ(c + b, from_rows({{1, 3}, {4, 4}}));
  EXPECT_EQ(c - b, from_rows({{1, 1}, {2, 4}}));
  EXPECT_EQ(transpose(c), from_rows({{1, 3}, {2, 4}}));
  EXPECT_EQ(trace(c), 5.0);
  Array1<double> x(2);
  x.vec() = {1, -1};
  const Array1<double> y = matvec(c, x);
  EXPECT_EQ(y.vec(), (std::vector<double>{-1, -1}));
  EXPECT_EQ(std::make_pair(dot(x, y), trace(p)), std::make_pair(0.0, 4.0));
  expect_stop([&] { (void)(c + identity_densem<double>(3)); }, " densem +: orders differ: 2 3");
}

// The inversion kernels: ginv2 (blocked and row by row), dkmxhf, invrt.
namespace {

double max_abs(const densem& a) {
  double m = 0;
  for (double v : a.vec()) m = std::max(m, std::abs(v));
  return m;
}

}  // namespace

TEST(Ginv2, BlockedAndRowByRowAcrossBlockBorders) {
  struct Case {
    std::int64_t n;
    std::set<std::int64_t> dependent;
  };
  const Case cases[] = {{20, {}}, {20, {1}}, {20, {20}}, {20, {5, 6, 7}}, {21, {1, 2, 8, 9, 21}}, {1, {}}};
  unsigned seed = 11;
  for (const Case& c : cases) {
    const densem a = with_dependent_rows(c.n, c.dependent, ++seed);
    densem ref = a;
    std::int32_t ref_rank = -1;
    ginv2_rowwise(ref, ref_rank, 1e-10);
    EXPECT_EQ(ref_rank, c.n - static_cast<std::int64_t>(c.dependent.size()));
    EXPECT_LT(max_abs_diff(matmul(matmul(a, ref), a), a), 1e-8 * max_abs(a));
    EXPECT_TRUE(!c.dependent.empty() || max_abs_diff(matmul(a, ref), identity_densem<double>(c.n)) < 1e-9);
    for (std::int64_t nb : {1, 3, 7, 64, 0}) {
      SCOPED_TRACE("n=" + std::to_string(c.n) + " block=" + std::to_string(nb));
      densem g = a;
      std::int32_t rank = -1;
      ginv2_kernel(g.data(), g.order(), g.ld(), rank, 1e-10, nb);
      EXPECT_EQ(rank, ref_rank);
      EXPECT_TRUE(is_symmetric(g));
      for (std::int64_t d : c.dependent)
        for (std::int64_t j = 1; j <= c.n; ++j) ASSERT_TRUE(g(d, j) == 0.0 && g(j, d) == 0.0) << d << " " << j;
      EXPECT_LT(max_abs_diff(g, ref), 1e-9 * max_abs(ref));
    }
  }
}

TEST(Ginv2, DefaultBlocksAgainstLapack) {
  // Dependent rows at both sides of the first block border and further on.
  const std::int64_t n = 450;
  const std::set<std::int64_t> dependent = {ginv2_default_block, ginv2_default_block + 1, 300, 450};
  const densem a = with_dependent_rows(n, dependent, 77);
  densem g = a, ref = a;
  std::int32_t rank = 0, ref_rank = 0;
  ginv2_kernel(g.data(), n, n, rank, 1e-10);
  ginv2_rowwise(ref, ref_rank);
  EXPECT_EQ(std::make_pair(rank, ref_rank), std::make_pair(std::int32_t{n - 4}, std::int32_t{n - 4}));
  EXPECT_LT(max_abs_diff(g, ref), 1e-8 * max_abs(ref));
  for (std::int64_t d : dependent) EXPECT_EQ(g(d, d), 0.0);
  // Positive definite: LAPACK's Cholesky inverse.
  const densem p = with_dependent_rows(n, {}, 78);
  densem gp = p;
  ginv2_kernel(gp.data(), n, n, rank, 1e-10);
  EXPECT_TRUE(rank == n && is_symmetric(gp)) << rank;
  EXPECT_LT(max_abs_diff(gp, test::lapack_spd_inverse(p)), 1e-9 * max_abs(gp));
}

TEST(Ginv2, PivotToleranceAndNegativePivot) {
  std::int32_t rank = 0;
  for (int form = 0; form < 2; ++form) {
    auto run = [&](densem& m) {
      if (form == 0) ginv2_kernel(m.data(), m.order(), m.ld(), rank, 1e-10, 1);
      else ginv2_rowwise(m, rank, 1e-10);
    };
    // A pivot of exactly tol counts; one below it, or negative but below it in magnitude, is
    // a dependent row.
    densem at_tol = from_rows({{1, 0}, {0, 1e-10}}), below = from_rows({{1, 0}, {0, 9.9e-11}}),
           neg_small = from_rows({{4, 0}, {0, -5e-11}});
    run(at_tol);
    EXPECT_EQ(rank, 2);
    EXPECT_NEAR(at_tol(2, 2), 1e10, 1e-3);
    run(below);
    EXPECT_EQ(std::make_pair(rank, below), std::make_pair(1, from_rows({{1, 0}, {0, 0}})));
    run(neg_small);
    EXPECT_EQ(std::make_pair(rank, neg_small), std::make_pair(1, from_rows({{0.25, 0}, {0, 0}})));
    // A negative pivot after elimination: 1 - 2 * 2 = -3 at row 2.
    densem ind = from_rows({{1, 2}, {2, 1}});
    expect_stop([&] { run(ind); }, " ginv2: Negative pivot: 2 -3.0");
  }
  // A negative diagonal in a later block.
  densem d(9);
  for (std::int64_t i = 1; i <= 9; ++i) d(i, i) = 1.0;
  d(7, 7) = -2.5;
  expect_stop([&] { ginv2_kernel(d.data(), 9, 9, rank, 1e-10, 3); }, " ginv2: Negative pivot: 7 -2.5");
  // The densem entry prints its elapsed time.
  CaptureOutput cap;
  densem a = from_rows({{4, 2, 6}, {2, 2, 4}, {6, 4, 10}});
  ginv2(a, rank);
  EXPECT_EQ(std::make_pair(rank, a), std::make_pair(2, from_rows({{0.5, -0.5, 0}, {-0.5, 1, 0}, {0, 0, 0}})));
  EXPECT_EQ(cap.text().rfind("     Inverse by ginv2 elapsed time: ", 0), 0u) << cap.text();
}

TEST(Dkmxhf, ReportCountsAndInverse) {
  CaptureOutput cap;
  // One negative pivot: the sign is ignored in the log-determinant (log 3), with the warning.
  densem b = from_rows({{1, 2}, {2, 1}});
  DkmxhfReport r = dkmxhf(b);
  EXPECT_EQ(std::make_pair(r.rank, r.negative_pivots), std::make_pair(2, 1));
  EXPECT_LT(max_abs_diff(b, from_rows({{-1.0 / 3, 2.0 / 3}, {2.0 / 3, -1.0 / 3}})), 1e-15);
  EXPECT_EQ(cap.text(),
            " 3 elements in matrix\n"
            " negative pivot, ignore sign for log det\n"
            " Generalised inverse of matrix with order = 2    and rank = 2\n"
            " no. of negative pivots = 1\n"
            " dkmxhf : uneven no. of negative pivots\n"
            "  - log determinant not correct !\n"
            " Inversion done\n"
            " Rank of matrix                  = 2\n"
            " Log determinant                 = 1.0986122886681098\n"
            " No. of non-zero elements        = 3\n");
  // A small pivot: the row and column become zero; log det = log 4 of the rest.
  cap.clear();
  densem c = from_rows({{4, 2, 6}, {2, 2, 4}, {6, 4, 10}});
  r = dkmxhf(c);
  EXPECT_EQ(c, from_rows({{0.5, -0.5, 0}, {-0.5, 1, 0}, {0, 0, 0}}));
  EXPECT_EQ(std::make_tuple(r.rank, r.negative_pivots, r.small_pivots, r.nonzero), std::make_tuple(2, 0, 1, 3));
  EXPECT_NE(cap.text().find(" small pivot  3\n"), std::string::npos) << cap.text();
  EXPECT_NE(cap.text().find(" Log determinant                 = 1.3862943611198906\n"), std::string::npos);
  // The same generalised inverse as ginv2 on a larger rank-deficient matrix.
  densem big = with_dependent_rows(15, {4, 11}, 3);
  densem g1 = big, g2 = big;
  std::int32_t rank = 0;
  r = dkmxhf(g1);
  ginv2_rowwise(g2, rank);
  EXPECT_EQ(r.rank, rank);
  EXPECT_LT(max_abs_diff(g1, g2), 1e-9 * max_abs(g2));
}

TEST(Invrt, InverseAndStops) {
  // Not symmetric: [[2, 1], [4, 3]]^-1 = [[1.5, -0.5], [-2, 1]].
  densem b = from_rows({{2, 1}, {4, 3}});
  invrt(b);
  EXPECT_EQ(b, from_rows({{1.5, -0.5}, {-2, 1}}));
  // A zero diagonal at once, and one that becomes zero on the way.
  for (densem z : {from_rows({{0, 1}, {1, 0}}), from_rows({{1, 1}, {1, 1}})})
    expect_stop([&] { invrt(z); }, " Matrix not positive definite (diagonal=0) in subr invrt");
  densem big(3, 1.0);
  expect_stop([&] { invrt(big, 2); }, " MATRIX DIMENSION IN INVRT LARGER THAN DECLARED");
}
