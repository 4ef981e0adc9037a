// The solve tasks through skeldatask from a fresh state (ordering, symbolic and numerical
// factorisation on the way) against dense LAPACK: a random positive definite matrix, and the
// singular mixed-model equations of the generator.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/support/output.hpp"

using mmekit::Array1;
using mmekit::Array2;
using mmekit::densem;
using mmekit::skelda_state;
using mmekit::skeldatask;
using namespace mmekit::test;

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
    std::int32_t n = m.n, st = -1, verbose = 2, parnum = 19, ival = 0;
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

    // Log-determinant and rank.
    double logdet = 0, det = 0;
    lapack_spd_inverse(a, &logdet);
    skeldatask(55, {.det = &det, .status = &st});
    EXPECT_NEAR(det, logdet, 1e-9 * std::abs(logdet));
    skeldatask(56, {.ival = &ival, .status = &st});
    EXPECT_EQ(ival, n);
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
