// Solves, products and log-determinants on hand-made supernodal factors, checked against dense
// LAPACK; the status paths of the entries; the forms on a row-compressed upper triangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "common/stop.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/forms.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/support/output.hpp"

using mmekit::Array1;
using mmekit::Array2;
using mmekit::densem;
using mmekit::skelda_state;
using mmekit::skeldatask;
using mmekit::vector_of;
using namespace mmekit::test;

namespace {

// Several supernodes; the last, a root of width 3, takes the panel form with panel size 2.
HandFactor several(std::int64_t p) { return hand_structure(10, {1, 3, 4, 6, 8}, {{4, 8, 9}, {4, 5, 10}, {6, 9}, {8, 10}, {}}, p); }
// One dense supernode of order 7: panel size 3 gives three block columns and two padding rows.
HandFactor dense7(std::int64_t p) { return hand_structure(7, {1}, {{}}, p); }
// Two roots of width 3 (block diagonal).
HandFactor two_roots(std::int64_t p) { return hand_structure(6, {1, 4}, {{}, {}}, p); }

Array1<std::int32_t> order(std::int32_t n, unsigned seed) {
  Array1<std::int32_t> p(n);
  std::iota(p.begin(), p.end(), 1);
  if (seed) std::shuffle(p.begin(), p.end(), std::mt19937(seed));
  return p;
}

// a(perm(i), perm(j)) = ap(i, j); x(perm(i)) = xp(i) and back.
densem unpermute(const densem& ap, const Array1<std::int32_t>& perm) {
  densem a(ap.order(), 0.0);
  for (std::int64_t j = 1; j <= ap.order(); ++j)
    for (std::int64_t i = 1; i <= ap.order(); ++i) a(perm(i), perm(j)) = ap(i, j);
  return a;
}
Array2<double> permuted(const Array2<double>& x, const Array1<std::int32_t>& perm) {
  Array2<double> y(x.rows(), x.cols());
  for (std::int64_t c = 1; c <= x.cols(); ++c)
    for (std::int64_t i = 1; i <= x.rows(); ++i) y(i, c) = x(perm(i), c);
  return y;
}
densem transposed(const densem& a) {
  densem t(a.order());
  for (std::int64_t j = 1; j <= a.order(); ++j)
    for (std::int64_t i = 1; i <= a.order(); ++i) t(i, j) = a(j, i);
  return t;
}

void expect_near_all(const Array2<double>& got, const Array2<double>& want, double tol, std::int64_t skip = 0) {
  ASSERT_EQ(got.rows(), want.rows());
  ASSERT_EQ(got.cols(), want.cols());
  for (std::int64_t j = 1; j <= got.cols(); ++j)
    for (std::int64_t i = 1; i <= got.rows(); ++i)
      if (i != skip) { EXPECT_NEAR(got(i, j), want(i, j), tol) << i << ", " << j; }
}

// The step table of the process has the solve steps from the start; tests of the front end
// empty it, so each test here puts them back.
class SkeldaSolve : public ::testing::Test {
 protected:
  void SetUp() override { mmekit::install_solve_steps(mmekit::skelda_steps()); }
};

}  // namespace

