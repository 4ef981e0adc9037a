// Relaxed Gauss-Seidel: convergence against a direct dense solve, the round and closing lines,
// the preparation of the hash matrix, and the stopping rule.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/stop.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/solve.hpp"
#include "mmekit/support/output.hpp"
#include "sparse/test_helpers.hpp"

using namespace mmekit;

using SolveTest = sparse_test::FreshParameters;
using sparse_test::hash_with;
using test::expect_all_near;

TEST_F(SolveTest, AllKindsConvergeToTheDenseSolution) {
  sparse_param.solve_verbose = 0;
  sparse_param.solve_conv = 1e-20f;
  sparse_param.solve_rounds = 500;
  const int n = 60;
  sparse_test::RandomSymmetric m(n, 5);
  sparse_hashm& h = m.h;
  const densem& d = m.d;
  const Array1<double> rhs = test::sines(n), want = test::solved(d, rhs);

  dense_symm s;
  assign(s, d);
  sparse_hashm h2 = h;
  Array1<double> x1(n), x2(n), x3(n), x4(n);
  solve(h, rhs, x1);
  // The row form of the sorted matrix holds each row in the same order, so its sums are the
  // same to the last bit; so are those of the two dense kinds.
  sparse_ija ija;
  CONVERT_HASH_IJA(ija, h);
  solve(ija, rhs, x2);
  solve(d, rhs, x3);
  solve(s, rhs, x4);
  expect_all_near(x1, want, 1e-9);
  expect_all_near(x3, want, 1e-9);
  EXPECT_EQ(std::make_pair(x1, x3), std::make_pair(x2, x4));

  // The form with n and plain arrays; and vectors with a stride.
  std::vector<double> y1(n);
  SOLVE_SPARSE_HASHM_N(n, h2, rhs.data(), y1.data());
  EXPECT_EQ(y1, x1.vec());
  std::vector<double> strided_rhs(3 * n, 99.0), strided_sol(2 * n, -7.0);
  for (int i = 0; i < n; ++i) strided_rhs[3 * i] = rhs(i + 1);
  SOLVE_IJA(ija, ConstSolverVector(strided_rhs.data(), n, 3), SolverVector(strided_sol.data(), n, 2));
  for (int i = 0; i < n; ++i) EXPECT_EQ(std::make_pair(strided_sol[2 * i], strided_sol[2 * i + 1]), std::make_pair(x1(i + 1), -7.0));

  // Over-relaxation reaches the same solution by another path.
  sparse_param.solve_relax = 1.5f;
  Array1<double> x5(n);
  solve(ija, rhs, x5);
  expect_all_near(x5, want, 1e-9);
  EXPECT_NE(x5, x2);
}

TEST_F(SolveTest, SingularConsistentMixedModelEquations) {
  // Herd-years and parities are dependent: the equations are singular but consistent, and the
  // iteration converges to one of their solutions.
  sparse_param.solve_verbose = 0;
  sparse_param.solve_conv = 1e-24f;
  sparse_param.solve_rounds = 20000;
  test::SmallMme m = test::small_mme(60, 3);
  densem d;
  assign(d, m.hash);
  Array1<double> x(d.order());
  solve(m.hash, m.rhs, x);
  double big = 0;
  for (double v : m.rhs) big = std::max(big, std::abs(v));
  expect_all_near(matvec(d, x), m.rhs, 1e-9 * big);
}

