// Sparse inversion (task 61) against the dense inverse of LAPACK on the input's pattern.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/spinv.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace mmekit;
using namespace mmekit::test;

namespace {

struct Inverse {
  sparse_ija m;  // the input; after the task its values are the inverse on its pattern
  std::int32_t st = -1;
  std::string out;
};

// A fresh state with the parameters, then task 61 on the upper triangle of a.
Inverse spinv(const densem& a, const std::vector<std::pair<std::int32_t, std::int64_t>>& params,
              std::int32_t verbose = 0) {
  skelda_state = SkeldaState{};
  skelda_init();
  for (const auto& [k, v] : params) set_iparm(k, v);
  Inverse r{upper_ija(a), -1, {}};
  std::int32_t n = r.m.n;
  CaptureOutput cap;
  skeldatask(61, {.neq = &n, .ia = &r.m.ia, .ja = &r.m.ja, .a = &r.m.a, .verbose = &verbose, .status = &r.st});
  r.out = cap.text();
  return r;
}

// Largest difference of the values on the pattern from the elements of `ref`, relative to the
// largest element of `ref`.
double pattern_diff(const sparse_ija& m, const densem& ref) {
  double d = 0, big = 0;
  for (double v : ref.vec()) big = std::max(big, std::abs(v));
  for (std::int32_t i = 1; i <= m.n; ++i)
    for (std::int32_t k = m.ia(i); k < m.ia(i + 1); ++k) d = std::max(d, std::abs(m.a(k) - ref(i, m.ja(k))));
  return d / big;
}

// B (x) M with M a fixed 3-by-3 positive definite block: supernodes at least 3 wide.
densem kron3(const densem& b) {
  const double mm[3][3] = {{2.0, 0.5, 0.2}, {0.5, 2.0, 0.3}, {0.2, 0.3, 2.0}};
  densem k(3 * b.order(), 0.0);
  for (std::int64_t j = 1; j <= k.order(); ++j)
    for (std::int64_t i = 1; i <= k.order(); ++i) k(i, j) = b((i + 2) / 3, (j + 2) / 3) * mm[(i - 1) % 3][(j - 1) % 3];
  return k;
}

std::int32_t last_panel_root() {
  std::int32_t s = skelda_layout().nsn;
  while (s > 0 && !skelda_layout().panel_form(s)) --s;
  return s;
}

class SkeldaSpinv : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_steps().symfac = skelda_symfac_step;
    skelda_steps().numfac = skelda_numfac_step;
    install_solve_steps(skelda_steps());
    skelda_steps().spinv = skelda_spinv_step;
  }
};

}  // namespace

TEST_F(SkeldaSpinv, InverseOnThePatternAgainstLapack) {
  const densem a = random_spd(70, 0.07, 23), ainv = lapack_spd_inverse(a);
  Inverse r = spinv(a, {});
  ASSERT_EQ(r.st, 0);
  EXPECT_EQ(skelda_state.stage(), 40);
  EXPECT_LT(pattern_diff(r.m, ainv), 1e-12);
  // Panel-form roots (panel size 4, the last block padded).
  r = spinv(a, {{kPanelSize, 4}, {kLimC, 5}});
  EXPECT_GT(last_panel_root(), 0);
  EXPECT_LT(pattern_diff(r.m, ainv), 1e-12);

  // Supernodes below the root 6 and more columns wide; the rows below the largest block make
  // the work matrix just below limC, at it (three blocks of 4) and at the smallest limC, each
  // with both gathers.
  const densem k = kron3(random_spd(40, 0.05, 8)), kinv = lapack_spd_inverse(k);
  r = spinv(k, {});
  EXPECT_LT(pattern_diff(r.m, kinv), 1e-12);
  std::int64_t wide = 0;
  for (std::int32_t s = 1; s <= skelda_layout().nsn; ++s)
    if (skelda_layout().rows_below(s) > 0) wide = std::max(wide, skelda_layout().width(s));
  EXPECT_GE(wide, 6);
  InvmfSizes z;
  ASSERT_EQ(invmf_simulate(skelda_layout(), {}, z), 0);
  ASSERT_GE(z.maxnc, 9);
  for (const std::int64_t lim : {z.maxnc + 1, z.maxnc, std::int64_t{2}})
    for (const std::int64_t spd : {0, 1}) {
      r = spinv(k, {{kLimC, lim}, {kBlksz, 4}, {kSpdopt, spd}});
      EXPECT_LT(pattern_diff(r.m, kinv), 1e-12) << lim << " " << spd;
    }

  // A grid, in both root forms; a diagonal matrix (1/d).
  const densem g = dense_of(skelda_test::grid2d(9, 7));
  for (const std::int64_t panel : {256, 5})
    EXPECT_LT(pattern_diff(spinv(g, {{kPanelSize, panel}}).m, lapack_spd_inverse(g)), 1e-12) << panel;
  densem d(6, 0.0);
  for (std::int32_t i = 1; i <= 6; ++i) d(i, i) = 0.5 * i + 0.25;
  r = spinv(d, {});
  for (std::int32_t i = 1; i <= 6; ++i) EXPECT_DOUBLE_EQ(r.m.a(i), 1.0 / (0.5 * i + 0.25));
}

