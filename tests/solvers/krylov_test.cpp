// Krylov solvers against direct dense solutions, their preconditioners and their failure paths.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/solvers/krylov.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

#include "sparse/test_helpers.hpp"

using namespace mmekit;

namespace {

using KrylovTest = sparse_test::FreshParameters;

densem random_spd(int n, double density, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  densem a(n, 0.0);
  for (int i = 1; i <= n; ++i)
    for (int j = i + 1; j <= n; ++j)
      if (u(g) < density) a(i, j) = a(j, i) = u(g) * 2.0 - 1.0;
  for (int i = 1; i <= n; ++i) {
    double s = 0;
    for (int j = 1; j <= n; ++j)
      if (j != i) s += std::abs(a(i, j));
    a(i, i) = 0.6 * s + 0.2 + 3.0 * u(g);  // not dominant: the solvers need some rounds
  }
  return a;
}

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

// Direct solution by LAPACK.
std::vector<double> direct(const densem& a, const std::vector<double>& b) {
  const int n = static_cast<int>(a.order());
  densem c = a;
  std::vector<double> x = b;
  std::vector<blas_int> piv(static_cast<std::size_t>(n));
  EXPECT_EQ(blas::gesv(n, 1, c.data(), n, piv.data(), x.data(), n), 0);
  return x;
}

std::vector<double> rhs_of(int n) {
  std::vector<double> b(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) b[static_cast<std::size_t>(i)] = std::cos(1.0 + i);
  return b;
}

sparse_hashm hash_of(const densem& a, char storage) {
  sparse_hashm h;
  init_sparse_hashm(h, static_cast<std::int32_t>(a.order()), std::nullopt, storage);
  for (int i = 1; i <= a.order(); ++i)
    for (int j = 1; j <= a.order(); ++j)
      if (a(i, j) != 0.0) addm_sparse_hashm(a(i, j), i, j, h);
  return h;
}

void expect_close(const std::vector<double>& x, const std::vector<double>& y, double tol) {
  ASSERT_EQ(x.size(), y.size());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(x[i], y[i], tol) << i;
}

// The number that starts the closing line.
int closing_rounds(const std::string& text, const std::string& tail) {
  const std::size_t p = text.rfind(" iterations,   convergence criterion= ");
  EXPECT_NE(p, std::string::npos) << text;
  if (p == std::string::npos) return -1;
  const std::size_t s = text.rfind('\n', p);
  EXPECT_NE(text.find(tail, p), std::string::npos) << text;
  return std::stoi(text.substr(s == std::string::npos ? 0 : s + 1, p - (s == std::string::npos ? 0 : s + 1)));
}

int count(const std::string& text, const std::string& what) {
  int c = 0;
  for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++c;
  return c;
}

}  // namespace

TEST_F(KrylovTest, PcgConvergesToTheDirectSolution) {
  const int n = 42;
  densem a = random_spd(n, 0.15, 3);
  std::vector<double> b = rhs_of(n), ref = direct(a, b);
  sparse_hashm h = hash_of(a, 'u');
  sparse_param.solve_conv = 1e-18f;  // close to the direct solution
  for (std::optional<std::int32_t> block : {std::optional<std::int32_t>{}, std::optional<std::int32_t>{1},
                                            std::optional<std::int32_t>{5}}) {
    std::vector<double> x1(n, 7.0), x2(n, 7.0);
    CaptureOutput cap;
    SOLVE_DENSEM_PCG(a, b, x1, block);
    const std::string t1 = cap.text();
    cap.clear();
    SOLVE_SPARSE_HASHM_PCG(h, b, x2, block);
    const std::string t2 = cap.text();
    expect_close(x1, ref, 1e-6);
    expect_close(x2, ref, 1e-6);
    const int rounds = closing_rounds(t1, "  sec per round= ");
    EXPECT_EQ(count(t1, " round =  "), rounds);
    EXPECT_NE(t1.find(" round =  1   convergence =  "), std::string::npos) << t1;
    EXPECT_EQ(closing_rounds(t2, "  sec per round= "), rounds);
  }
  // Block size 1 and no block size are the same solver.
  std::vector<double> xa(n), xb(n);
  {
    CaptureOutput cap;
    SOLVE_DENSEM_PCG(a, b, xa);
    SOLVE_DENSEM_PCG(a, b, xb, 1);
  }
  EXPECT_EQ(xa, xb);
  // The hash matrix still takes additions.
  EXPECT_EQ(h.status, 1);
  addm_sparse_hashm(1.0, 1, 2, h);
}

