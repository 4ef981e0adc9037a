// Solves, products and log-determinants on hand-made supernodal factors and through the whole
// chain of tasks against dense LAPACK, the statuses of the entries, and the forms on a
// row-compressed upper triangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/forms.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/support/output.hpp"

using mmekit::Array1;
using mmekit::Array2;
using mmekit::densem;
using mmekit::skelda_state;
using mmekit::skeldatask;
using namespace mmekit::test;

namespace {

// Five supernodes; the last, a root of width 3, takes the panel form when p = 2.
const std::vector<std::vector<std::int32_t>> five_rows = {{4, 8, 9}, {4, 5, 10}, {6, 9}, {8, 10}, {}};
void five(std::int64_t p) { hand_structure(10, {1, 3, 4, 6, 8}, five_rows, p); }

// Row i of the result is row perm(i) of x (the permuted numbering), or with `back` the reverse.
Array2<double> by_perm(const Array2<double>& x, const Array1<std::int32_t>& perm, bool back = false) {
  Array2<double> y(x.rows(), x.cols());
  for (std::int64_t c = 1; c <= x.cols(); ++c)
    for (std::int64_t i = 1; i <= x.rows(); ++i) (back ? y(perm(i), c) : y(i, c)) = back ? x(i, c) : x(perm(i), c);
  return y;
}

// The front-end tests empty the step table of the process; each test here puts the steps back.
class SkeldaSolve : public ::testing::Test {
 protected:
  void SetUp() override { mmekit::install_solve_steps(mmekit::skelda_steps()); }
};

}  // namespace

