// Solves, products and log-determinants on hand-made supernodal factors, checked against dense
// LAPACK; the status paths of the entries; the forms on a row-compressed upper triangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "common/stop.hpp"
#include "common/supernodal.hpp"
#include "mmekit/dense/blas.hpp"
#include "mmekit/skelda/forms.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/support/output.hpp"

using mmekit::Array1;
using mmekit::Array2;
using mmekit::densem;
using mmekit::skelda_state;
using mmekit::skeldatask;
using mmekit::test::HandFactor;
using mmekit::test::hand_structure;

namespace {

// A structure of several supernodes whose last, a root of width 3, takes the panel form with
// panel size 2 (two block columns, one padding row and column).
HandFactor several(std::int64_t panel) {
  return hand_structure(10, {1, 3, 4, 6, 8}, {{4, 8, 9}, {4, 5, 10}, {6, 9}, {8, 10}, {}}, panel);
}
// One dense supernode of order 7: normal form, or panel form with panel 3 (nb = 3, 2 padding).
HandFactor dense7(std::int64_t panel) { return hand_structure(7, {1}, {{}}, panel); }
// Two roots of width 3 (block diagonal), both in panel form with panel 2.
HandFactor two_roots(std::int64_t panel) { return hand_structure(6, {1, 4}, {{}, {}}, panel); }

Array1<std::int32_t> shuffled(std::int32_t n, unsigned seed) {
  Array1<std::int32_t> p(n);
  std::iota(p.begin(), p.end(), 1);
  std::mt19937 g(seed);
  std::shuffle(p.begin(), p.end(), g);
  return p;
}

// The matrix of the original numbering from the permuted one: a(perm(i), perm(j)) = ap(i, j).
densem unpermute(const densem& ap, const Array1<std::int32_t>& perm) {
  densem a(ap.order(), 0.0);
  for (std::int64_t j = 1; j <= ap.order(); ++j)
    for (std::int64_t i = 1; i <= ap.order(); ++i) a(perm(i), perm(j)) = ap(i, j);
  return a;
}

Array2<double> random_columns(std::int64_t n, std::int64_t k, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-2.0, 2.0);
  Array2<double> b(n, k);
  for (double& v : b.vec()) v = u(g);
  return b;
}

Array2<double> lapack_solve(densem a, Array2<double> b) {
  std::vector<mmekit::blas_int> ipiv(static_cast<std::size_t>(a.order()));
  EXPECT_EQ(mmekit::blas::gesv(static_cast<mmekit::blas_int>(a.order()), static_cast<mmekit::blas_int>(b.cols()),
                               a.data(), static_cast<mmekit::blas_int>(a.ld()), ipiv.data(), b.data(),
                               static_cast<mmekit::blas_int>(b.rows())),
            0);
  return b;
}

void expect_near_all(const Array2<double>& got, const Array2<double>& want, double tol) {
  ASSERT_EQ(got.rows(), want.rows());
  ASSERT_EQ(got.cols(), want.cols());
  for (std::int64_t j = 1; j <= got.cols(); ++j)
    for (std::int64_t i = 1; i <= got.rows(); ++i) EXPECT_NEAR(got(i, j), want(i, j), tol) << i << ", " << j;
}

Array1<double> column(const Array2<double>& a, std::int64_t k) {
  Array1<double> c(a.rows());
  for (std::int64_t i = 1; i <= a.rows(); ++i) c(i) = a(i, k);
  return c;
}

// Permuted vector x_p(i) = x(perm(i)) and back.
Array1<double> to_permuted(const Array1<double>& x, const Array1<std::int32_t>& perm) {
  Array1<double> y(x.size());
  for (std::int64_t i = 1; i <= x.size(); ++i) y(i) = x(perm(i));
  return y;
}

// The step table of the process has the solve steps from the start; tests of the front end
// empty it, so each test here puts them back.
class SkeldaSolve : public ::testing::Test {
 protected:
  void SetUp() override { mmekit::install_solve_steps(mmekit::skelda_steps()); }
};

struct Case {
  const char* name;
  HandFactor (*make)(std::int64_t);
  std::int64_t panel;
};

}  // namespace

