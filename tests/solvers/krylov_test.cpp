// Krylov solvers against direct dense solutions, their preconditioners and their failure paths;
// the routes of invert_matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/lapack_ref.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/solvers/inverse_routes.hpp"
#include "mmekit/solvers/krylov.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "sparse/test_helpers.hpp"

using namespace mmekit;
using namespace dense_test;

namespace {

using KrylovTest = sparse_test::FreshParameters;
using Vec = Array1<double>;
using test::expect_all_near;
using test::sines;
using test::solved;

densem random_general(int n, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem a(n, 0.0);
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= n; ++j)
      if (i != j && u(g) > 0.6) a(i, j) = u(g);
  for (int i = 1; i <= n; ++i) a(i, i) = 4.0 + u(g);
  return a;
}

sparse_hashm hash_of(const densem& a, char storage) {
  sparse_hashm h;
  init_sparse_hashm(h, static_cast<std::int32_t>(a.order()), std::nullopt, storage);
  for (int i = 1; i <= a.order(); ++i)
    for (int j = 1; j <= a.order(); ++j)
      if (a(i, j) != 0.0) addm_sparse_hashm(a(i, j), i, j, h);
  return h;
}

// The number of rounds that starts the closing line, whose rest must hold `tail`.
int closing_rounds(const std::string& text, const std::string& tail) {
  const std::size_t p = text.rfind(" iterations,   convergence criterion= ");
  EXPECT_NE(p, std::string::npos) << text;
  if (p == std::string::npos) return -1;
  EXPECT_NE(text.find(tail, p), std::string::npos) << text;
  const std::size_t s = text.rfind('\n', p);
  const std::size_t from = s == std::string::npos ? 0 : s + 1;
  return std::stoi(text.substr(from, p - from));
}

int count(const std::string& text, const std::string& what) {
  int c = 0;
  for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++c;
  return c;
}

}  // namespace

TEST_F(KrylovTest, PcgConvergesToTheDirectSolution) {
  const int n = 42;
  const densem a = test::random_spd(n, 0.15, 3);
  const Vec b = sines(n), ref = solved(a, b);
  sparse_hashm h = hash_of(a, 'u');
  sparse_param.solve_conv = 1e-18f;
  Vec plain(n);
  for (std::optional<std::int32_t> block : {std::optional<std::int32_t>{}, std::optional<std::int32_t>{1},
                                            std::optional<std::int32_t>{5}}) {
    Vec x1(n, 7.0), x2(n, 7.0);
    CaptureOutput cap;
    SOLVE_DENSEM_PCG(a, b, x1, block);
    const std::string t1 = cap.text();
    cap.clear();
    SOLVE_SPARSE_HASHM_PCG(h, b, x2, block);
    expect_all_near(x1, ref, 1e-6);
    expect_all_near(x2, ref, 1e-6);
    const int rounds = closing_rounds(t1, "  sec per round= ");
    EXPECT_EQ(count(t1, " round =  "), rounds);
    EXPECT_NE(t1.find(" round =  1   convergence =  "), std::string::npos) << t1;
    EXPECT_EQ(closing_rounds(cap.text(), "  sec per round= "), rounds);
    // Block size 1 and no block size are the same solver.
    if (!block) plain = x1;
    EXPECT_TRUE(block != 1 || x1 == plain);
  }
  // The hash matrix still takes additions.
  EXPECT_EQ(h.status, 1);
}

TEST_F(KrylovTest, WholeMatrixAsOneBlock) {
  // The preconditioner is then the inverse: PCG ends at once, and so does BiCGSTAB.
  const int n = 30;
  const densem a = test::random_spd(n, 0.2, 8);
  const Vec b = sines(n), ref = solved(a, b);
  sparse_hashm h = hash_of(a, 'u');
  Vec y(n);
  CaptureOutput cap;
  SOLVE_SPARSE_HASHM_PCG(h, b, y, n, 1);
  EXPECT_LE(closing_rounds(cap.text(), " sec per round= "), 2);
  expect_all_near(y, ref, 1e-8);
  cap.clear();
  SOLVE_SPARSE_HASHM_BiCGSTAB(h, b, y, n);
  EXPECT_NE(cap.text().find(" round  1    convergence by norms= "), std::string::npos) << cap.text();
  // The closing line after that early exit shows the convergence of the round before: none.
  EXPECT_NE(cap.text().find("\n 1  iterations,   convergence criterion= 0.0 "), std::string::npos) << cap.text();
  expect_all_near(y, ref, 1e-8);
}