TEST_F(KrylovTest, WholeMatrixAsOneBlock) {
  const int n = 30;
  densem a = random_spd(n, 0.2, 8);
  std::vector<double> b = rhs_of(n), ref = direct(a, b);
  sparse_hashm h = hash_of(a, 'u');
  std::vector<double> x(n), y(n);
  CaptureOutput cap;
  SOLVE_DENSEM_PCG(a, b, x, n, 1);
  EXPECT_LE(closing_rounds(cap.text(), " sec per round= "), 2);
  cap.clear();
  SOLVE_SPARSE_HASHM_PCG(h, b, y, n, 1);
  EXPECT_LE(closing_rounds(cap.text(), " sec per round= "), 2);
  expect_close(x, ref, 1e-8);
  expect_close(y, ref, 1e-8);
  // The same preconditioner makes CGS and BiCGSTAB exact at once.
  cap.clear();
  SOLVE_SPARSE_HASHM_BiCGSTAB(h, b, y, n);
  EXPECT_NE(cap.text().find(" round  1    convergence by norms= "), std::string::npos) << cap.text();
  // The closing line after that early exit shows the convergence of the round before: none.
  EXPECT_NE(cap.text().find("\n 1  iterations,   convergence criterion= 0.0 "), std::string::npos) << cap.text();
  expect_close(y, ref, 1e-8);
}

TEST_F(KrylovTest, ManyRoundsAndTheResidualRestart) {
  // A 1-D Laplacian with a constant diagonal: the preconditioner does not help, and conjugate
  // gradients need about n / 2 rounds, across the restarts at rounds 100 and 200.
  const int n = 400;
  densem a(n, 0.0);
  for (int i = 1; i <= n; ++i) {
    a(i, i) = 2.0;
    if (i < n) a(i, i + 1) = a(i + 1, i) = -1.0;
  }
  std::vector<double> b(n, 0.0);
  b[0] = 1.0;
  b[n - 1] = 1.0;
  b[n / 2] = 2.0;
  std::vector<double> ref = direct(a, b), x(n);
  sparse_param.solve_conv = 1e-16f;
  CaptureOutput cap;
  SOLVE_DENSEM_PCG(a, b, x, std::nullopt, 2);
  const std::string t = cap.text();
  const int rounds = closing_rounds(t, " sec per round= ");
  EXPECT_GT(rounds, 200);
  EXPECT_LT(rounds, 1000);
  EXPECT_NE(t.find(" round =  200   convergence =  "), std::string::npos);
  expect_close(x, ref, 1e-5);
  // A start at the solution ends after one round.
  cap.clear();
  sparse_param.solve_conv = 1e-10f;
  sparse_param.solve_zerosol = false;
  std::vector<double> y = ref;
  SOLVE_DENSEM_PCG(a, b, y, std::nullopt, 1);
  EXPECT_EQ(closing_rounds(cap.text(), " sec per round= "), 1);
  EXPECT_EQ(count(cap.text(), "round ="), 0);  // verbosity 1: the closing line only
  expect_close(y, ref, 1e-9);
  // No rounds at all: conv stays 0.
  cap.clear();
  sparse_param.solve_zerosol = true;
  sparse_param.solve_rounds = 0;
  SOLVE_DENSEM_PCG(a, b, y);
  EXPECT_EQ(cap.text(), " 0  iterations,   convergence criterion= 0.0  sec per round= 0.0\n");
  for (double v : y) EXPECT_EQ(v, 0.0);
  // Verbosity 0 is silent.
  cap.clear();
  sparse_param.solve_rounds = 1000;
  SOLVE_DENSEM_PCG(a, b, y, std::nullopt, 0);
  EXPECT_EQ(cap.text(), "");
}

