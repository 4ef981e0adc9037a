// Storage forms, factorisation, generalised inverse, checks, solves, eigen decomposition,
// printing and arithmetic of the dense matrices.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using dense_test::from_rows;
using dense_test::product;
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
    densem g = a, l = a;
    std::int32_t rank = 0;
    ginverse(g, rank);
    EXPECT_EQ(rank, r);
    EXPECT_TRUE(is_symmetric(g));
    for (std::int64_t i = r + 1; i <= n; ++i)
      for (std::int64_t j = 1; j <= n; ++j) EXPECT_EQ(g(i, j), 0.0);
    EXPECT_LT(max_abs_diff(product(product(a, g), a), a), 1e-9) << seed;
    // The factor reproduces the matrix on the independent rows.
    fact_chol(l);
    for (std::int64_t i = 1; i <= r; ++i)
      for (std::int64_t j = 1; j <= r; ++j) {
        double s = 0;
        for (std::int64_t k = 1; k <= std::min(i, j); ++k) s += l(i, k) * l(j, k);
        EXPECT_NEAR(s, a(i, j), 1e-12);
      }
  }
  // Full rank: the true inverse.
  const densem a = dense_test::with_dependent_rows(12, {}, 99);
  densem g = a;
  ginverse(g);
  EXPECT_LT(max_abs_diff(product(a, g), identity_densem<double>(12)), 1e-10);
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
  for (std::int64_t k = 1; k <= 3; ++k) {
    EXPECT_NEAR(w(k), 2.0 * k - 1, 1e-14);
    double norm = 0;
    for (std::int64_t i = 1; i <= 3; ++i) {
      double av = 0;
      for (std::int64_t j = 1; j <= 3; ++j) av += e(i, j) * v(j, k);
      EXPECT_NEAR(av, w(k) * v(i, k), 1e-13);
      norm += v(i, k) * v(i, k);
    }
    EXPECT_NEAR(norm, 1, 1e-14);
  }
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
