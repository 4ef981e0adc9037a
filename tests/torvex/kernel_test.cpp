// The kernel on plain arrays, against dense LAPACK results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "common/mme.hpp"
#include "common/spd.hpp"
#include "dense/test_helpers.hpp"
#include "helpers.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/kernel.hpp"

using namespace mmekit;
using namespace torvex_test;
using dense_test::from_rows;
using Vec = Array1<double>;

TEST(TorvexKernel, PositiveDefiniteAgainstLapack) {
  const int n = 60;
  const densem d = test::random_spd(n, 0.06, 1);
  Kernel k(to_ija(d));
  k.factorise();
  EXPECT_EQ(torvex_rank(k.work.cells()), n);

  double logdet = 0;
  const densem inv = test::lapack_spd_inverse(d, &logdet);
  const Vec b = sines(n), ref = matvec(inv, b);
  expect_all_near(k.solve(b), ref, 1e-10);
  EXPECT_NEAR(k.value(55), logdet, 1e-9);
  EXPECT_NEAR(std::log(k.value(54)), logdet, 1e-9);

  // Sparse solves: the listed entries of the solution of a sparse right-hand side.
  Vec bs(n, 0.0);
  std::int32_t rl[2] = {5, 40}, sl[3] = {1, 17, 40};
  bs(5) = 1.5;
  bs(40) = -2.0;
  const Vec full = matvec(inv, bs);
  Vec s51 = bs, s52 = bs;
  ASSERT_EQ(k.run(51, s51.data(), {.rhs_list = rl, .rhs_count = 2, .sol_list = sl, .sol_count = 3}), 0);
  for (int p : sl) EXPECT_NEAR(s51(p), full(p), 1e-10);
  ASSERT_EQ(k.run(52, s52.data(), {.rhs_list = rl, .rhs_count = 2}), 0);
  for (int p : rl) EXPECT_NEAR(s52(p), full(p), 1e-10);
  EXPECT_EQ(k.stats.calls_sparse_solve, 2);
  // A full solve after the sparse ones still works (the work vector was left clean).
  expect_all_near(k.solve(b), ref, 1e-10);

  // The sparse inverse on the positions of ia/ja, both variants alike.
  const sparse_ija orig = k.m;
  ASSERT_EQ(k.run(61), 0);
  expect_pattern_near(k.m, inv, 1e-10);
  k.m = orig;
  ASSERT_EQ(k.run(40), 0);  // the inverse replaced the factor: factorise again
  ASSERT_EQ(k.run(60), 0);
  expect_pattern_near(k.m, inv, 1e-10);
  EXPECT_EQ(std::make_tuple(k.stats.calls_inverse, k.stats.calls_numeric), std::make_tuple(2, 2));
}

TEST(TorvexKernel, SingularMixedModelEquations) {
  const test::SmallMme mme = test::small_mme(100, 7);
  densem d;
  assign(d, mme.ija);
  const std::int64_t n = d.order();
  Kernel k(mme.ija);
  k.factorise();
  const std::int32_t rank = torvex_rank(k.work.cells());
  EXPECT_EQ(rank, test::lapack_rank(d));
  EXPECT_LT(rank, n);

  // The dependent equations are those with a zero solution for a right-hand side in the
  // column space; the rest is non-singular, and A x = b as a whole.
  const Vec b = matvec(d, sines(n));
  Vec x = k.solve(b);
  std::vector<std::int64_t> keep;
  for (std::int64_t i = 1; i <= n; ++i)
    if (x(i) != 0.0) keep.push_back(i);
  ASSERT_EQ(static_cast<std::int64_t>(keep.size()), rank);
  double logdet = 0;
  kept_inverse(d, keep, &logdet);
  expect_all_near(matvec(d, x), b, 1e-8);
  EXPECT_NEAR(k.value(55), logdet, 1e-8);

  // Option 56 is quiet on this solution, and not on another.
  CaptureOutput cap;
  Vec rhs = b;
  ASSERT_EQ(k.run(56, rhs.data(), {.x = x.data()}), 0);
  EXPECT_EQ(cap.text(), "");
  x(keep[3]) += 0.5;
  ASSERT_EQ(k.run(56, rhs.data(), {.x = x.data()}), 0);
  EXPECT_EQ(cap.text().find(" ERROR in CHECKB: not accurate solution\n observed deviation =  "), 0u) << cap.text();
  EXPECT_NE(cap.text().find("\n maximum allowed    =  "), std::string::npos) << cap.text();
}

