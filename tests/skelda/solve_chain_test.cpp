// The solve tasks through skeldatask on the library's own ordering and symbolic structures,
// against dense LAPACK.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/symbolic.hpp"
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
    mmekit::install_solve_steps(mmekit::skelda_steps());
  }
};

// P'AP for the order of the state (task 12).
densem permuted_matrix(const densem& a) {
  const auto n = static_cast<std::int32_t>(a.order());
  Array1<std::int32_t> perm(n), iperm(n);
  skeldatask(12, {.perm = &perm, .iperm = &iperm});
  densem ap(n, 0.0);
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) ap(i, j) = a(perm(i), perm(j));
  return ap;
}

}  // namespace

TEST_F(SkeldaSolveChain, LapackFactorOnTheSymbolicStructure) {
  // The structure of the library's ordering and symbolic steps, LAPACK's factor of P'AP stored
  // into it: the solve follows real supernodes, and with panel size 4 a panel-form root.
  const densem a = random_spd(60, 0.08, 23);
  mmekit::sparse_ija m = upper_ija(a);
  std::int32_t n = m.n, st = -1;
  double logdet = 0, det = 0;
  lapack_spd_inverse(a, &logdet);
  for (std::int64_t panel : {256, 4})
    for (std::int64_t type : {1, 2}) {
      SCOPED_TRACE(std::to_string(panel) + " " + std::to_string(type));
      skelda_state = mmekit::SkeldaState{};
      mmekit::set_iparm(mmekit::kPanelSize, panel);
      skeldatask(20, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .status = &st});
      ASSERT_EQ(st, 0);
      const mmekit::Sx2Layout l = mmekit::skelda_layout();
      bool panel_root = false;
      for (std::int32_t s = 1; s <= l.nsn; ++s) panel_root = panel_root || l.panel_form(s);
      EXPECT_EQ(panel_root, panel == 4);
      const densem lc = lapack_cholesky(permuted_matrix(a));
      store_factor(l, *skelda_state.lnz, type == 1 ? lc : ldl_of_cholesky(lc));
      skelda_state.iparm(mmekit::kFactorType) = type;
      skelda_state.stage() = 30;
      const Array2<double> x0 = random_columns(n, 2, 3);
      Array2<double> b = dense_times(a, x0), sol;
      skeldatask(50, {.rhs = &b, .sol = &sol, .status = &st});
      ASSERT_EQ(st, 0);
      for (std::int64_t c = 1; c <= 2; ++c)
        for (std::int32_t i = 1; i <= n; ++i) EXPECT_NEAR(sol(i, c), x0(i, c), 1e-9);
      skeldatask(55, {.det = &det, .status = &st});
      EXPECT_NEAR(det, logdet, 1e-9 * std::abs(logdet));
    }
}