TEST_F(SkeldaSolve, SolveDeterminantsAndProductsAgreeWithDenseLapack) {
  struct Case {
    const char* name;
    HandFactor (*make)(std::int64_t);
    std::int64_t panel;
  };
  const Case cases[] = {{"dense normal", dense7, 256}, {"dense panel", dense7, 3}, {"several normal", several, 256},
                        {"several panel root", several, 2}, {"two panel roots", two_roots, 2}};
  unsigned seed = 11;
  for (const Case& c : cases)
    for (int type : {1, 2})
      for (bool permute : {false, true}) {
        SCOPED_TRACE(std::string(c.name) + (type == 1 ? " Cholesky" : " LDL") + (permute ? " permuted" : ""));
        // A = P (L0 L0') P' for a factor L0 drawn on the structure; LAPACK's factor of the
        // permuted matrix goes into lnz.
        HandFactor h = c.make(c.panel);
        const std::int32_t n = h.n;
        const densem l0 = random_factor_on(h, ++seed);
        const densem lc = lapack_cholesky(dense_product(l0, l0));
        store_factor(h, type == 1 ? lc : ldl_of_cholesky(lc));
        const Array1<std::int32_t> perm = order(n, permute ? seed : 0);
        const densem a = unpermute(dense_product(l0, l0), perm);
        install_factor(h, perm, type);

        // Three right-hand sides through task 50; then rhs and sol the same array.
        const Array2<double> x0 = random_columns(n, 3, seed), b = dense_times(a, x0);
        Array2<double> rhs = b, sol;
        std::int32_t st = -1;
        skeldatask(50, {.rhs = &rhs, .sol = &sol, .status = &st});
        ASSERT_EQ(st, 0);
        expect_near_all(sol, x0, 1e-10);
        EXPECT_TRUE(rhs == b);
        skeldatask(50, {.rhs = &rhs, .sol = &rhs, .status = &st});
        EXPECT_EQ(st, 0);
        expect_near_all(rhs, x0, 1e-10);

        // Log-determinant 2 sum log l0(j,j), and its exponential.
        double logdet = 0, det = 0;
        for (std::int32_t j = 1; j <= n; ++j) logdet += 2.0 * std::log(l0(j, j));
        skeldatask(55, {.det = &det, .status = &st});
        EXPECT_EQ(st, 0);
        EXPECT_NEAR(det, logdet, 1e-11);
        skeldatask(54, {.det = &det, .status = &st});
        EXPECT_NEAR(det, std::exp(logdet), 1e-11 * std::exp(logdet));

        // F = L (Cholesky) and L sqrt(D) (LDL) are both l0: task 100 gives F x and task 90 the
        // y with F' y = x, in the permuted numbering.
        skeldatask(100, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_EQ(st, 0);
        expect_near_all(permuted(sol, perm), dense_times(l0, permuted(rhs, perm)), 1e-10);
        skeldatask(90, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_EQ(st, 0);
        expect_near_all(dense_times(transposed(l0), permuted(sol, perm)), permuted(rhs, perm), 1e-10);

        // Strided: right-hand sides as the rows of a 3-by-n array (stride 3), solved in place.
        Array2<double> rows(3, n);
        for (std::int32_t i = 1; i <= n; ++i)
          for (int k = 1; k <= 3; ++k) rows(k, i) = b(i, k);
        for (int k = 1; k <= 3; ++k) {
          const mmekit::SkeldaVector v{rows.data() + (k - 1), n, 3};
          mmekit::skelda_solve(v, v, st);
          EXPECT_EQ(st, 0);
          for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(rows(k, i), x0(i, k), 1e-10);
        }
      }
}

TEST_F(SkeldaSolve, LostConstrainedAndNegativeColumns) {
  // LDL on the several-supernode structure (panel-form root):
  //  - column 5 lost: pivot 1, cflag -1, zero below the diagonal, its row kept as a dependent
  //    column leaves it; the matrix has pivot 0 there;
  //  - column 2 constrained: unit row and column, cflag 1; the matrix has a zero row there;
  //  - column 9 with pivot -2.
  HandFactor h = several(2);
  const std::int32_t n = h.n;
  densem l = ldl_of_cholesky(random_factor_on(h, 21));
  for (std::int32_t i = 3; i <= n; ++i) l(i, 2) = 0.0, l(i, 5) = i > 5 ? 0.0 : l(i, 5);
  l(2, 1) = 0.0;
  l(5, 5) = l(2, 2) = 1.0;
  l(9, 9) = -2.0;
  store_factor(h, l);
  Array1<std::int32_t> cflag(n, 0);
  cflag(5) = -1;
  cflag(2) = 1;
  install_factor(h, order(n, 0), 2, cflag);

  // A = L D0 L' with D0 = 0 at 5 and 2. b = L D0 w with w(9) = 0 is consistent with the
  // generalised system; b(2) is anything. The solution is 0 in the lost and constrained columns
  // and satisfies every equation but the zero row.
  densem unit = l, ld = l;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) {
      unit(i, j) = i == j ? 1.0 : (i > j ? l(i, j) : 0.0);
      ld(i, j) = unit(i, j) * ((j == 5 || j == 2) ? 0.0 : l(j, j));
    }
  const densem a = dense_product(ld, unit);
  Array2<double> w(n, 1);
  for (std::int32_t i = 1; i <= n; ++i) w(i, 1) = i == 9 ? 0.0 : 0.25 * i - 1.0;
  Array2<double> b = dense_times(ld, w), sol;
  b(2, 1) = 7.0;
  std::int32_t st = -1;
  skeldatask(50, {.rhs = &b, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  EXPECT_EQ(sol(5, 1), 0.0);
  EXPECT_EQ(sol(2, 1), 0.0);
  const Array2<double> ax = dense_times(a, sol);
  expect_near_all(ax, b, 1e-10, 2);
  EXPECT_EQ(ax(2, 1), 0.0);

  // The log-determinant sums the positive pivots; the lost and constrained ones hold 1.
  double want = 0, det = 0;
  for (std::int32_t j = 1; j <= n; ++j) want += j == 9 ? 0.0 : std::log(l(j, j));
  skeldatask(55, {.det = &det, .status = &st});
  EXPECT_NEAR(det, want, 1e-12);
  skeldatask(54, {.det = &det, .status = &st});
  EXPECT_NEAR(det, std::exp(want), 1e-12 * std::exp(want));

  // F has a zero column where the pivot is not positive: F x ignores x(9); F' y = x gives y(9) = 0
  // and holds in every other row.
  densem f(n, 0.0);
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = j; i <= n; ++i) f(i, j) = unit(i, j) * (j == 9 ? 0.0 : std::sqrt(l(j, j)));
  Array2<double> x = random_columns(n, 1, 2), y(n, 1);
  skeldatask(100, {.rhs = &x, .sol = &y, .status = &st});
  expect_near_all(y, dense_times(f, x), 1e-12);
  skeldatask(90, {.rhs = &x, .sol = &y, .status = &st});
  EXPECT_EQ(y(9, 1), 0.0);
  expect_near_all(dense_times(transposed(f), y), x, 1e-12, 9);

  // The Cholesky type does not look at cflag: a lost column (1 on the diagonal, zero below) is
  // a column of a regular factor and the solve is that of L L'.
  HandFactor hc = several(256);
  densem lc = random_factor_on(hc, 31);
  for (std::int32_t i = 5; i <= n; ++i) lc(i, 4) = 0.0;
  lc(4, 4) = 1.0;
  store_factor(hc, lc);
  cflag.fill(0);
  cflag(4) = -1;
  install_factor(hc, order(n, 0), 1, cflag);
  const Array2<double> x0 = random_columns(n, 1, 4);
  b = dense_times(dense_product(lc, lc), x0);
  skeldatask(50, {.rhs = &b, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  expect_near_all(sol, x0, 1e-10);
}

TEST_F(SkeldaSolve, StatusOfTheEntries) {
  HandFactor h = several(2);
  store_factor(h, ldl_of_cholesky(random_factor_on(h, 41)));
  Array1<double> x(h.n, 1.0), y(h.n, 5.0), shorter(h.n - 1, 1.0);
  std::int32_t st = -1;
  double value = -1;
  const auto fresh = [&] { install_factor(h, order(h.n, 0), 2); };
  // The solve (inverse 1 here), mulfac (0), mulinv (-1) and the log-determinant (2); each
  // leaves y alone on any failure.
  const auto run = [&](int which) {
    st = -1;
    if (which == 1) mmekit::skelda_solve(vector_of(x), vector_of(y), st);
    if (which == 0 || which == -1) mmekit::skelda_multiply(vector_of(x), vector_of(y), st, which);
    if (which == 2) mmekit::skelda_logdet(value, st);
    return st;
  };

  fresh();
  for (std::int64_t stage : {20, 40}) {  // no factor: status 3
    skelda_state.stage() = stage;
    for (int which : {1, 0, -1, 2}) EXPECT_EQ(run(which), 3) << stage << " " << which;
  }
  // Lengths other than n, a stride below 1, an unknown direction: status 4.
  fresh();
  mmekit::skelda_solve(vector_of(shorter), vector_of(y), st);
  EXPECT_EQ(st, 4);
  mmekit::skelda_multiply(vector_of(x), vector_of(shorter), st, 0);
  EXPECT_EQ(st, 4);
  mmekit::skelda_solve(vector_of(x), {y.data(), h.n, 0}, st);
  EXPECT_EQ(st, 4);
  mmekit::skelda_multiply(vector_of(x), vector_of(y), st, 1);
  EXPECT_EQ(st, 4);

  // A factor that does not hold together: 13 for the solve and the products, 10 for the
  // log-determinant. perm, cflag (LDL) and a zero Cholesky pivot matter to the solve only.
  const std::vector<std::pair<std::function<void()>, int>> breaks = {
      {[&] { (*skelda_state.lindx)(2) = h.n + 1; }, 10},  // a row beyond n
      {[&] { (*skelda_state.lindx)(1) = 2; }, 10},        // a row inside the block
      {[&] { skelda_state.lnz->resize(skelda_state.lnz->size() - 1); }, 10},
      {[&] { (*skelda_state.xlnz)(3) -= 1; }, 10},        // supernode 2 has no room
      {[&] { (*skelda_state.xsuper)(6) = h.n; }, 10},     // the columns do not reach n
      {[&] { skelda_state.xlindx.reset(); }, 10},
      {[&] { skelda_state.iparm(mmekit::kPanelSize) = 0; }, 10},
      {[&] { (*skelda_state.perm)(4) = 0; }, 0},
      {[&] { skelda_state.cflag.reset(); }, 0},
      {[&] { skelda_state.iparm(mmekit::kFactorType) = 1, (*skelda_state.lnz)(h.position(9, 9)) = 0.0; }, 0},
  };
  for (std::size_t k = 0; k < breaks.size(); ++k) {
    fresh();
    breaks[k].first();
    for (int which : {1, 0, -1}) EXPECT_EQ(run(which), 13) << k << " " << which;
    EXPECT_EQ(run(2), breaks[k].second) << k;
  }
  for (std::int32_t i = 1; i <= h.n; ++i) EXPECT_EQ(y(i), 5.0);

  // The tasks: sol of another shape is an abnormal argument, reported under the task's label.
  fresh();
  Array2<double> rhs(h.n, 2, 1.0), sol(h.n, 1);
  std::int32_t verbose = 1;
  mmekit::CaptureOutput cap;
  skeldatask(50, {.rhs = &rhs, .sol = &sol, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 4);
  skelda_state.lindx->fill(h.n + 1);
  skeldatask(90, {.rhs = &rhs, .sol = &rhs, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 13);
  EXPECT_EQ(cap.text(), " SKELDATASK: [solve ] Abnormal parameters or arguments.\n"
                        " SKELDATASK: [mulinv] A trouble in solution (unexpected modification on the factor\n");
}

TEST_F(SkeldaSolve, LogdetOnExplicitData) {
  // Each diagonal read through the layout (normal supernodes and a panel-form root).
  HandFactor h = several(2);
  double ldl = 0;
  for (std::int32_t j = 1; j <= h.n; ++j) {
    h.lnz(h.position(j, j)) = j == 3 ? -1.0 : 0.5 * j;  // -1 adds nothing
    ldl += j == 3 ? 0.0 : std::log(0.5 * j);
  }
  EXPECT_NEAR(mmekit::supernodal_logdet(h.layout(), h.lnz, 2), ldl, 1e-13);
  EXPECT_NEAR(mmekit::supernodal_logdet(h.layout(), h.lnz, 1), 2 * ldl, 1e-13);
  EXPECT_EQ(mmekit::supernodal_logdet(mmekit::Sx2Layout{}, Array1<double>(), 2), 0.0);  // no supernodes
  h.lnz.resize(h.lnz.size() - 1);
  expect_stop([&] { mmekit::supernodal_logdet(h.layout(), h.lnz, 2); },
              "supernodal_logdet: the factor does not fit its storage map");
}

// ---------------------------------------------------------------------------------------------
// Forms on the upper triangle.

namespace {

densem random_symmetric(std::int64_t n, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem d(n, 0.0);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j)
      if (i == j || u(g) > 0.2) d(i, j) = d(j, i) = u(g);
  return d;
}

Array1<double> column1(const Array2<double>& a) {
  Array1<double> c(a.rows());
  for (std::int64_t i = 1; i <= a.rows(); ++i) c(i) = a(i, 1);
  return c;
}

std::vector<std::int64_t> selected(std::int64_t first, std::int64_t last, std::int64_t step) {
  std::vector<std::int64_t> s;
  for (std::int64_t i = first; i <= last; i += step) s.push_back(i);
  return s;
}

}  // namespace

TEST(SkeldaForms, AgreeWithDenseDefinitions) {
  const std::int32_t n = 12;
  densem d = random_symmetric(n, 7);
  mmekit::sparse_ija u = upper_ija(d);
  // Row 5 without its diagonal: its place taken by a zero in a later column.
  u.a(u.ia(5)) = 0.0;
  u.ja(u.ia(5)) = u.ja(u.ia(5) + 1);
  d(5, 5) = 0.0;
  const Array1<double> x = column1(random_columns(n, 1, 1)), y = column1(random_columns(n, 1, 2));

  Array1<double> ax(n, 99.0), same = x;
  mmekit::skelda_matmul(u.ia, u.ja, u.a, x, ax, n);
  mmekit::skelda_matmul(u.ia, u.ja, u.a, same, same, n);  // x and y the same array
  Array2<double> xc(n, 1);
  for (std::int32_t i = 1; i <= n; ++i) xc(i, 1) = x(i);
  const Array2<double> want = dense_times(d, xc);
  for (std::int32_t i = 1; i <= n; ++i) {
    EXPECT_NEAR(ax(i), want(i, 1), 1e-13);
    EXPECT_NEAR(same(i), want(i, 1), 1e-13);
  }

  // Whole matrix and selections with steps 1, 2, 3 (rows = columns): x_S' A_SS x_S,
  // x_S' A_SS y_S, tr(A_SS); an empty selection and a step 0 taken as 1.
  const int ranges[][3] = {{1, 12, 1}, {3, 8, 1}, {1, 12, 2}, {2, 11, 2}, {1, 12, 3}, {3, 11, 3}, {4, 3, 1}, {5, 5, 0}};
  for (const auto& [first, last, step] : ranges) {
    SCOPED_TRACE(std::to_string(first) + ".." + std::to_string(last) + " by " + std::to_string(step));
    double q = 0, bl = 0, tr = 0;
    for (std::int64_t i : selected(first, last, std::max(step, 1))) {
      tr += d(i, i);
      for (std::int64_t j : selected(first, last, std::max(step, 1))) q += x(i) * d(i, j) * x(j), bl += x(i) * d(i, j) * y(j);
    }
    EXPECT_NEAR(mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, first, last, first, last, step), q, 1e-12);
    EXPECT_NEAR(mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, first, last, first, last, step), bl, 1e-12);
    EXPECT_NEAR(mmekit::skelda_trace_ac(u.ia, u.ja, u.a, first, last, step), tr, 1e-13);
    if (first == 1 && last == 12 && step == 1) {
      EXPECT_NEAR(mmekit::skelda_quadform(u.ia, u.ja, u.a, x), q, 1e-12);
      EXPECT_NEAR(mmekit::skelda_bilinear(u.ia, u.ja, u.a, x, y), bl, 1e-12);
    }
  }
  // Rows of one trait against the columns of the other (two interleaved traits): the stored
  // upper elements (j >= i) count, the quadratic form twice each.
  double q = 0, bl = 0;
  for (std::int64_t i : selected(1, 12, 2))
    for (std::int64_t j : selected(2, 12, 2))
      if (j >= i) q += 2 * d(i, j) * x(i) * x(j), bl += d(i, j) * (x(i) * y(j) + x(j) * y(i));
  EXPECT_NEAR(mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 12, 2, 12, 2), q, 1e-12);
  EXPECT_NEAR(mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 1, 12, 2, 12, 2), bl, 1e-12);

  // tr(B C_SS) for a block of order 4 picked from C with steps 1, 2 and 3.
  densem b = random_symmetric(4, 9);
  b(1, 3) = b(3, 1) = 0.0;
  const mmekit::sparse_ija ub = upper_ija(b);
  for (const auto& [first, step] : {std::pair{1, 3}, std::pair{3, 2}, std::pair{5, 2}, std::pair{2, 1}}) {
    const auto s = selected(first, first + 4 * step - 1, step);
    double tr = 0;
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t c = 0; c < 4; ++c) tr += b(r + 1, c + 1) * d(s[r], s[c]);
    EXPECT_NEAR(mmekit::skelda_trace_ac(u.ia, u.ja, u.a, ub.ia, ub.ja, ub.a, first, first + 4 * step - 1, step), tr, 1e-12);
  }
}