TEST(TorvexKernel, ZeroPivotRules) {
  // A zero diagonal gives a zero pivot: the rank falls by one, the solution of that equation is
  // zero and the determinant is that of the rest (4 * 9 - 1 = 35).
  {
    Kernel k(to_ija(from_rows({{4, 0, 1}, {0, 0, 0}, {1, 0, 9}})));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), 2);
    Vec b(3);
    b.vec() = {1.0, 7.0, 2.0};
    const Vec x = k.solve(b);
    EXPECT_EQ(x(2), 0.0);
    EXPECT_NEAR(x(1), (9 * 1.0 - 1 * 2.0) / 35.0, 1e-14);
    EXPECT_NEAR(x(3), (4 * 2.0 - 1 * 1.0) / 35.0, 1e-14);
    EXPECT_NEAR(k.value(54), 35.0, 1e-12);
    ASSERT_EQ(k.run(61), 0);
    expect_pattern_near(k.m, from_rows({{9.0 / 35, 0, -1.0 / 35}, {0, 0, 0}, {-1.0 / 35, 0, 4.0 / 35}}), 1e-14);
  }
  // A pivot that keeps less than tol of its diagonal counts as zero, just above that does not.
  for (double eps : {0.5e-8, 2e-8}) {
    Kernel k(to_ija(from_rows({{1, 1}, {1, 1 + eps}})));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), eps < 1e-8 ? 1 : 2) << eps;
  }
  // A diagonal below the single-precision 1.0E-8 is zero outright, whatever the rest.
  Kernel k(to_ija(from_rows({{9.9e-9, 0}, {0, 1}})));
  k.factorise();
  EXPECT_EQ(std::make_pair(torvex_rank(k.work.cells()), k.value(55)), std::make_pair(1, 0.0));
}

TEST(TorvexKernel, EmptyRowsAndMessages) {
  Kernel k(to_ija(from_rows({{2, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 5}})));
  CaptureOutput cap;
  k.factorise();
  EXPECT_EQ(cap.text(), "  WARNING!  2  empty rows\n");
  cap.clear();
  EXPECT_EQ(k.run(33), -99);
  EXPECT_EQ(cap.text(), " option no.  33  not implemented\n");
}

TEST(TorvexKernel, StagesAndWorkArray) {
  const int n = 30;
  const densem d = test::random_spd(n, 0.1, 11);
  // Out of order: numeric before symbolic, a solve before the numeric stage.
  Kernel early(to_ija(d));
  Vec b(n, 1.0);
  EXPECT_EQ(early.run(20), -3);
  ASSERT_EQ(early.run(10), 0);
  EXPECT_EQ(early.run(40), 40000000 - 3);
  EXPECT_EQ(early.run(50, b.data()), -3);
  // A short array reports the need; the same stage then runs in that much. The symbolic stage
  // asks twice (for its graph, then for the factor it has counted), which covers the numeric
  // stage; the inverse asks once.
  Kernel k(to_ija(d));
  k.work = TorvexWork(100);
  EXPECT_EQ(k.run(10), 0);  // 32 + 2 (n + 1) cells
  std::vector<int> growths;
  for (std::int32_t option : {20, 40, 61}) {
    growths.push_back(0);
    for (TorvexKernelArgs a; const std::int32_t flag = k.run(option, nullptr, &a); a = {}) {
      EXPECT_TRUE(flag == a.need && a.need > k.work.size()) << option << ": " << flag;
      k.work.grow(a.need);
      ASSERT_LT(++growths.back(), 3);
    }
  }
  EXPECT_EQ(growths, (std::vector<int>{2, 0, 1}));
  EXPECT_NEAR(getm_sparse_ija(4, 4, k.m), test::lapack_spd_inverse(d)(4, 4), 1e-12);
}