TEST_F(SkeldaSolve, SolveDeterminantsAndProductsAgreeWithDenseLapack) {
  const Case cases[] = {{"dense normal", dense7, 256},     {"dense panel", dense7, 3},
                        {"several normal", several, 256}, {"several panel root", several, 2},
                        {"two panel roots", two_roots, 2}};
  unsigned seed = 11;
  for (const Case& c : cases)
    for (int type : {1, 2})
      for (bool permute : {false, true}) {
        SCOPED_TRACE(std::string(c.name) + (type == 1 ? " Cholesky" : " LDL") + (permute ? " permuted" : ""));
        HandFactor h = c.make(c.panel);
        const std::int32_t n = h.n;
        const densem l0 = mmekit::test::random_factor_on(h, ++seed);
        const densem ap = mmekit::test::dense_product(l0, l0);
        const densem lc = mmekit::test::lapack_cholesky(ap);
        mmekit::test::store_factor(h, type == 1 ? lc : mmekit::test::ldl_of_cholesky(lc));
        Array1<std::int32_t> perm = shuffled(n, seed);
        if (!permute) std::iota(perm.begin(), perm.end(), 1);
        const densem a = unpermute(ap, perm);
        mmekit::test::install_factor(h, perm, type);

        // Three right-hand sides through task 50, against LAPACK's dgesv on the dense matrix.
        const Array2<double> b = random_columns(n, 3, seed);
        Array2<double> rhs = b, sol;
        std::int32_t st = -1;
        skeldatask(50, {.rhs = &rhs, .sol = &sol, .status = &st});
        ASSERT_EQ(st, 0);
        const Array2<double> want = lapack_solve(a, b);
        expect_near_all(sol, want, 1e-10);
        EXPECT_TRUE(rhs == b);
        // rhs and sol the same array: overwritten by the solution.
        skeldatask(50, {.rhs = &rhs, .sol = &rhs, .status = &st});
        EXPECT_EQ(st, 0);
        expect_near_all(rhs, want, 1e-10);

        // Log-determinant against the drawn factor (2 sum log l0(j,j)), and its exponential.
        double logdet = 0, det = 0;
        for (std::int32_t j = 1; j <= n; ++j) logdet += 2.0 * std::log(l0(j, j));
        skeldatask(55, {.det = &det, .status = &st});
        EXPECT_EQ(st, 0);
        EXPECT_NEAR(det, logdet, 1e-11);
        skeldatask(54, {.det = &det, .status = &st});
        EXPECT_EQ(st, 0);
        EXPECT_NEAR(det, std::exp(logdet), 1e-11 * std::exp(logdet));

        // F = L for Cholesky and L sqrt(D) for LDL are both the drawn factor l0. Task 100 gives
        // F x and task 90 the y with F' y = x, in the permuted numbering.
        skeldatask(100, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_EQ(st, 0);
        for (std::int64_t k = 1; k <= 3; ++k) {
          const Array1<double> fx = mmekit::test::dense_times(l0, to_permuted(column(rhs, k), perm));
          const Array1<double> got = to_permuted(column(sol, k), perm);
          for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(got(i), fx(i), 1e-10);
        }
        skeldatask(90, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_EQ(st, 0);
        densem l0t(n, 0.0);
        for (std::int32_t i = 1; i <= n; ++i)
          for (std::int32_t j = 1; j <= n; ++j) l0t(i, j) = l0(j, i);
        for (std::int64_t k = 1; k <= 3; ++k) {
          const Array1<double> back = mmekit::test::dense_times(l0t, to_permuted(column(sol, k), perm));
          const Array1<double> x = to_permuted(column(rhs, k), perm);
          for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(back(i), x(i), 1e-10);
        }
      }
}

TEST_F(SkeldaSolve, StridedVectorsAndTheSameVector) {
  // The right-hand sides as rows of a 2-by-n array: stride 2. Solving in place row by row gives
  // the same as the dense solve.
  HandFactor h = several(2);
  const densem l0 = mmekit::test::random_factor_on(h, 5);
  mmekit::test::store_factor(h, mmekit::test::ldl_of_cholesky(l0));
  const Array1<std::int32_t> perm = shuffled(h.n, 3);
  mmekit::test::install_factor(h, perm, 2);
  const densem a = unpermute(mmekit::test::dense_product(l0, l0), perm);
  const Array2<double> cols = random_columns(h.n, 2, 9);
  Array2<double> rows(2, h.n);
  for (std::int32_t i = 1; i <= h.n; ++i) rows(1, i) = cols(i, 1), rows(2, i) = cols(i, 2);
  const Array2<double> want = lapack_solve(a, cols);
  for (std::int64_t k = 1; k <= 2; ++k) {
    std::int32_t st = -1;
    mmekit::SkeldaVector v{rows.data() + (k - 1), h.n, 2};
    mmekit::skelda_solve(v, v, st);
    ASSERT_EQ(st, 0);
  }
  for (std::int32_t i = 1; i <= h.n; ++i) {
    EXPECT_NEAR(rows(1, i), want(i, 1), 1e-10);
    EXPECT_NEAR(rows(2, i), want(i, 2), 1e-10);
  }
}

TEST_F(SkeldaSolve, LostConstrainedAndNegativeColumns) {
  // LDL factor on the several-supernode structure (panel-form root), identity order:
  //  - column 5 lost: pivot 1, cflag -1, nothing below its diagonal, its row kept (as the
  //    dependent column leaves it); the matrix has pivot 0 there;
  //  - column 2 constrained: unit column and row, cflag 1; the matrix has a zero row there;
  //  - column 9 with pivot -2, cflag 0.
  HandFactor h = several(2);
  const std::int32_t n = h.n;
  densem l = mmekit::test::ldl_of_cholesky(mmekit::test::random_factor_on(h, 21));
  for (std::int32_t i = 6; i <= n; ++i) l(i, 5) = 0.0;
  for (std::int32_t k = 1; k < 2; ++k) l(2, k) = 0.0;
  for (std::int32_t i = 3; i <= n; ++i) l(i, 2) = 0.0;
  l(5, 5) = 1.0;
  l(2, 2) = 1.0;
  l(9, 9) = -2.0;
  mmekit::test::store_factor(h, l);
  Array1<std::int32_t> cflag(n, 0), perm(n);
  cflag(5) = -1;
  cflag(2) = 1;
  std::iota(perm.begin(), perm.end(), 1);
  mmekit::test::install_factor(h, perm, 2, cflag);

  // The singular matrix of the generalised system: L D0 L' with D0 = 0 at 5 and 2; for column 9
  // the factor carries -2 as the matrix does.
  densem ld = l;
  for (std::int32_t j = 1; j <= n; ++j) {
    const double d = (j == 5 || j == 2) ? 0.0 : l(j, j);
    for (std::int32_t i = 1; i <= n; ++i) {
      const double lij = i == j ? 1.0 : (i > j ? l(i, j) : 0.0);
      ld(i, j) = lij * d;
    }
  }
  densem unit(n, 0.0);
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = j; i <= n; ++i) unit(i, j) = i == j ? 1.0 : l(i, j);
  const densem a = mmekit::test::dense_product(ld, unit);

  // A right-hand side b = L D0 w, consistent with the generalised system (w(9) = 0 sets the
  // negative pivot aside), and any value in the zero row of the constraint: the solution is 0
  // in the lost and constrained columns and satisfies every equation but the constrained one.
  Array1<double> w(n);
  for (std::int32_t i = 1; i <= n; ++i) w(i) = 0.25 * i - 1.0;
  w(9) = 0.0;
  Array1<double> b = mmekit::test::dense_times(ld, w);
  b(2) = 7.0;
  Array2<double> rhs(n, 1), sol;
  for (std::int32_t i = 1; i <= n; ++i) rhs(i, 1) = b(i);
  std::int32_t st = -1;
  skeldatask(50, {.rhs = &rhs, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  const Array1<double> x = column(sol, 1);
  EXPECT_EQ(x(5), 0.0);
  EXPECT_EQ(x(2), 0.0);
  const Array1<double> ax = mmekit::test::dense_times(a, x);
  for (std::int32_t i = 1; i <= n; ++i)
    if (i != 2) { EXPECT_NEAR(ax(i), b(i), 1e-10) << i; }
  EXPECT_EQ(ax(2), 0.0);

  // The log-determinant sums only the positive pivots; the lost and constrained ones hold 1.
  double want = 0;
  for (std::int32_t j = 1; j <= n; ++j)
    if (j != 9) want += std::log(l(j, j));
  double det = 0;
  skeldatask(55, {.det = &det, .status = &st});
  EXPECT_NEAR(det, want, 1e-12);
  skeldatask(54, {.det = &det, .status = &st});
  EXPECT_GT(det, 0.0);
  EXPECT_NEAR(det, std::exp(want), 1e-12 * std::exp(want));

  // F has a zero column where the pivot is not positive: F x ignores x(9), and F' y = x gives
  // y(9) = 0.
  Array1<double> xin(n);
  for (std::int32_t i = 1; i <= n; ++i) xin(i) = 1.0 + 0.1 * i;
  densem f(n, 0.0);
  for (std::int32_t j = 1; j <= n; ++j) {
    const double s = l(j, j) > 0 ? std::sqrt(l(j, j)) : 0.0;
    for (std::int32_t i = j; i <= n; ++i) f(i, j) = (i == j ? 1.0 : l(i, j)) * s;
  }
  Array1<double> y(n);
  mmekit::skelda_multiply(mmekit::vector_of(xin), mmekit::vector_of(y), st, 0);
  ASSERT_EQ(st, 0);
  const Array1<double> fx = mmekit::test::dense_times(f, xin);
  for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(y(i), fx(i), 1e-12) << i;
  mmekit::skelda_multiply(mmekit::vector_of(xin), mmekit::vector_of(y), st, -1);
  ASSERT_EQ(st, 0);
  EXPECT_EQ(y(9), 0.0);
  densem ft(n, 0.0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= n; ++j) ft(i, j) = f(j, i);
  const Array1<double> fty = mmekit::test::dense_times(ft, y);
  for (std::int32_t i = 1; i <= n; ++i)
    if (i != 9) { EXPECT_NEAR(fty(i), xin(i), 1e-12) << i; }
}

TEST_F(SkeldaSolve, CholeskyLostColumnIsOnlyItsUnitDiagonal) {
  // The Cholesky type does not look at cflag: a lost column (1 on the diagonal, zero below)
  // is a column of a regular factor, and the solve is that of L L'.
  HandFactor h = several(256);
  densem l = mmekit::test::random_factor_on(h, 31);
  for (std::int32_t i = 5; i <= h.n; ++i) l(i, 4) = 0.0;
  l(4, 4) = 1.0;
  mmekit::test::store_factor(h, l);
  Array1<std::int32_t> perm(h.n), cflag(h.n, 0);
  std::iota(perm.begin(), perm.end(), 1);
  cflag(4) = -1;
  mmekit::test::install_factor(h, perm, 1, cflag);
  const Array2<double> b = random_columns(h.n, 1, 4);
  Array2<double> rhs = b, sol;
  std::int32_t st = -1;
  skeldatask(50, {.rhs = &rhs, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  const Array2<double> want = lapack_solve(mmekit::test::dense_product(l, l), b);
  expect_near_all(sol, want, 1e-10);
  EXPECT_GT(std::abs(sol(4, 1)), 1e-6);
}

TEST_F(SkeldaSolve, StatusOfTheEntries) {
  HandFactor h = several(2);
  mmekit::test::store_factor(h, mmekit::test::ldl_of_cholesky(mmekit::test::random_factor_on(h, 41)));
  Array1<std::int32_t> perm(h.n);
  std::iota(perm.begin(), perm.end(), 1);
  Array1<double> x(h.n, 1.0), y(h.n, 5.0), shorter(h.n - 1, 1.0);
  std::int32_t st = -1;
  double value = -1;
  const auto fresh = [&] { mmekit::test::install_factor(h, perm, 2); };

  // No factor (stage 20 or 40): status 3, for all four entries.
  fresh();
  for (std::int64_t stage : {20, 40}) {
    skelda_state.stage() = stage;
    for (int what = 0; what < 4; ++what) {
      st = -1;
      if (what == 0) mmekit::skelda_solve(mmekit::vector_of(x), mmekit::vector_of(y), st);
      if (what == 1) mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, 0);
      if (what == 2) mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, -1);
      if (what == 3) mmekit::skelda_logdet(value, st);
      EXPECT_EQ(st, 3) << stage << " " << what;
    }
  }
  // Lengths other than n, a stride below 1, an unknown direction: status 4.
  fresh();
  mmekit::skelda_solve(mmekit::vector_of(shorter), mmekit::vector_of(y), st);
  EXPECT_EQ(st, 4);
  mmekit::skelda_solve(mmekit::vector_of(x), mmekit::vector_of(shorter), st);
  EXPECT_EQ(st, 4);
  mmekit::skelda_solve(mmekit::vector_of(x), {y.data(), h.n, 0}, st);
  EXPECT_EQ(st, 4);
  mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, 1);
  EXPECT_EQ(st, 4);
  for (std::int32_t i = 1; i <= h.n; ++i) EXPECT_EQ(y(i), 5.0);

  // A factor that does not hold together: status 13 for the solve and the products (nothing
  // written), 10 for the log-determinant.
  const std::vector<std::function<void()>> breaks = {
      [&] { (*skelda_state.lindx)(2) = h.n + 1; },              // a row beyond n
      [&] { (*skelda_state.lindx)(1) = 2; },                    // a row inside the block
      [&] { skelda_state.lnz->resize(skelda_state.lnz->size() - 1); },  // lnz cut short
      [&] { (*skelda_state.xlnz)(3) -= 1; },                    // supernode 2 has no room
      [&] { (*skelda_state.xsuper)(6) = h.n; },                 // columns do not reach n
      [&] { skelda_state.xlindx.reset(); },
      [&] { skelda_state.iparm(mmekit::kPanelSize) = 0; },
  };
  for (std::size_t k = 0; k < breaks.size(); ++k) {
    SCOPED_TRACE(k);
    fresh();
    breaks[k]();
    for (std::int32_t inverse : {1, 0, -1}) {
      st = -1;
      if (inverse == 1)
        mmekit::skelda_solve(mmekit::vector_of(x), mmekit::vector_of(y), st);
      else
        mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, inverse);
      EXPECT_EQ(st, 13);
    }
    mmekit::skelda_logdet(value, st);
    EXPECT_EQ(st, 10);
  }
  // The permutation and cflag are read by the solve only: a value of perm outside 1..n, a
  // missing cflag for LDL and a zero Cholesky pivot are status 13 as well.
  fresh();
  (*skelda_state.perm)(4) = 0;
  mmekit::skelda_solve(mmekit::vector_of(x), mmekit::vector_of(y), st);
  EXPECT_EQ(st, 13);
  fresh();
  skelda_state.cflag.reset();
  mmekit::skelda_solve(mmekit::vector_of(x), mmekit::vector_of(y), st);
  EXPECT_EQ(st, 13);
  mmekit::skelda_logdet(value, st);
  EXPECT_EQ(st, 0);
  fresh();
  skelda_state.iparm(mmekit::kFactorType) = 1;
  (*skelda_state.lnz)(h.position(9, 9)) = 0.0;
  mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, -1);
  EXPECT_EQ(st, 13);
  for (std::int32_t i = 1; i <= h.n; ++i) EXPECT_EQ(y(i), 5.0);

  // The tasks: sol of another shape is an abnormal argument, reported under the task's label.
  fresh();
  Array2<double> rhs(h.n, 2, 1.0), sol(h.n, 1);
  std::int32_t verbose = 1;
  mmekit::CaptureOutput cap;
  skeldatask(50, {.rhs = &rhs, .sol = &sol, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 4);
  EXPECT_EQ(cap.text(), " SKELDATASK: [solve ] Abnormal parameters or arguments.\n");
  cap.clear();
  skelda_state.lindx->fill(h.n + 1);
  skeldatask(90, {.rhs = &rhs, .sol = &rhs, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 13);
  EXPECT_EQ(cap.text(), " SKELDATASK: [mulinv] A trouble in solution (unexpected modification on the factor\n");
}

TEST_F(SkeldaSolve, LogdetOnExplicitData) {
  // The sum reads each diagonal through the layout: a panel-form root and a normal supernode.
  HandFactor h = several(2);
  Array1<double> d(h.n);
  for (std::int32_t j = 1; j <= h.n; ++j) {
    d(j) = 0.5 * j;
    h.lnz(h.position(j, j)) = d(j);
  }
  h.lnz(h.position(3, 3)) = -1.0;  // not above 0: adds nothing
  d(3) = 1.0;
  double ldl = 0;
  for (std::int32_t j = 1; j <= h.n; ++j) ldl += std::log(d(j));
  EXPECT_NEAR(mmekit::supernodal_logdet(h.layout(), h.lnz, 2), ldl, 1e-13);
  EXPECT_NEAR(mmekit::supernodal_logdet(h.layout(), h.lnz, 1), 2 * ldl, 1e-13);
  // No supernodes: 0. A layout that does not fit lnz stops.
  EXPECT_EQ(mmekit::supernodal_logdet(mmekit::Sx2Layout{}, Array1<double>(), 2), 0.0);
  Array1<double> cut = h.lnz;
  cut.resize(cut.size() - 1);
  mmekit::test::expect_stop([&] { mmekit::supernodal_logdet(h.layout(), cut, 2); },
                            "supernodal_logdet: the factor does not fit its storage map");
}

// ---------------------------------------------------------------------------------------------
// Forms on the upper triangle.

namespace {

struct Upper {
  Array1<std::int32_t> ia, ja;
  Array1<double> a;
};

// The upper triangle of a dense symmetric matrix, diagonal first in each row; zero elements
// are left out (so a zero diagonal is a row without its diagonal).
Upper upper_of(const densem& d) {
  Upper u;
  const std::int64_t n = d.order();
  std::vector<std::int32_t> ja;
  std::vector<double> a;
  u.ia = Array1<std::int32_t>(n + 1);
  for (std::int64_t i = 1; i <= n; ++i) {
    u.ia(i) = static_cast<std::int32_t>(ja.size() + 1);
    for (std::int64_t j = i; j <= n; ++j)
      if (d(i, j) != 0.0) {
        ja.push_back(static_cast<std::int32_t>(j));
        a.push_back(d(i, j));
      }
  }
  u.ia(n + 1) = static_cast<std::int32_t>(ja.size() + 1);
  u.ja = Array1<std::int32_t>(static_cast<std::int64_t>(ja.size()));
  u.a = Array1<double>(static_cast<std::int64_t>(a.size()));
  for (std::size_t k = 0; k < ja.size(); ++k) u.ja(static_cast<std::int64_t>(k + 1)) = ja[k], u.a(static_cast<std::int64_t>(k + 1)) = a[k];
  return u;
}

densem random_symmetric(std::int64_t n, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem d(n, 0.0);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j)
      if (i == j || u(g) > 0.2) d(i, j) = d(j, i) = u(g);
  return d;
}

Array1<double> random_vector(std::int64_t n, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Array1<double> x(n);
  for (double& v : x) v = u(g);
  return x;
}

std::vector<std::int64_t> selected(std::int64_t first, std::int64_t last, std::int64_t step) {
  std::vector<std::int64_t> s;
  for (std::int64_t i = first; i <= last; i += step) s.push_back(i);
  return s;
}

}  // namespace

TEST(SkeldaForms, AgreeWithDenseDefinitions) {
  const std::int64_t n = 12;
  densem d = random_symmetric(n, 7);
  d(5, 5) = 0.0;  // row 5 without its diagonal
  const Upper u = upper_of(d);
  const Array1<double> x = random_vector(n, 1), y = random_vector(n, 2);

  Array1<double> ax(n, 99.0);
  mmekit::skelda_matmul(u.ia, u.ja, u.a, x, ax, static_cast<std::int32_t>(n));
  const Array1<double> want = mmekit::test::dense_times(d, x);
  for (std::int64_t i = 1; i <= n; ++i) EXPECT_NEAR(ax(i), want(i), 1e-13);
  Array1<double> same = x;  // x and y the same array
  mmekit::skelda_matmul(u.ia, u.ja, u.a, same, same, static_cast<std::int32_t>(n));
  for (std::int64_t i = 1; i <= n; ++i) EXPECT_NEAR(same(i), want(i), 1e-13);

  double xax = 0, xay = 0;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) xax += x(i) * d(i, j) * x(j), xay += x(i) * d(i, j) * y(j);
  EXPECT_NEAR(mmekit::skelda_quadform(u.ia, u.ja, u.a, x), xax, 1e-12);
  EXPECT_NEAR(mmekit::skelda_bilinear(u.ia, u.ja, u.a, x, y), xay, 1e-12);

  // The same rows and columns with steps 1, 2 and 3: x_S' A_SS x_S, x_S' A_SS y_S, tr(A_SS).
  const int ranges[][3] = {{1, 12, 1}, {3, 8, 1}, {1, 12, 2}, {2, 11, 2}, {1, 12, 3}, {3, 11, 3}, {4, 3, 1}, {5, 5, 0}};
  for (const auto& [first, last, step] : ranges) {
    SCOPED_TRACE(std::to_string(first) + ".." + std::to_string(last) + " by " + std::to_string(step));
    const auto s = selected(first, last, std::max(step, 1));
    double q = 0, bl = 0, tr = 0;
    for (std::int64_t i : s) {
      tr += d(i, i);
      for (std::int64_t j : s) q += x(i) * d(i, j) * x(j), bl += x(i) * d(i, j) * y(j);
    }
    EXPECT_NEAR(mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, first, last, first, last, step), q, 1e-12);
    EXPECT_NEAR(mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, first, last, first, last, step), bl, 1e-12);
    EXPECT_NEAR(mmekit::skelda_trace_ac(u.ia, u.ja, u.a, first, last, step), tr, 1e-13);
  }
  // Rows of one trait against the columns of the other (two traits interleaved): only the
  // stored upper elements (j >= i) of the rows count, the quadratic form twice each.
  {
    const auto rows = selected(1, 12, 2), cols = selected(2, 12, 2);
    double q = 0, bl = 0;
    for (std::int64_t i : rows)
      for (std::int64_t j : cols)
        if (j >= i) q += 2 * d(i, j) * x(i) * x(j), bl += d(i, j) * (x(i) * y(j) + x(j) * y(i));
    EXPECT_NEAR(mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 12, 2, 12, 2), q, 1e-12);
    EXPECT_NEAR(mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 1, 12, 2, 12, 2), bl, 1e-12);
  }

  // tr(B C_SS) of a block picked with step 3 from C (order 12) and B of order 4.
  densem b = random_symmetric(4, 9);
  b(1, 3) = b(3, 1) = 0.0;
  const Upper ub = upper_of(b);
  for (const auto& [first, step] : {std::pair{1, 3}, std::pair{3, 2}, std::pair{5, 2}, std::pair{2, 1}}) {
    const auto s = selected(first, first + 4 * step - 1, step);
    double want_tr = 0;
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t q = 0; q < 4; ++q) want_tr += b(r + 1, q + 1) * d(s[r], s[q]);
    EXPECT_NEAR(mmekit::skelda_trace_ac(u.ia, u.ja, u.a, ub.ia, ub.ja, ub.a, first, first + 4 * step - 1, step),
                want_tr, 1e-12);
  }
}