TEST_F(SkeldaSolve, AgreesWithDenseLapack) {
  // One dense supernode of order 7 (p = 3: three block columns, two padding rows), five
  // supernodes with rows below, two roots of width 3; normal and panel form.
  struct Case {
    std::int32_t n;
    std::vector<std::int32_t> firsts;
    std::vector<std::vector<std::int32_t>> rows;
    std::int64_t panel;
  };
  const Case cases[] = {{7, {1}, {{}}, 256},         {7, {1}, {{}}, 3},        {10, {1, 3, 4, 6, 8}, five_rows, 256},
                        {10, {1, 3, 4, 6, 8}, five_rows, 2}, {6, {1, 4}, {{}, {}}, 2}};
  unsigned seed = 11;
  for (const Case& c : cases)
    for (int type : {1, 2})
      for (bool permute : {false, true}) {
        SCOPED_TRACE("order " + std::to_string(c.n) + " panel " + std::to_string(c.panel) + " type " +
                     std::to_string(type) + (permute ? " permuted" : ""));
        // P'AP = L0 L0' for a factor L0 drawn on the structure; LAPACK's factor goes into lnz.
        hand_structure(c.n, c.firsts, c.rows, c.panel);
        const std::int32_t n = c.n;
        const densem l0 = random_factor(++seed), ap = gram(l0), lc = lapack_cholesky(ap);
        store_factor(type == 1 ? lc : ldl_of_cholesky(lc), type);
        Array1<std::int32_t>& perm = *skelda_state.perm;
        if (permute) std::shuffle(perm.begin(), perm.end(), std::mt19937(seed));

        // Task 50 on three right-hand sides b = A x0; rhs is left alone.
        const Array2<double> x0 = random_columns(n, 3, seed), b = by_perm(dense_times(ap, by_perm(x0, perm)), perm, true);
        Array2<double> rhs = b, sol;
        std::int32_t st = -1;
        skeldatask(50, {.rhs = &rhs, .sol = &sol, .status = &st});
        ASSERT_EQ(st, 0);
        EXPECT_LT(max_diff(sol, x0), 1e-10);
        EXPECT_TRUE(rhs == b);

        // Tasks 55 and 54: 2 sum log l0(j,j) and its exponential.
        double logdet = 0, det = 0;
        for (std::int32_t j = 1; j <= n; ++j) logdet += 2.0 * std::log(l0(j, j));
        skeldatask(55, {.det = &det, .status = &st});
        EXPECT_NEAR(det, logdet, 1e-11);
        skeldatask(54, {.det = &det, .status = &st});
        EXPECT_NEAR(det, std::exp(logdet), 1e-11 * std::exp(logdet));

        // F = L (Cholesky) and L sqrt(D) (LDL) are both L0: task 100 gives F x, task 90 the y
        // with F' y = x, in the permuted numbering.
        skeldatask(100, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_LT(max_diff(by_perm(sol, perm), dense_times(l0, by_perm(rhs, perm))), 1e-10);
        skeldatask(90, {.rhs = &rhs, .sol = &sol, .status = &st});
        EXPECT_LT(max_diff(dense_times(l0, by_perm(sol, perm), true), by_perm(rhs, perm)), 1e-10);

        // The right-hand sides as the rows of a 3-by-n array (stride 3), solved in place.
        Array2<double> across(3, n), want(3, n);
        for (std::int32_t i = 1; i <= n; ++i)
          for (int k = 1; k <= 3; ++k) across(k, i) = b(i, k), want(k, i) = x0(i, k);
        for (int k = 1; k <= 3; ++k) {
          const mmekit::SkeldaVector v{across.data() + (k - 1), n, 3};
          mmekit::skelda_solve(v, v, st);
          EXPECT_EQ(st, 0);
        }
        EXPECT_LT(max_diff(across, want), 1e-10);
      }
}

TEST_F(SkeldaSolve, LostConstrainedAndNegativeColumns) {
  // LDL on five supernodes with a panel-form root: column 5 lost (pivot 1, cflag -1, zero
  // below), column 2 constrained (unit row and column, cflag 1), column 9 with pivot -2.
  five(2);
  const std::int32_t n = 10;
  densem l = ldl_of_cholesky(random_factor(21)), unit(n, 0.0), f(n, 0.0);
  for (std::int32_t i = 3; i <= n; ++i) l(i, 2) = 0.0, l(i, 5) = i > 5 ? 0.0 : l(i, 5);
  l(2, 1) = 0.0;
  l(5, 5) = l(2, 2) = 1.0;
  l(9, 9) = -2.0;
  store_factor(l, 2);
  (*skelda_state.cflag)(5) = -1;
  (*skelda_state.cflag)(2) = 1;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = j; i <= n; ++i) {
      unit(i, j) = i == j ? 1.0 : l(i, j);
      f(i, j) = unit(i, j) * (j == 9 ? 0.0 : std::sqrt(l(j, j)));
    }

  // The solve by its definition x = L^-T D^+ L^-1 b, D^+ zero at the lost, constrained and
  // negative pivots.
  Array2<double> b = random_columns(n, 1, 3), want = b, sol;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = j + 1; i <= n; ++i) want(i, 1) -= unit(i, j) * want(j, 1);
  for (std::int32_t j = 1; j <= n; ++j) want(j, 1) = (j == 2 || j == 5 || j == 9) ? 0.0 : want(j, 1) / l(j, j);
  for (std::int32_t j = n; j >= 1; --j)
    for (std::int32_t i = j + 1; i <= n; ++i) want(j, 1) -= unit(i, j) * want(i, 1);
  std::int32_t st = -1;
  skeldatask(50, {.rhs = &b, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  EXPECT_LT(max_diff(sol, want), 1e-12);

  // The log-determinant sums the logs of the positive pivots (the lost and constrained hold 1).
  double logdet = 0, det = 0;
  for (std::int32_t j = 1; j <= n; ++j) logdet += j == 9 ? 0.0 : std::log(l(j, j));
  skeldatask(55, {.det = &det, .status = &st});
  EXPECT_NEAR(det, logdet, 1e-12);

  // F has a zero column where the pivot is not positive: F x ignores x(9); F' y = x gives
  // y(9) = 0 and holds in every other row.
  Array2<double> x = random_columns(n, 1, 2), y(n, 1);
  skeldatask(100, {.rhs = &x, .sol = &y, .status = &st});
  EXPECT_LT(max_diff(y, dense_times(f, x)), 1e-12);
  skeldatask(90, {.rhs = &x, .sol = &y, .status = &st});
  EXPECT_EQ(y(9, 1), 0.0);
  Array2<double> fy = dense_times(f, y, true);
  fy(9, 1) = x(9, 1);
  EXPECT_LT(max_diff(fy, x), 1e-12);
}

TEST_F(SkeldaSolve, StatusOfTheEntries) {
  const std::int32_t n = 10;
  Array1<double> x(n, 1.0), y(n, 5.0), shorter(n - 1, 1.0);
  mmekit::SkeldaConstVector in;
  mmekit::SkeldaVector out;
  auto& s = skelda_state;
  // The state spoilt, and the status of the solve and both products, then of the
  // log-determinant. Any failure leaves the output alone.
  const std::pair<std::function<void()>, std::pair<int, int>> rows[] = {
      {[&] { s.stage() = 20; }, {3, 3}},  // no factor yet
      {[&] { s.stage() = 40; }, {3, 3}},  // the factor given up for the inverse
      {[&] { in = mmekit::vector_of(shorter); }, {4, 0}},
      {[&] { out = mmekit::vector_of(shorter); }, {4, 0}},
      {[&] { out.stride = 0; }, {4, 0}},
      {[&] { (*s.lindx)(2) = n + 1; }, {13, 10}},  // a row beyond n
      {[&] { (*s.lindx)(1) = 2; }, {13, 10}},      // a row inside the block
      {[&] { s.lnz->resize(s.lnz->size() - 1); }, {13, 10}},
      {[&] { (*s.xlnz)(3) -= 1; }, {13, 10}},      // supernode 2 has no room
      {[&] { (*s.xsuper)(6) = n; }, {13, 10}},     // the columns do not reach n
      {[&] { s.xlindx.reset(); }, {13, 10}},
      {[&] { s.iparm(mmekit::kPanelSize) = 0; }, {13, 10}},
      {[&] { (*s.perm)(4) = 0; }, {13, 0}},
      {[&] { s.cflag.reset(); }, {13, 0}},
      {[&] { s.iparm(mmekit::kFactorType) = 1, (*s.lnz)(position(9, 9)) = 0.0; }, {13, 0}},
  };
  const auto fresh = [] { five(2), store_factor(ldl_of_cholesky(random_factor(41)), 2); };
  for (std::size_t k = 0; k < std::size(rows); ++k) {
    fresh();
    in = mmekit::vector_of(x), out = mmekit::vector_of(y);
    rows[k].first();
    std::int32_t st = -1;
    double value = 0;
    mmekit::skelda_solve(in, out, st);
    EXPECT_EQ(st, rows[k].second.first) << k;
    for (int inverse : {0, -1}) {
      mmekit::skelda_multiply(in, out, st, inverse);
      EXPECT_EQ(st, rows[k].second.first) << k << " " << inverse;
    }
    mmekit::skelda_logdet(value, st);
    EXPECT_EQ(st, rows[k].second.second) << k;
  }
  for (std::int32_t i = 1; i <= n; ++i) EXPECT_EQ(y(i), 5.0);

  // An unknown direction; a sol of another shape and a spoilt factor under the task's label;
  // the kernel's own check of the layout.
  fresh();
  std::int32_t st = -1, verbose = 1;
  mmekit::skelda_multiply(mmekit::vector_of(x), mmekit::vector_of(y), st, 1);
  EXPECT_EQ(st, 4);
  Array2<double> rhs(n, 2, 1.0), sol(n, 1);
  mmekit::CaptureOutput cap;
  skeldatask(50, {.rhs = &rhs, .sol = &sol, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 4);
  s.lindx->fill(n + 1);
  skeldatask(90, {.rhs = &rhs, .sol = &rhs, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 13);
  EXPECT_EQ(cap.text(), " SKELDATASK: [solve ] Abnormal parameters or arguments.\n"
                        " SKELDATASK: [mulinv] A trouble in solution (unexpected modification on the factor\n");
  expect_stop([&] { mmekit::supernodal_logdet(mmekit::skelda_layout(), Array1<double>(1, 1.0), 2); },
              "supernodal_logdet: the factor does not fit its storage map");
}

// The solve tasks from a fresh state (ordering, symbolic and numerical factorisation on the way)
// against dense LAPACK: a random positive definite matrix, and the singular mixed-model equations
// of the generator.
namespace {

class SkeldaSolveChain : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_state = mmekit::SkeldaState{};
    mmekit::skelda_steps().symfac = mmekit::skelda_symfac_step;
    mmekit::skelda_steps().numfac = mmekit::skelda_numfac_step;
    mmekit::install_solve_steps(mmekit::skelda_steps());
  }
};

}  // namespace

TEST_F(SkeldaSolveChain, RandomPositiveDefiniteMatrix) {
  for (const int run : {1, 2, 3}) {  // Cholesky, LDL, LDL on merged supernodes
    SCOPED_TRACE(run);
    std::int64_t type = run == 1 ? 1 : 2;
    skelda_state = mmekit::SkeldaState{};
    skelda_state.switches.relaxed_amalgamation = run == 3;
    mmekit::set_iparm(mmekit::kPanelSize, 4);  // a panel-form root
    const densem a = random_spd(60, 0.08, 17);
    mmekit::sparse_ija m = upper_ija(a);
    std::int32_t n = m.n, st = -1, verbose = 2, parnum = 19;
    skeldatask(2, {.parnum = &parnum, .parval8 = &type, .status = &st});

    // Task 50 on a fresh state runs every step; a second call reuses the factor.
    const Array2<double> x0 = random_columns(n, 3, 5);
    Array2<double> b = dense_times(a, x0), sol;
    mmekit::CaptureOutput cap;
    skeldatask(50, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .rhs = &b, .sol = &sol, .verbose = &verbose,
                    .status = &st});
    ASSERT_EQ(st, 0) << cap.text();
    EXPECT_LT(max_diff(sol, x0), 1e-9);
    cap.clear();
    skeldatask(50, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .rhs = &b, .sol = &b, .verbose = &verbose,
                    .status = &st});
    EXPECT_EQ(cap.text(), " SKELDATASK: task= 50 (solution)\n");
    EXPECT_LT(max_diff(b, x0), 1e-9);
  }
}