TEST_F(SkeldaSpinv, SingularSystemsGiveTheGeneralisedInverse) {
  // Row and column 5 repeat row and column 2 of a positive definite matrix; the generator's MME.
  densem a = random_spd(40, 0.1, 5);
  for (std::int32_t i = 1; i <= 40; ++i) a(5, i) = a(i, 5) = a(2, i);
  a(5, 5) = a(2, 2), a(5, 2) = a(2, 5) = a(2, 2);
  const densem mme = dense_of(small_mme(100, 3).ija);
  for (const densem* x : {static_cast<const densem*>(&a), &mme})
    for (const std::int64_t panel : {256, 3}) {
      Inverse r = spinv(*x, {{kPanelSize, panel}, {kLimC, 6}});
      ASSERT_EQ(r.st, 0);
      const std::int32_t n = r.m.n;
      Array1<std::int32_t> getc(n);
      skeldatask(7, {.getc = &getc});
      // Reference: zero where lost, elsewhere LAPACK's inverse of the matrix without them.
      std::vector<std::int64_t> keep;
      for (std::int32_t i = 1; i <= n; ++i)
        if ((getc(i) & 1) == 0) keep.push_back(i);
      EXPECT_EQ(static_cast<std::int64_t>(keep.size()), lapack_rank(*x));
      const auto nk = static_cast<std::int64_t>(keep.size());
      densem red(nk, 0.0), ref(n, 0.0);
      for (std::int64_t j = 1; j <= nk; ++j)
        for (std::int64_t i = 1; i <= nk; ++i) red(i, j) = (*x)(keep[i - 1], keep[j - 1]);
      red = lapack_spd_inverse(red);
      for (std::int64_t j = 1; j <= nk; ++j)
        for (std::int64_t i = 1; i <= nk; ++i) ref(keep[i - 1], keep[j - 1]) = red(i, j);
      EXPECT_LT(pattern_diff(r.m, ref), 1e-9) << n << " " << panel;
    }
}