TEST_F(KrylovTest, ManyRoundsRestartsAndLimits) {
  // A 1-D Laplacian with a constant diagonal: the preconditioner does not help, and conjugate
  // gradients need about n / 2 rounds, across the restarts at rounds 100 and 200.
  const int n = 400;
  densem a(n, 0.0);
  for (int i = 1; i <= n; ++i) {
    a(i, i) = 2.0;
    if (i < n) a(i, i + 1) = a(i + 1, i) = -1.0;
  }
  Vec b(n, 0.0);
  b(1) = 1.0;
  b(n) = 1.0;
  b(n / 2 + 1) = 2.0;
  const Vec ref = solved(a, b);
  Vec x(n);
  sparse_param.solve_conv = 1e-16f;
  CaptureOutput cap;
  SOLVE_DENSEM_PCG(a, b, x, std::nullopt, 2);
  const int rounds = closing_rounds(cap.text(), " sec per round= ");
  EXPECT_TRUE(rounds > 200 && rounds < 1000) << rounds;
  EXPECT_NE(cap.text().find(" round =  200   convergence =  "), std::string::npos);
  expect_all_near(x, ref, 1e-5);
  // A start at the solution ends after one round; verbosity 1 prints the closing line only.
  cap.clear();
  sparse_param.solve_conv = 1e-10f;
  sparse_param.solve_zerosol = false;
  Vec y = ref;
  SOLVE_DENSEM_PCG(a, b, y, std::nullopt, 1);
  EXPECT_EQ(std::make_pair(closing_rounds(cap.text(), " sec per round= "), count(cap.text(), "round =")), std::make_pair(1, 0));
  expect_all_near(y, ref, 1e-9);
  // No rounds at all: conv stays 0.
  cap.clear();
  sparse_param.solve_zerosol = true;
  sparse_param.solve_rounds = 0;
  SOLVE_DENSEM_PCG(a, b, y);
  EXPECT_EQ(cap.text(), " 0  iterations,   convergence criterion= 0.0  sec per round= 0.0\n");
  for (double v : y) EXPECT_EQ(v, 0.0);
}

TEST_F(KrylovTest, NonSymmetricSolvers) {
  const int n = 35;
  const densem a = random_general(n, 4);
  const Vec b = sines(n), ref = solved(a, b);
  sparse_hashm h = hash_of(a, 'f');
  sparse_param.solve_conv = 1e-18f;
  const std::pair<const char*, std::function<void(Vec&)>> cases[] = {
      {"SOLVE_DENSEM_CGS", [&](Vec& x) { SOLVE_DENSEM_CGS(a, b, x); }},
      {"SOLVE_SPARSE_HASHM_CGS", [&](Vec& x) { SOLVE_SPARSE_HASHM_CGS(h, b, x); }},
      {"SOLVE_DENSEM_BiCGSTAB", [&](Vec& x) { SOLVE_DENSEM_BiCGSTAB(a, b, x, 1, 0); }},
      {"SOLVE_SPARSE_HASHM_BiCGSTAB", [&](Vec& x) { SOLVE_SPARSE_HASHM_BiCGSTAB(h, b, x, 4); }},
  };
  for (const auto& [name, run] : cases) {
    Vec x(n, 3.0);
    CaptureOutput cap;
    run(x);
    const std::string t = cap.text();
    EXPECT_EQ(t.find(std::string(" Solving by ") + name + "\n"), 0u) << t;
    EXPECT_NE(t.find(" round  1    convergence= "), std::string::npos) << t;
    EXPECT_GT(closing_rounds(t, "  sec/round= "), 1);
    expect_all_near(x, ref, 1e-6);
  }
  // The round limit: the last iterate and the closing line, no failure.
  sparse_param.solve_rounds = 2;
  Vec x(n);
  CaptureOutput cap;
  SOLVE_DENSEM_CGS(a, b, x);
  EXPECT_TRUE(closing_rounds(cap.text(), "  sec/round= ") == 2 && cap.text().find("Fail") == std::string::npos) << cap.text();
}

