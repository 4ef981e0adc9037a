// The inversion kernels: ginv2 (blocked and row by row), dkmxhf, invrt.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

#include "common/lapack_ref.hpp"
#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/dense/inverse.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using namespace dense_test;
using mmekit::test::expect_stop;

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
    EXPECT_LT(max_abs_diff(product(product(a, ref), a), a), 1e-8 * max_abs(a));
    EXPECT_TRUE(!c.dependent.empty() || max_abs_diff(product(a, ref), identity_densem<double>(c.n)) < 1e-9);
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