TEST_F(SkeldaSpinv, RefusalsAndRepeatedTasks) {
  const densem a = random_spd(30, 0.15, 9);
  sparse_ija m = upper_ija(a);
  std::int32_t n = m.n, st = -1, verbose = 2;
  // A Cholesky factor: status 11 and the factor as it was.
  EXPECT_EQ(spinv(a, {{kFactorType, 1}}).st, 11);
  const Array1<double> lnz = *skelda_state.lnz;
  EXPECT_EQ(skelda_spinv(n, m.ia, m.ja, m.a, 0), 11);
  EXPECT_EQ(skelda_state.lnz->vec(), lnz.vec());
  EXPECT_EQ(skelda_state.stage(), 30);
  // The kernel takes that factor when told so; the extraction reads the entries of a pattern
  // and refuses one with an element the factor has no room for (status 5).
  const Sx2Layout l = skelda_layout();
  InvmfOptions opt;
  opt.ldl = false;
  InvmfSizes z;
  ASSERT_EQ(invmf_simulate(l, opt, z), 0);
  Array1<double> x = lnz;
  ASSERT_EQ(supernodal_sx2_invmf(l, x, *skelda_state.cflag, opt, z, default_skelda_inv_blas()), 0);
  sparse_ija y = m, full = upper_ija(densem(30, 1.0));
  ASSERT_EQ(extract_inverse(l, x, *skelda_state.iperm, y.ia, y.ja, y.a), 0);
  EXPECT_LT(pattern_diff(y, lapack_spd_inverse(a)), 1e-12);
  EXPECT_EQ(extract_inverse(l, x, *skelda_state.iperm, full.ia, full.ja, full.a), 5);
  // No factor (stage 20); a matrix of another order.
  skelda_state.stage() = 20;
  EXPECT_EQ(skelda_spinv(n, m.ia, m.ja, m.a, 0), 3);
  skelda_state.stage() = 30;
  skelda_state.iparm(kFactorType) = 2;
  EXPECT_EQ(skelda_spinv(n - 1, m.ia, m.ja, m.a, 0), 4);
  EXPECT_EQ(skelda_state.stage(), 30);

  // Task 61 twice: the second clears and refactorises from the matrix handed in again.
  const Inverse r = spinv(a, {});
  CaptureOutput cap;
  skeldatask(61, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_NE(cap.text().find("<spinv>  new matrix: previous factor is cleared (zero-filled).\n"), std::string::npos);
  EXPECT_EQ(m.a.vec(), r.m.a.vec());
}

TEST_F(SkeldaSpinv, PrintoutOfTheTaskAndOfTheTimedVariant) {
  const densem a = random_spd(50, 0.1, 31);
  const Inverse r = spinv(a, {}, 3);
  std::size_t at = 0;
  for (const char* label : {"   maxnd    =", "   maxnc    =", "   maxTMP   =", "       MB   =", "maxTMP/|Lx|=",
                            "size: full, panel-spd, panel-mem", "MB  : full, panel-spd, panel-mem", "   limC     =",
                            "   blksz    =", "   spdopt   =", "nthreads  ="}) {
    at = r.out.find(std::string("\n") + label, at);
    ASSERT_NE(at, std::string::npos) << label << "\n" << r.out;
    ++at;
  }
  // The timed variant on a factor: the serial kernel's entries, its heading, storage and timers.
  for (const std::int64_t lim : {8192, 2}) {
    sparse_ija m = upper_ija(a);
    std::int32_t n = m.n, st = -1;
    spinv(a, {{kLimC, lim}});
    skeldatask(40, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .status = &st});
    ASSERT_EQ(st, 0);
    const InvmfOptions opt{lim, 256, 0, true};
    InvmfSizes z;
    ASSERT_EQ(invmf_simulate(skelda_layout(), opt, z), 0);
    const Array1<double> lnz0 = *skelda_state.lnz;
    Array1<double> serial = lnz0;
    ASSERT_EQ(supernodal_sx2_invmf(skelda_layout(), serial, *skelda_state.cflag, opt, z, default_skelda_inv_blas()), 0);
    CaptureOutput cap;
    supernodal_sx2_invmf_omp(skelda_layout(), *skelda_state.lnz, *skelda_state.cflag, opt, z, default_skelda_inv_blas());
    EXPECT_EQ(skelda_state.lnz->vec(), serial.vec());
    InvmfOptions blas_only = opt;  // every supernode through the level-3 routines
    blas_only.small_work = 0;
    Array1<double> level3 = lnz0;
    ASSERT_EQ(supernodal_sx2_invmf(skelda_layout(), level3, *skelda_state.cflag, blas_only, z, default_skelda_inv_blas()), 0);
    for (std::int64_t i = 1; i <= level3.size(); ++i) EXPECT_NEAR(level3(i), serial(i), 1e-12 * (1 + std::abs(serial(i))));
    const std::string text = cap.text(), head = std::string("start supernodal_sx2_invmf_omp()\n") +
                                                (lim == 2 ? "PanelC\n" : "FullC\n");
    ASSERT_EQ(text.substr(0, head.size()), head);
    at = head.size();
    for (const std::string label : {"tpanel  (root panel potri)", "troot   (root normal potri)", "tstep0  (preparations)",
                                    "tstep1  (Z2 <- C * T2)", "tstep1a (extract diag)", "tstep2  (adjust Z2)",
                                    "tstep3  (Z1 <- (Z2)**T * T2)", "tstep4  (Z1 <- Z1 + inv(D))", "tstep5  (adjust Z1 )"}) {
      EXPECT_EQ(text.compare(at, label.size(), label), 0) << label << "\n" << text;
      at = text.find('\n', at) + 1;
    }
    EXPECT_EQ(at, text.size());
  }
}

TEST_F(SkeldaSpinv, FailingKernelLeavesStage40AndStatus8) {
  const densem a = random_spd(40, 0.1, 13);
  for (const bool panel : {false, true}) {
    sparse_ija m = upper_ija(a);
    std::int32_t n = m.n, st = -1;
    spinv(a, {{kPanelSize, panel ? 4 : 256}});
    skeldatask(40, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &m.a, .status = &st});
    ASSERT_EQ(st, 0);
    const std::int32_t root = last_panel_root();  // the first panel-form root to be inverted
    ASSERT_EQ(root > 0, panel);
    SkeldaInvBlas fake = default_skelda_inv_blas();
    fake.dtrtri = [](char, char, blas_int, double*, blas_int) { return blas_int{1}; };
    fake.dpotri = [](char, blas_int, double*, blas_int) { return blas_int{2}; };
    if (panel) fake.dpotri = default_skelda_inv_blas().dpotri;
    InvmfSizes z;
    ASSERT_EQ(invmf_simulate(skelda_layout(), {}, z), 0);
    Array1<double> copy = *skelda_state.lnz;
    CaptureOutput cap;
    // The kernel returns LAPACK's info: a panel-form root inverts its last block first, so the
    // failure is at that block's first column. The task turns it into status 8.
    EXPECT_EQ(supernodal_sx2_invmf(skelda_layout(), copy, *skelda_state.cflag, {}, z, fake),
              panel ? 1 + (sx2_blocks(skelda_layout().width(root), 4) - 1) * 4 : 2);
    EXPECT_EQ(skelda_spinv(n, m.ia, m.ja, m.a, 0, fake), 8);
    EXPECT_EQ(skelda_state.stage(), 40);
    EXPECT_EQ(cap.text(), panel ? "ERROR: TRTRI\nERROR: TRTRI\n" : "");
  }
}