TEST_F(KrylovTest, NonSymmetricSolvers) {
  const int n = 35;
  densem a = random_general(n, 4);
  std::vector<double> b = rhs_of(n), ref = direct(a, b);
  sparse_hashm h = hash_of(a, 'f');
  sparse_param.solve_conv = 1e-18f;
  struct Case {
    const char* name;
    std::function<void(std::vector<double>&)> run;
  } cases[] = {
      {"SOLVE_DENSEM_CGS", [&](std::vector<double>& x) { SOLVE_DENSEM_CGS(a, b, x); }},
      {"SOLVE_SPARSE_HASHM_CGS", [&](std::vector<double>& x) { SOLVE_SPARSE_HASHM_CGS(h, b, x); }},
      {"SOLVE_DENSEM_BiCGSTAB", [&](std::vector<double>& x) { SOLVE_DENSEM_BiCGSTAB(a, b, x, 1, 0); }},
      {"SOLVE_SPARSE_HASHM_BiCGSTAB", [&](std::vector<double>& x) { SOLVE_SPARSE_HASHM_BiCGSTAB(h, b, x, 4); }},
  };
  for (auto& c : cases) {
    std::vector<double> x(n, 3.0);
    CaptureOutput cap;
    c.run(x);
    const std::string t = cap.text();
    EXPECT_EQ(t.find(std::string(" Solving by ") + c.name + "\n"), 0u) << t;
    EXPECT_NE(t.find(" round  1    convergence= "), std::string::npos) << t;
    const int rounds = closing_rounds(t, "  sec/round= ");
    EXPECT_GT(rounds, 1);
    expect_close(x, ref, 1e-6);
  }
  // The round limit: the last iterate and the closing line, no failure.
  sparse_param.solve_rounds = 2;
  std::vector<double> x(n);
  CaptureOutput cap;
  SOLVE_DENSEM_CGS(a, b, x);
  EXPECT_EQ(closing_rounds(cap.text(), "  sec/round= "), 2);
  EXPECT_EQ(cap.text().find("Fail"), std::string::npos);
}

TEST_F(KrylovTest, FailurePathsAndWarnings) {
  const int n = 6;
  densem a = random_general(n, 9);
  sparse_hashm h = hash_of(a, 'f');
  std::vector<double> zero(n, 0.0);
  // b = 0 from a zero start: rho is exactly 0 in the first round.
  {
    std::vector<double> x(n, 5.0);
    CaptureOutput cap;
    SOLVE_DENSEM_CGS(a, zero, x);
    EXPECT_EQ(cap.text().find(" Solving by SOLVE_DENSEM_CGS\n CGS Fail \n 1  iterations,   "), 0u) << cap.text();
    for (double v : x) EXPECT_EQ(v, 0.0);
    cap.clear();
    x.assign(n, 5.0);
    SOLVE_SPARSE_HASHM_BiCGSTAB(h, zero, x);
    EXPECT_EQ(cap.text().find(" Solving by SOLVE_SPARSE_HASHM_BiCGSTAB\n BiCGSAB Fail \n 1  iterations,   "),
              0u)
        << cap.text();
    for (double v : x) EXPECT_EQ(v, 0.0);
  }
  // omega exactly 0: A = [1 2; 0 1], b = (1, 1) gives s = (-1/2, 1/2) and t = A s = (1/2, 1/2).
  {
    densem c(2, 0.0);
    c(1, 1) = 1;
    c(1, 2) = 2;
    c(2, 2) = 1;
    std::vector<double> b = {1.0, 1.0}, x(2, 9.0);
    CaptureOutput cap;
    SOLVE_DENSEM_BiCGSTAB(c, b, x);
    EXPECT_EQ(cap.text().find(" Solving by SOLVE_DENSEM_BiCGSTAB\n BiCGSAB Fail \n 1  iterations,"), 0u)
        << cap.text();
    EXPECT_EQ(x, std::vector<double>(2, 0.0));
  }
  // Hash PCG on a full-stored matrix warns and goes on.
  {
    densem s = random_spd(n, 0.5, 2);
    sparse_hashm f = hash_of(s, 'f');
    std::vector<double> b = rhs_of(n), x(n);
    CaptureOutput cap;
    SOLVE_SPARSE_HASHM_PCG(f, b, x, std::nullopt, 1);
    EXPECT_EQ(cap.text().find(" SOLVE_SPARSE_HASHM_PCG: not work Non-Symetric full-stored matrix\n"), 0u);
    expect_close(x, direct(s, b), 1e-6);
  }
  // A zero diagonal is left unscaled; b = 0 in PCG runs to the limit on not-a-number.
  {
    sparse_param.solve_rounds = 3;
    std::vector<double> x(n);
    CaptureOutput cap;
    SOLVE_DENSEM_PCG(a, zero, x, std::nullopt, 1);
    EXPECT_EQ(closing_rounds(cap.text(), " sec per round= "), 3);
    EXPECT_NE(cap.text().find("NaN"), std::string::npos);
  }
  // Vectors shorter than the matrix.
  {
    std::vector<double> b(n - 1, 1.0), x(n);
    CaptureOutput cap;
    EXPECT_THROW(SOLVE_DENSEM_PCG(a, b, x), Stop);
    EXPECT_EQ(cap.text(), " SOLVE_DENSEM_PCG: vectors shorter than the order of the matrix 6\n");
  }
}