TEST(TorvexKernel, OrderUnit) {
  const int n = 25;
  const densem d = test::random_spd(n, 0.12, 21);
  const Vec b = sines(n), ref = solved(d, b);
  std::vector<std::int32_t> perm;
  {
    Kernel k(to_ija(d));
    FramedWriter w("kernel.ord");
    ASSERT_EQ(k.run(10, nullptr, {.order_out = &w}), 0);
    perm = k.perm;
  }
  // Option 70 reads the order file back instead of ordering, with the same result; a size of
  // zero in the file is the natural order.
  FramedWriter("zero.ord").write(std::int32_t{0}, std::int32_t{0});
  std::vector<std::int32_t> natural(n);
  std::iota(natural.begin(), natural.end(), 1);
  for (auto [file, expect] : {std::pair{"kernel.ord", perm}, std::pair{"zero.ord", natural}}) {
    Kernel k(to_ija(d));
    FramedReader r(file);
    ASSERT_EQ(k.run(70, nullptr, {.order_in = &r}), 0);
    EXPECT_EQ(k.perm, expect) << file;
    ASSERT_EQ(k.run(20), 0);
    ASSERT_EQ(k.run(40), 0);
    expect_all_near(k.solve(b), ref, 1e-11);
  }
  // A unit that cannot be read.
  Kernel k(to_ija(d));
  FramedReader none("no-such-file.ord");
  CaptureOutput cap;
  EXPECT_EQ(k.run(70, nullptr, {.order_in = &none}), -2);
  EXPECT_EQ(cap.text(), " error in unit IOOR \n");
}

TEST(TorvexKernel, CopiesOfTheFactor) {
  const int n = 40;
  const densem d = test::random_spd(n, 0.08, 31);
  const Vec b = sines(n), ref = solved(d, b);
  Kernel k(to_ija(d));
  k.factorise();
  const std::int64_t used = torvex_factor_cells(k.work.cells());
  ASSERT_GT(used, 0);
  // To a second array (one cell short first) and back.
  TorvexWork second(used);
  TorvexKernelArgs a{.is2 = second.cells(), .size2 = used - 1};
  EXPECT_EQ(k.run(72, nullptr, &a), 7201);
  a.size2 = used;
  ASSERT_EQ(k.run(72, nullptr, &a), 0);
  Kernel k2(to_ija(d));
  ASSERT_EQ(k2.run(73, nullptr, &a), 0);
  expect_all_near(k2.solve(b), ref, 1e-11);
  // To a file, and from it into a short array: the need first, then the load.
  {
    FramedWriter w("factor.bin");
    ASSERT_EQ(k.run(74, nullptr, {.save_unit = &w}), 0);
  }
  Kernel k3(to_ija(d));
  k3.work = TorvexWork(64);
  FramedReader r("factor.bin"), r2("factor.bin");
  TorvexKernelArgs f{.load_unit = &r};
  EXPECT_EQ(k3.run(75, nullptr, &f), used);
  EXPECT_EQ(f.need, used);
  k3.work.grow(used);
  f.load_unit = &r2;
  ASSERT_EQ(k3.run(75, nullptr, &f), 0);
  expect_all_near(k3.solve(b), ref, 1e-11);
}

TEST(TorvexKernel, ShapesOfTheFactor) {
  // A full matrix (every column shares the subscripts of the one before), an arrow with the
  // dense row first, and a forest of independent blocks with isolated equations.
  const int n = 24;
  densem arrow(n, 0.0), forest(n, 0.0);
  for (int i = 1; i <= n; ++i) {
    arrow(i, i) = n + 1.0;
    if (i > 1) arrow(1, i) = arrow(i, 1) = 1.0;
    forest(i, i) = 3.0;
  }
  for (int i = 1; i < n; i += 3) forest(i, i + 1) = forest(i + 1, i) = -1.0;
  for (int i = 1; i + 2 <= n; i += 6) forest(i, i + 2) = forest(i + 2, i) = 0.5;
  const std::pair<const char*, densem> cases[] = {
      {"full", test::random_spd(n, 1.0, 51)}, {"arrow", arrow}, {"forest", forest}};
  for (const auto& [name, d] : cases) {
    SCOPED_TRACE(name);
    Kernel k(to_ija(d));
    k.factorise();
    const densem inv = test::lapack_spd_inverse(d);
    const Vec b = sines(n);
    expect_all_near(k.solve(b), matvec(inv, b), 1e-11);
    EXPECT_TRUE(std::string(name) != "full" || torvex_factor_nonzeros(k.work.cells()) == n * (n - 1) / 2);
    ASSERT_EQ(k.run(61), 0);
    expect_pattern_near(k.m, inv, 1e-11);
  }
}