TEST(SkeldaForms, SizeMismatchesStop) {
  const densem d = random_symmetric(6, 3);
  Upper u = upper_of(d);
  const Array1<double> x(6, 1.0), x5(5, 1.0);
  Array1<double> y(6, 0.0), y7(7);
  const Upper b2 = upper_of(random_symmetric(2, 4));
  using mmekit::test::expect_stop;
  const std::string m = "ERROR: skelda_matmul() size mismatch", q = "ERROR: skelda_quadform() size mismatch",
                    bl = "ERROR: skelda_bilinear() size mismatch", qs = "ERROR: skelda_quadform_subset() size mismatch",
                    bs = "ERROR: skelda_bilinear_subset() size mismatch", t = "ERROR: skelda_trace_ac() size mismatch";
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x5, y, 6); }, m);
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y7, 6); }, m);
  expect_stop([&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y, 7); }, m);
  expect_stop([&] { mmekit::skelda_quadform(u.ia, u.ja, u.a, x5); }, q);
  expect_stop([&] { mmekit::skelda_bilinear(u.ia, u.ja, u.a, x, y7); }, bl);
  // (last-first+1) not a multiple of step stops before any sum; so do rows outside 1..n.
  expect_stop([&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 5, 1, 5, 2); }, qs);
  expect_stop([&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 7, 1, 6, 1); }, qs);
  expect_stop([&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 2, 6, 2, 6, 3); }, bs);
  expect_stop([&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x5, y, 1, 6, 1, 6, 1); }, bs);
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 1, 4, 3); }, t);
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 0, 5, 3); }, t);
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 6, 2); }, t);  // B not of order 3
  expect_stop([&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 5, 2); }, t);
  // A structure that runs past its arrays: a column beyond n, values cut short.
  Upper bad = u;
  bad.ja(2) = 7;
  expect_stop([&] { mmekit::skelda_quadform(bad.ia, bad.ja, bad.a, x); }, q);
  expect_stop([&] { mmekit::skelda_trace_ac(bad.ia, bad.ja, bad.a, 1, 6, 1); }, t);
  bad = u;
  bad.a.resize(bad.a.size() - 1);
  expect_stop([&] { mmekit::skelda_matmul(bad.ia, bad.ja, bad.a, x, y, 6); }, m);
}