TEST_F(SkeldaSolveChain, SingularMixedModelEquations) {
  // Herd-year and parity sum to the same columns: the factorisation loses columns, and the
  // generalised solution satisfies the consistent system A x = A x0.
  SmallMme mme = small_mme(100, 3);
  mmekit::sparse_ija& m = mme.ija;
  const densem a = dense_of(m);
  std::int32_t n = m.n, st = -1, ival = 0;
  Array2<double> x0 = random_columns(n, 1, 13), b = dense_times(a, x0), sol;
  skeldatask(50, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .rhs = &b, .sol = &sol, .status = &st});
  ASSERT_EQ(st, 0);
  const Array2<double> ax = dense_times(a, sol);
  for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(ax(i, 1), b(i, 1), 1e-8 * (1.0 + std::abs(b(i, 1)))) << i;
  // The lost columns solve to 0.
  Array1<std::int32_t> flags(n);
  skeldatask(7, {.getc = &flags, .status = &st});
  skeldatask(56, {.ival = &ival, .status = &st});
  std::int32_t kept = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    if (flags(i) & 1)
      EXPECT_EQ(sol(i, 1), 0.0) << i;
    else
      ++kept;
  }
  EXPECT_EQ(kept, ival);
  EXPECT_EQ(ival, lapack_rank(a));
}