TEST_F(KrylovTest, FailurePathsAndWarnings) {
  const int n = 6;
  const densem a = random_general(n, 9);
  sparse_hashm h = hash_of(a, 'f');
  const Vec zero(n, 0.0);
  // b = 0 from a zero start: rho is exactly 0 in the first round. And omega exactly 0:
  // A = [1 2; 0 1], b = (1, 1) gives s = (-1/2, 1/2) and t = A s = (1/2, 1/2).
  const densem c = dense_test::from_rows({{1, 2}, {0, 1}});
  const Vec ones(2, 1.0);
  const std::pair<std::string, std::function<void(Vec&)>> breakdowns[] = {
      {" Solving by SOLVE_DENSEM_CGS\n CGS Fail \n 1  iterations,   ", [&](Vec& x) { SOLVE_DENSEM_CGS(a, zero, x); }},
      {" Solving by SOLVE_SPARSE_HASHM_BiCGSTAB\n BiCGSAB Fail \n 1  iterations,   ",
       [&](Vec& x) { SOLVE_SPARSE_HASHM_BiCGSTAB(h, zero, x); }},
      {" Solving by SOLVE_DENSEM_BiCGSTAB\n BiCGSAB Fail \n 1  iterations,",
       [&](Vec& x) { x = Vec(2, 9.0); SOLVE_DENSEM_BiCGSTAB(c, ones, x); }}};
  for (const auto& [start, run] : breakdowns) {
    Vec x(n, 5.0);
    CaptureOutput cap;
    run(x);
    EXPECT_EQ(cap.text().find(start), 0u) << cap.text();
    for (double v : x) EXPECT_EQ(v, 0.0);
  }
  // Hash PCG on a full-stored matrix warns and goes on.
  const densem s = test::random_spd(n, 0.5, 2);
  sparse_hashm f = hash_of(s, 'f');
  const Vec b = sines(n);
  Vec x(n);
  CaptureOutput cap;
  SOLVE_SPARSE_HASHM_PCG(f, b, x, std::nullopt, 1);
  EXPECT_EQ(cap.text().find(" SOLVE_SPARSE_HASHM_PCG: not work Non-Symetric full-stored matrix\n"), 0u);
  expect_all_near(x, solved(s, b), 1e-6);
  // b = 0 in PCG: the criterion is not a number, and the rounds run to the limit.
  cap.clear();
  sparse_param.solve_rounds = 3;
  SOLVE_DENSEM_PCG(a, zero, x, std::nullopt, 1);
  EXPECT_TRUE(closing_rounds(cap.text(), " sec per round= ") == 3 && cap.text().find("NaN") != std::string::npos) << cap.text();
  const Vec short_b(n - 1, 1.0);
  test::expect_stop([&] { SOLVE_DENSEM_PCG(a, short_b, x); },
                    " SOLVE_DENSEM_PCG: vectors shorter than the order of the matrix 6");
}