TEST(SkeldaForms, SizeMismatchesStop) {
  mmekit::sparse_ija u = upper_ija(random_symmetric(6, 3)), b2 = upper_ija(random_symmetric(2, 4));
  const Array1<double> x(6, 1.0), x5(5, 1.0);
  Array1<double> y(6, 0.0), y7(7);
  const auto msg = [](const char* routine) { return std::string("ERROR: ") + routine + "() size mismatch"; };
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x5, y, 6); }, msg("skelda_matmul"));
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y7, 6); }, msg("skelda_matmul"));
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y, 7); }, msg("skelda_matmul"));
  expect_stop([&] { mmekit::skelda_quadform(u.ia, u.ja, u.a, x5); }, msg("skelda_quadform"));
  expect_stop([&] { mmekit::skelda_bilinear(u.ia, u.ja, u.a, x, y7); }, msg("skelda_bilinear"));
  // (last-first+1) not a multiple of step, rows outside 1..n, B not of the block's order.
  expect_stop([&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 5, 1, 5, 2); }, msg("skelda_quadform_subset"));
  expect_stop([&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 7, 1, 6, 1); }, msg("skelda_quadform_subset"));
  expect_stop([&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 2, 6, 2, 6, 3); }, msg("skelda_bilinear_subset"));
  expect_stop([&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x5, y, 1, 6, 1, 6, 1); }, msg("skelda_bilinear_subset"));
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 1, 4, 3); }, msg("skelda_trace_ac"));
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 0, 5, 3); }, msg("skelda_trace_ac"));
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 6, 2); }, msg("skelda_trace_ac"));
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 5, 2); }, msg("skelda_trace_ac"));
  // A structure that runs past its arrays: a column beyond n, values cut short.
  u.ja(2) = 7;
  expect_stop([&] { mmekit::skelda_quadform(u.ia, u.ja, u.a, x); }, msg("skelda_quadform"));
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 1, 6, 1); }, msg("skelda_trace_ac"));
  u.ja(2) = 6;
  u.a.resize(u.a.size() - 1);
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y, 6); }, msg("skelda_matmul"));
}