// ---------------------------------------------------------------------------------------------
// Forms on the upper triangle.

namespace {

std::vector<std::int64_t> selected(std::int64_t first, std::int64_t last, std::int64_t step) {
  std::vector<std::int64_t> s;
  for (std::int64_t i = first; i <= last; i += step) s.push_back(i);
  return s;
}

}  // namespace

TEST(SkeldaForms, AgreeWithDenseDefinitions) {
  const std::int32_t n = 12;
  densem d = random_spd(n, 0.8, 7);
  mmekit::sparse_ija u = upper_ija(d);
  // Row 5 without its diagonal: its place taken by a second element of a later column.
  const std::int32_t j5 = u.ja(u.ia(5) + 1);
  u.ja(u.ia(5)) = j5;
  u.a(u.ia(5)) = 0.5;
  d(5, j5) = d(j5, 5) += 0.5;
  d(5, 5) = 0.0;
  const Array2<double> xc = random_columns(n, 2, 1), ax = dense_times(d, xc);
  Array1<double> x(n), y(n), dx(n, 99.0);
  for (std::int32_t i = 1; i <= n; ++i) x(i) = xc(i, 1), y(i) = xc(i, 2);

  // A x into another array and in place.
  Array1<double> same = x;
  mmekit::skelda_matmul(u.ia, u.ja, u.a, x, dx, n);
  mmekit::skelda_matmul(u.ia, u.ja, u.a, same, same, n);
  for (std::int32_t i = 1; i <= n; ++i) {
    EXPECT_NEAR(dx(i), ax(i, 1), 1e-13);
    EXPECT_NEAR(same(i), ax(i, 1), 1e-13);
  }

  // x_S' A_SS x_S, x_S' A_SS y_S and tr(A_SS) for selections with steps 1, 2, 3 (rows =
  // columns), the whole matrix, an empty selection and a step 0 taken as 1.
  const int ranges[][3] = {{1, 12, 1}, {3, 8, 1}, {1, 12, 2}, {2, 11, 2}, {1, 12, 3}, {3, 11, 3}, {4, 3, 1}, {5, 6, 0}};
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
  // upper elements (j >= i) count, in the quadratic form twice each.
  double q = 0, bl = 0;
  for (std::int64_t i : selected(1, 12, 2))
    for (std::int64_t j : selected(i + 1, 12, 2)) q += 2 * d(i, j) * x(i) * x(j), bl += d(i, j) * (x(i) * y(j) + x(j) * y(i));
  EXPECT_NEAR(mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 12, 2, 12, 2), q, 1e-12);
  EXPECT_NEAR(mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 1, 12, 2, 12, 2), bl, 1e-12);

  // tr(B C_SS) for a block of order 4 picked with steps 3, 2 and 1, an element of B left out.
  densem b = random_spd(4, 0.8, 9);
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
  mmekit::sparse_ija u = upper_ija(random_spd(6, 0.8, 3)), b2 = upper_ija(random_spd(2, 0.8, 4));
  const Array1<double> x(6, 1.0), x5(5, 1.0);
  Array1<double> y(6, 0.0), y7(7);
  // Vectors not of order n; a range not a multiple of the step; rows outside 1..n; B not of the
  // block's order; a column beyond n; values cut short.
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"skelda_matmul", [&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x5, y, 6); }},
      {"skelda_matmul", [&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y7, 6); }},
      {"skelda_matmul", [&] { mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y, 7); }},
      {"skelda_quadform", [&] { mmekit::skelda_quadform(u.ia, u.ja, u.a, x5); }},
      {"skelda_bilinear", [&] { mmekit::skelda_bilinear(u.ia, u.ja, u.a, x, y7); }},
      {"skelda_bilinear_subset", [&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x5, y, 1, 6, 1, 6, 1); }},
      {"skelda_quadform_subset", [&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 5, 1, 5, 2); }},
      {"skelda_bilinear_subset", [&] { mmekit::skelda_bilinear_subset(u.ia, u.ja, u.a, x, y, 2, 6, 2, 6, 3); }},
      {"skelda_trace_ac", [&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 1, 4, 3); }},
      {"skelda_quadform_subset", [&] { mmekit::skelda_quadform_subset(u.ia, u.ja, u.a, x, 1, 7, 1, 6, 1); }},
      {"skelda_trace_ac", [&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 0, 5, 3); }},
      {"skelda_trace_ac", [&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 6, 2); }},
      {"skelda_trace_ac", [&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, b2.ia, b2.ja, b2.a, 1, 5, 2); }},
      {"skelda_quadform", [&] { u.ja(2) = 7, mmekit::skelda_quadform(u.ia, u.ja, u.a, x); }},
      {"skelda_trace_ac", [&] { mmekit::skelda_trace_ac(u.ia, u.ja, u.a, 1, 6, 1); }},
      {"skelda_matmul", [&] { u.ja(2) = 6, u.a.resize(u.a.size() - 1), mmekit::skelda_matmul(u.ia, u.ja, u.a, x, y, 6); }},
  };
  for (const auto& [routine, call] : cases) expect_stop(call, std::string("ERROR: ") + routine + "() size mismatch");
}