// invert_matrix: every route on a small matrix, the messages of the routes and the stops.
TEST(InvertMatrix, EveryWorkingRouteInvertsAndReports) {
  const densem a = from_rows({{4, 2, 0}, {2, 2, 1}, {0, 1, 3}});
  // det = 4 (6 - 1) - 2 (6 - 0) = 8; the inverse by cofactors / 8.
  const densem inv = from_rows({{5.0 / 8, -6.0 / 8, 2.0 / 8}, {-6.0 / 8, 12.0 / 8, -4.0 / 8}, {2.0 / 8, -4.0 / 8, 4.0 / 8}});
  // The route's own lines before the wall-time line ("..." ends a line of which only the
  // start is fixed).
  const std::pair<std::int32_t, std::vector<std::string>> routes[] = {
      {1, {}}, {2, {}}, {5, {}},
      {3, {"     Inverse by ginv2 elapsed time:  ...", "    rank:  3"}},
      {4, {" 5 elements in matrix", " Generalised inverse of matrix with order = 3    and rank = 3",
           " no. of negative pivots = 0", " Inversion done", " Rank of matrix                  = 3",
           " Log determinant                 = ...", " No. of non-zero elements        = 6"}},
      {8, {" TORVEX inverse"}},
      {9, {"     Inverse by ginv2 elapsed time:  ..."}}};
  for (const auto& [route, own] : routes) {
    SCOPED_TRACE("route " + std::to_string(route));
    for (std::int32_t msg : {1, 0}) {
      CaptureOutput cap;
      densem g = a;
      inversion_state.rank = -1;
      invert_matrix(g, route, msg);
      EXPECT_LT(max_abs_diff(g, inv), 1e-14);
      EXPECT_EQ(inversion_state.rank, 3);
      std::vector<std::string> want = own;
      if (msg > 0) want.push_back("    Wall time:  ...");
      const std::string text = cap.text();
      std::size_t at = 0;
      for (const std::string& line : want) {
        const bool open = line.size() > 3 && line.compare(line.size() - 3, 3, "...") == 0;
        const std::string fixed = open ? line.substr(0, line.size() - 3) : line + "\n";
        ASSERT_EQ(text.compare(at, fixed.size(), fixed), 0) << text;
        at = open ? text.find('\n', at) + 1 : at + fixed.size();
      }
      EXPECT_EQ(at, text.size()) << text;
    }
  }
}

TEST(InvertMatrix, RankDeficientRoutesAndTolerance) {
  // Row 3 = row 1 + row 2.
  const densem a = from_rows({{4, 2, 6}, {2, 2, 4}, {6, 4, 10}});
  for (std::int32_t route : {1, 2, 3, 4, 8, 9}) {
    SCOPED_TRACE("route " + std::to_string(route));
    CaptureOutput cap;
    densem g = a;
    invert_matrix(g, route, 0);
    EXPECT_EQ(inversion_state.rank, 2);
    EXPECT_LT(max_abs_diff(matmul(matmul(a, g), a), a), 1e-12);
  }
  // The pivot limit of the ginv2 routes is tol_ginv.
  const double keep = inversion_state.tol_ginv;
  inversion_state.tol_ginv = 0.5;
  densem d = from_rows({{1, 0}, {0, 0.4}});
  CaptureOutput cap;
  invert_matrix(d, 9, 0);
  inversion_state.tol_ginv = keep;
  EXPECT_EQ(std::make_pair(inversion_state.rank, d), std::make_pair(1, from_rows({{1, 0}, {0, 0}})));
}

TEST(InvertMatrix, StoppingRoutes) {
  const densem a = from_rows({{2, 0}, {0, 2}});
  for (std::int32_t route : {6, 7, 0, 10, -1}) {
    densem g = a;
    test::expect_stop([&] { invert_matrix(g, route, 1); },
                      route == 6 || route == 7
                          ? " MKL inverse specified but Not linked with library compile with _MYMKL = .TRUE. "
                          : " Wrong option Create Inverse");
    EXPECT_EQ(g, a);
  }
  densem ind = from_rows({{1, 2}, {2, 1}});
  test::expect_stop([&] { invert_matrix(ind, 9); }, " ginv2: Negative pivot: 2 -3.0");
}

TEST(InvertMatrix, RowCompressedUpperForm) {
  // The diagonal first (kept when zero), then the nonzero elements to its right; the lower
  // triangle is not read.
  sparse_ija m;
  densem_to_ija_upper(from_rows({{4, 0, 1}, {9, 0, 2}, {9, 9, 3}}), m);
  EXPECT_EQ(std::make_pair(m.n, m.nel), std::make_pair(3, 5));
  EXPECT_EQ(m.ia.vec(), (std::vector<std::int32_t>{1, 3, 5, 6}));
  EXPECT_EQ(m.ja.vec(), (std::vector<std::int32_t>{1, 3, 2, 3, 3}));
  EXPECT_EQ(m.a.vec(), (std::vector<double>{4, 1, 0, 2, 3}));
}