TEST_F(SolveTest, DiagonalSystemRoundLinesAndClosingLines) {
  sparse_hashm h = hash_with(3, {{1, 1, 2.0}, {2, 2, 4.0}, {3, 3, 0.5}});
  Array1<double> rhs(3), x(3);
  rhs.vec() = {1, 2, 3};
  CaptureOutput cap;
  solve(h, rhs, x);
  // Round 1 moves every unknown from 0: conv = 1; round 2 changes nothing: conv 0.0.
  EXPECT_EQ(cap.text(),
            " round      1  convergence=      1.0000\n"
            " solutions computed in 2 rounds of iteration\n"
            " reached convergence criterion 0.0\n");
  EXPECT_EQ(std::make_tuple(x.vec(), h.status), std::make_tuple(std::vector<double>{0.5, 0.5, 6.0}, 2));

  // The row kind prints only the closing lines, and nothing at verbose 1, where the
  // hash kind still prints its round lines.
  sparse_ija ija;
  CONVERT_HASH_IJA(ija, h);
  cap.clear();
  solve(ija, rhs, x);
  EXPECT_EQ(cap.text(), " solutions computed in 2 rounds of iteration\n reached convergence criterion 0.0\n");
  sparse_param.solve_verbose = 1;
  cap.clear();
  solve(ija, rhs, x);
  EXPECT_EQ(cap.text(), "");
  solve(h, rhs, x);  // a second solve: used as it is
  EXPECT_EQ(cap.text(), " round      1  convergence=      1.0000\n");
  EXPECT_EQ(x.vec(), (std::vector<double>{0.5, 0.5, 6.0}));
  // At least one round, whatever the limit.
  sparse_param.solve_rounds = 0;
  sparse_param.solve_verbose = 2;
  cap.clear();
  solve(h, rhs, x);
  EXPECT_EQ(cap.text(), " solutions computed in 1 rounds of iteration\n reached convergence criterion 1.0\n");
}

TEST_F(SolveTest, EmptyRowsZeroDiagonalsAndStatus) {
  // Row 2 is empty and has a right-hand side; row 4 has no diagonal but an off-diagonal.
  sparse_hashm h = hash_with(5, {{1, 1, 4.0}, {1, 3, 1.0}, {3, 3, 4.0}, {3, 4, 1.0}});
  sparse_param.solve_zerosol = false;
  sparse_param.solve_verbose = 0;
  sparse_param.solve_conv = 1e-20f;
  Array1<double> rhs(5), x(5);
  rhs.vec() = {5, 9, 5, 3, 0};
  x.vec() = {0, 7, 0, 2, -1};
  SOLVE_SPARSE_HASHM(h, rhs, x);
  EXPECT_EQ(std::make_tuple(x(2), x(4), x(5)), std::make_tuple(7.0, 2.0, -1.0));  // no diagonal: the start kept
  // 4 x1 + x3 = 5, x1 + 4 x3 + x4 = 5 with x4 = 2: x3 = 7/15, x1 = 17/15.
  EXPECT_NEAR(x(1), 17.0 / 15.0, 1e-9);
  EXPECT_NEAR(x(3), 7.0 / 15.0, 1e-9);

  // A matrix with an unknown status is read as if sorted, after the message.
  sparse_hashm g = hash_with(2, {{1, 1, 2.0}, {2, 2, 2.0}});
  sort_sparse_hashm(g);
  g.status = 5;
  sparse_param.solve_zerosol = true;
  Array1<double> r2(2, 4.0), x2(2);
  CaptureOutput cap;
  solve(g, r2, x2);
  EXPECT_EQ(cap.text().substr(0, 30), "Unknown status of hash matrix\n");
  EXPECT_EQ(x2.vec(), (std::vector<double>{2.0, 2.0}));

  // Every diagonal zero: conv is not a number and the rounds run to the limit.
  sparse_hashm z = hash_with(2, {{1, 2, 1.0}});
  sparse_param.solve_rounds = 3;
  sparse_param.solve_verbose = 2;
  cap.clear();
  solve(z, r2, x2);
  EXPECT_EQ(cap.text(),
            " round      1  convergence=         NaN\n round      2  convergence=         NaN\n"
            " solutions computed in 3 rounds of iteration\n reached convergence criterion NaN\n");

  // An element beyond the order is refused before the rounds.
  sparse_hashm f = hash_with(2, {{1, 1, 1.0}}, 'f'), o = hash_with(2, {{1, 3, 1.0}});
  Array1<double> shorter(1);
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { solve(f, r2, x2); }, "SOLVE_SPARSE_HASHM: not yet implemented for full-stored matrix"},
      {[&] { solve(o, r2, x2); }, "SOLVE_SPARSE_HASHM: index out of range of the matrix"},
      {[&] { solve(g, r2, shorter); }, "SOLVE_SPARSE_HASHM: vectors shorter than the order of the matrix 2"}};
  for (const auto& [call, message] : stops) test::expect_stop(call, message);
}
