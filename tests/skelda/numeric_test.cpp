// Numeric factorisation on the structures of the library's ordering and symbolic steps: every
// route (the task, the left-looking kernel with all updates through the dense routines and the
// blocked dependent-column kernel, the multifrontal kernel in both update variants) against
// LAPACK's Cholesky of the permuted matrix, or of its kept columns for singular equations; the
// load, the substituted dense routines, and the messages and statuses of the task.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/lapack_ref.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/multifrontal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/snll_check.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace mmekit;
using namespace mmekit::test;

namespace {

constexpr std::int64_t kWhole = 2147483647;

// Panel size iparm(10) (the small ones make panel-form roots with padding), panel detection
// iparm(3), split threshold iparm(12), factor type iparm(19) and the block size of the
// dependent-column kernel iparm(11).
struct Form {
  std::int64_t panel, detect, split, type, alt;
  bool relaxed = false;  // small supernodes merged, with explicit zeros
};
const Form kForms[] = {{256, 0, kWhole, 1, 256}, {256, 0, kWhole, 2, 3}, {4, 0, kWhole, 2, 256},
                       {3, 0, 2, 1, 2},          {256, 1, kWhole, 2, 256}, {5, 0, 3, 2, 3},
                       {256, 0, kWhole, 2, 3, true}, {4, 0, kWhole, 1, 256, true}};

// A fresh state with the library's steps and the form, ordered and symbolically factorised.
void prepare(sparse_ija& p, const Form& f, double tol_rel = 1e-10, double tol_abs = 1e-10) {
  skelda_state = SkeldaState{};
  skelda_steps() = SkeldaSteps{};
  skelda_steps().symfac = skelda_symfac_step;
  skelda_steps().numfac = skelda_numfac_step;
  skeldatask(0);
  SkeldaState& s = skelda_state;
  s.iparm(kPanelSize) = f.panel;
  s.iparm(kDetectPanel) = f.detect;
  s.iparm(kSplitThreshold) = f.split;
  s.iparm(kFactorType) = f.type;
  s.iparm(kPanelSizeAlt) = f.alt;
  s.rparm(10) = tol_rel;
  s.rparm(11) = tol_abs;
  s.switches.relaxed_amalgamation = f.relaxed;
  std::int32_t st = -1;
  skeldatask(20, {.neq = &p.n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  ASSERT_EQ(st, 0);
}

// The factor in lnz of the permuted matrix `a`, lost columns flagged -1 in cflag: `rank` columns
// kept, a lost one a unit pivot over zeros, the kept ones LAPACK's Cholesky (LDL form for type
// 2) of the matrix without the lost ones to `acc` of each column's largest element, and nothing
// stored off the factor's places (padding included). Returns the log-determinant of that matrix.
double check_factor(const densem& a, const Sx2Layout& l, const Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                    std::int64_t type, std::int64_t rank, double acc = 1e-9) {
  const densem f = read_factor(l, lnz);
  std::vector<std::int64_t> kept;
  double stored = 0, placed = 0, worst = 0, logdet = 0;
  for (const double v : lnz) stored += std::abs(v);
  for (std::int32_t j = 1; j <= l.n; ++j) {
    for (std::int32_t i = j; i <= l.n; ++i) placed += std::abs(f(i, j));
    if (cflag(j) == 0) {
      kept.push_back(j);
      continue;
    }
    EXPECT_EQ(cflag(j), -1);
    EXPECT_EQ(f(j, j), 1.0);
    for (std::int32_t i = j + 1; i <= l.n; ++i) EXPECT_NEAR(f(i, j), 0.0, 1e-6) << i << ' ' << j;
  }
  EXPECT_NEAR(stored, placed, 1e-12 * placed);
  const auto nk = static_cast<std::int64_t>(kept.size());
  EXPECT_EQ(nk, rank);
  densem sub(nk, 0.0);
  for (std::int64_t j = 1; j <= nk; ++j)
    for (std::int64_t i = 1; i <= nk; ++i) sub(i, j) = a(kept[i - 1], kept[j - 1]);
  densem ref = lapack_cholesky(sub);
  for (std::int64_t j = 1; j <= nk; ++j) logdet += 2 * std::log(ref(j, j));
  if (type == 2) ref = ldl_of_cholesky(ref);
  for (std::int64_t j = 1; j <= nk; ++j) {
    double big = 0, err = 0;
    for (std::int64_t i = j; i <= nk; ++i)
      big = std::max(big, std::abs(ref(i, j))), err = std::max(err, std::abs(f(kept[i - 1], kept[j - 1]) - ref(i, j)));
    worst = std::max(worst, err / big);
  }
  EXPECT_LE(worst, acc);
  return logdet;
}

// The system routines with a DPOTRF that counts its calls, or with one that always fails.
int potrf_calls = 0;
SkeldaBlas with_potrf(bool fail) {
  SkeldaBlas b = default_skelda_blas();
  b.dpotrf = [](char u, blas_int n, double* a, blas_int lda) { return ++potrf_calls, blas::potrf(u, n, a, lda); };
  if (fail) b.dpotrf = [](char, blas_int, double*, blas_int) { return blas_int{1}; };
  return b;
}

// Positive definite and singular equations: the rank expected at the tolerances.
struct Case {
  std::string name;
  sparse_ija p;
  std::int64_t rank;
  double tol_rel = 1e-10, tol_abs = 1e-10, acc = 1e-9;
};

std::vector<Case> cases() {
  std::vector<Case> c;
  c.push_back({"random 60", upper_ija(random_spd(60, 0.06, 3)), 60});
  c.push_back({"dense 11", upper_ija(random_spd(11, 1.0, 8)), 11});
  c.push_back({"grid 7x6", skelda_test::grid2d(7, 6), 42});
  c.push_back({"disconnected", skelda_test::disconnected(), 48});
  densem tiny = random_spd(40, 0.1, 6);  // every pivot below tol_rel, none below tol_rel * d
  for (double& v : tiny.vec()) v *= 1e-12;
  c.push_back({"scaled 1e-12", upper_ija(tiny), 40, 1e-10, 0.0});
  // Herd-years and parities sum to the same records: rank n-1.
  const sparse_ija mme = small_mme(100, 7).ija;
  c.push_back({"mme", mme, mme.n - 1, 1e-10, 1e-10, 1e-7});
  densem x = random_spd(7, 1.0, 4);  // rows 3 = 1 + 2 and 6 = 2 * 4: X X' of rank 5
  for (std::int64_t j = 1; j <= 7; ++j) x(3, j) = x(1, j) + x(2, j), x(6, j) = 2 * x(4, j);
  c.push_back({"dense rank 5", upper_ija(gram(x)), 5, 1e-10, 1e-10, 1e-7});
  densem d = random_spd(30, 0.15, 9);  // row 5 zero, columns 12 and 20 equal
  for (std::int64_t i = 1; i <= 30; ++i) d(5, i) = d(i, 5) = 0, d(12, i) = d(i, 12) = d(20, i);
  d(12, 12) = d(12, 20) = d(20, 12) = d(20, 20);
  c.push_back({"zero row, twins", upper_ija(d), 28, 1e-10, 1e-10, 1e-7});
  // A pivot of 1e-12 of its diagonal: kept at zero tolerances (only a pivot <= 0 is lost),
  // lost at 1e-10; row 3 is zero.
  densem e(3, 0.0);
  e(1, 1) = e(1, 2) = e(2, 1) = 1;
  e(2, 2) = 1 + 1e-12;
  c.push_back({"near twins, tol 0", upper_ija(e), 2, 0.0, 0.0, 1e-2});
  c.push_back({"near twins, tol 1e-10", upper_ija(e), 1, 1e-10, 1e-10, 1e-9});
  return c;
}

TEST(SkeldaNumeric, EveryRouteEqualsLapackOnTheKeptColumns) {
  std::int64_t most_blocks = 0, merged_cases = 0;
  for (Case& c : cases()) {
    std::int64_t exact_nsn = 0;  // supernodes of form 1, which form 6 repeats with merging
    for (const Form& form : kForms) {
      SCOPED_TRACE(c.name + " form " + std::to_string(&form - kForms));
      sparse_ija& p = c.p;
      prepare(p, form, c.tol_rel, c.tol_abs);
      SkeldaState& s = skelda_state;
      if (&form - kForms == 1) exact_nsn = s.iparm(kNsn);
      if (&form - kForms == 6) merged_cases += s.iparm(kNsn) < exact_nsn;
      const Sx2Layout l = skelda_layout();
      const densem a = permuted(dense_of(p), *s.iperm);
      // Directly on the loaded matrix: left-looking with all updates through the dense routines
      // (route 0; the plain Cholesky for positive definite equations, with a DPOTRF that counts
      // its calls, once per normal-form supernode and per block column of a panel-form root),
      // multifrontal with dependent columns (variants 1, 2); then a DPOTRF that fails: status 8.
      const bool plain = c.rank == p.n;
      std::int64_t blocks = 0;
      for (std::int32_t k = 1; k <= l.nsn; ++k) {
        const std::int64_t nb = l.panel_form(k) ? sx2_blocks(l.width(k), l.panel) : 1;
        blocks += nb, most_blocks = std::max(most_blocks, nb);
      }
      for (const int route : {0, 1, 2}) {
        SCOPED_TRACE("route " + std::to_string(route));
        Array1<double> lnz(s.lnz->size(), -7.0);  // the load clears what it does not set
        Array1<std::int32_t> cflag(p.n, 0);
        ASSERT_EQ(load_matrix(p.n, p.ia, p.ja, p.a, *s.iperm, l, lnz, cflag), 0);
        std::int64_t rank = -1;
        std::int32_t st = -1;
        SnllOptions lo{.kachman = !plain, .ldl = form.type == 2, .tol_abs = c.tol_abs, .tol_rel = c.tol_rel,
                       .block_alt = form.alt, .small_update = 0};
        lo.tmp_words = snll_simulate(l, lnz.size(), 0, 0).tmp;
        const MfOptions mo{.kachman = true, .ldl = form.type == 2, .tol_abs = c.tol_abs, .tol_rel = c.tol_rel,
                           .block_alt = form.alt, .variant = route};
        potrf_calls = 0;
        st = route == 0 ? snll_factor(l, lnz, cflag, lo, with_potrf(false), rank)
                        : supernodal_sx2_mf_omp_v1(l, *s.snparent, lnz, cflag, mo, default_skelda_blas(), rank, 0);
        ASSERT_EQ(st, 0);
        EXPECT_EQ(rank, c.rank);
        if (route == 0) {
          EXPECT_EQ(potrf_calls, plain ? blocks : 0);
        }
        check_factor(a, l, lnz, cflag, form.type, c.rank, c.acc);
        if (plain) {
          EXPECT_EQ(route == 0 ? snll_factor(l, lnz, cflag, lo, with_potrf(true), rank)
                               : supernodal_sx2_mf_omp_v1(l, *s.snparent, lnz, cflag, {}, with_potrf(true), rank, 0),
                    8);
        }
      }
      // The task, with the detection of dependent columns (the default).
      std::int32_t st = -1, rank = -1, three = 3;
      double det = 0;
      s.iparm(kLogdetOnFactor) = 1;
      CaptureOutput cap;
      skeldatask(40, {.neq = &p.n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .det = &det, .verbose = &three,
                      .status = &st});
      ASSERT_EQ(st, 0);
      EXPECT_EQ(rank, c.rank);
      EXPECT_EQ(s.iparm(kFlaggedColumns), p.n - c.rank);
      EXPECT_NE(cap.text().find("   rank     =" + free_format(rank) + "\n   lost     =" + free_format(p.n - rank) + "\n"),
                std::string::npos);
      EXPECT_NEAR(det, check_factor(a, l, *s.lnz, *s.cflag, form.type, c.rank, c.acc), c.acc * (1 + std::abs(det)));
    }
  }
  EXPECT_GE(most_blocks, 3);  // a panel-form root of three block columns or more was among them
  EXPECT_GE(merged_cases, 3);  // merging made fewer supernodes (and explicit zeros) in several cases
  skelda_state = SkeldaState{};
}

// The load: values stored (the last of a repeated entry), the position map, constrained rows
// and columns as unit columns, entries that do not fit the structure.
TEST(SkeldaNumeric, Load) {
  // The arrow: rows 1..3 couple to 4. Supernodes {1}, {2}, {3, 4}, row 4 below the first two.
  densem d(4, 0.0);
  for (std::int64_t i = 1; i <= 4; ++i) d(i, i) = 10 + i;
  for (std::int64_t i = 1; i <= 3; ++i) d(i, 4) = d(4, i) = -i;
  sparse_ija p = upper_ija(d);
  HandFactor h = hand_factor(4, {1, 2, 3}, {{4}, {4}, {}}, 256);
  const Array1<std::int32_t> id = ints({1, 2, 3, 4});
  Array1<std::int64_t> map;
  ASSERT_EQ(load_matrix(4, p.ia, p.ja, p.a, id, h.layout(), h.lnz, Array1<std::int32_t>(4, 0), &map), 0);
  for (std::int32_t k = 1; k <= p.nel; ++k) EXPECT_EQ(h.lnz(map(k)), p.a(k));
  // Constrained column 4 (bit 0 of its word; here the larger index of each entry) and column 1
  // (the smaller): unit columns, their rows zero.
  ASSERT_EQ(load_matrix(4, p.ia, p.ja, p.a, id, h.layout(), h.lnz, ints({3, 2, 0, 1})), 0);
  densem want(4, 0.0);
  want(1, 1) = want(4, 4) = 1, want(2, 2) = 12, want(3, 3) = 13;
  EXPECT_EQ(read_factor(h), want);
  // A repeated entry: the last value stays.
  sparse_ija dup = p;
  dup.ja(2) = 1;  // row 1: (1,1) twice, the second -1
  ASSERT_EQ(load_matrix(4, dup.ia, dup.ja, dup.a, id, h.layout(), h.lnz, Array1<std::int32_t>(4, 0)), 0);
  EXPECT_EQ(read_factor(h)(1, 1), -1.0);
  // An index outside 1..n, an entry whose row the structure lacks: status 1.
  dup.ja(2) = 5;
  EXPECT_EQ(load_matrix(4, dup.ia, dup.ja, dup.a, id, h.layout(), h.lnz, Array1<std::int32_t>(4, 0)), 1);
  d(1, 2) = d(2, 1) = 0.5;
  p = upper_ija(d);
  EXPECT_EQ(load_matrix(4, p.ia, p.ja, p.a, id, h.layout(), h.lnz, Array1<std::int32_t>(4, 0)), 1);
  // A panel-form root {1, 2} (panels of 1) cannot hold row 3 of column 1.
  HandFactor r = hand_factor(3, {1, 3}, {{}, {}}, 1);
  densem e(3, 0.0);
  e(1, 1) = e(2, 2) = e(3, 3) = 2, e(1, 3) = e(3, 1) = 1;
  p = upper_ija(e);
  expect_stop([&] { load_matrix(3, p.ia, p.ja, p.a, ints({1, 2, 3}), r.layout(), r.lnz, Array1<std::int32_t>(3, 0)); },
              "ERROR: set_sx2_factor_element() Element not allocated");
}

// Constraints by setc on the generated MME: the first herd-year fixed loads as a unit row and
// column, the detection of dependent columns is off, and the factor is that of the equations so
// fixed; the caller's word stays as given. Without the detection the equations fail, and a
// negative verbosity stops.
TEST(SkeldaNumeric, ConstraintsAndTheStop) {
  sparse_ija p = small_mme(100, 7).ija;
  const std::int32_t n = p.n;
  prepare(p, kForms[0]);
  SkeldaState& s = skelda_state;
  std::int32_t st = -1, rank = -1, minus = -1;
  Array1<std::int32_t> setc(n, 0), getc(n, 0);
  setc(1) = 5;
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .status = &st});  // constraints come after a factor
  skeldatask(6, {.setc = &setc, .status = &st});
  ASSERT_EQ(st, 0);
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .status = &st});
  ASSERT_EQ(st, 0);
  EXPECT_EQ(rank, n);
  EXPECT_EQ(s.iparm(kFlaggedColumns), 1);
  skeldatask(7, {.getc = &getc, .status = &st});
  EXPECT_EQ(getc(1), 5);
  densem fixed = dense_of(p);
  for (std::int32_t i = 1; i <= n; ++i) fixed(1, i) = fixed(i, 1) = i == 1 ? 1 : 0;
  check_factor(permuted(fixed, *s.iperm), skelda_layout(), *s.lnz, Array1<std::int32_t>(n, 0), 1, n);
  skeldatask(0);
  s.iparm(kKachman) = 0;
  expect_stop([&] { skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .verbose = &minus, .status = &st}); },
              " SKELDATASK: [numfac] Trouble in numerical fact (maybe BLAS/LAPACK error).");
  EXPECT_EQ(s.stage(), 20);
  skelda_state = SkeldaState{};
}

// The statuses of the step, the matrix that is not loaded, the log-determinant that fails.
TEST(SkeldaNumeric, TaskStatusesAndNoLoad) {
  sparse_ija p = skelda_test::grid2d(4, 3);
  const std::int32_t n = p.n;
  std::int32_t st = -1, rank = -1, two = 2;
  skelda_state = SkeldaState{};
  skeldatask(0);
  EXPECT_EQ(skelda_numfac(n, p.ia, p.ja, p.a, rank, nullptr, 0), 3);  // no structure yet
  prepare(p, kForms[0]);
  EXPECT_EQ(skelda_numfac(n - 1, p.ia, p.ja, p.a, rank, nullptr, 0), 4);
  sparse_ija q = p;
  q.ja(2) = n;  // the same size, an entry the structure lacks: the load fails
  EXPECT_EQ(skelda_numfac(n, q.ia, q.ja, q.a, rank, nullptr, 0), 5);
  EXPECT_EQ(skelda_state.stage(), 20);
  // Not loaded: the note at verbosity 2 (the rank lines only above it); the cleared factor
  // loses every column.
  skelda_state.iparm(kNoLoad) = 1;
  CaptureOutput cap;
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .ival = &rank, .verbose = &two, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(rank, 0);
  EXPECT_NE(cap.text().find("NOTE: The sparse matrix is not loaded to the internal storage.\n"), std::string::npos);
  EXPECT_EQ(cap.text().find("   rank     ="), std::string::npos);
  // A caller's factor with an infinite pivot: the log-determinant fails with status 10.
  skeldatask(1);
  skelda_state.iparm(kKachman) = 0;
  skelda_state.iparm(kLogdetOnFactor) = 1;
  const Sx2Layout l = skelda_layout();
  for (std::int32_t c = 1; c <= n; ++c) (*skelda_state.lnz)(factor_position(l, c, c)) = 1.0;
  (*skelda_state.lnz)(1) = std::numeric_limits<double>::infinity();
  EXPECT_EQ(skelda_numfac(n, p.ia, p.ja, p.a, rank, nullptr, 0), 10);
  EXPECT_EQ(skelda_state.stage(), 30);
  skelda_state = SkeldaState{};
}

// The simulations' sizes and printouts, the job list, and the messages of the multifrontal
// kernel: its trace, an update no parent takes, a child row its parent lacks.
TEST(SkeldaNumeric, SimulationsAndMultifrontalMessages) {
  // Supernodes {1} (rows 4, 6 below: positions 2 and 0 from the bottom of the target, not
  // consecutive, a 2-by-2 temporary), {2}, {3}, {4, 5, 6}. max_mem adds the widest supernode
  // and the index words (link, remain: nsn+1; relidx: n+1; gather: most rows+1) in 8 bytes.
  const HandFactor six = hand_factor(6, {1, 2, 3, 4}, {{4, 6}, {}, {}, {}}, 256);
  CaptureOutput cap;
  EXPECT_EQ(snll_simulate(six.layout(), 14, 3).max_mem, 4 + 3 + (5 + 5 + 7 + 3 + 1) / 2);
  const double mb = 8.0 / 1048576.0, mb4 = 4.0 / 1048576.0;
  EXPECT_EQ(cap.text(), "SKELDA_FAC_SNLL\nsimulation supernodal left-looking\nsize: maxMEM, TMP, LJ 17 4 9\n"
                        "MB  : maxMEM, TMP, LJ" + free_format(17 * mb, 4 * mb, 9 * mb) + "\n" +
                        "maxMEM/|Lx|=" + free_format(17.0 / 14.0) + "\n");
  // The arrow {1}, {2} (row 4 below each), {3, 4}: two 1-by-1 updates on the stack at once.
  HandFactor arrow = hand_factor(4, {1, 2, 3}, {{4}, {4}, {}}, 256);
  const Array1<std::int32_t> up = ints({3, 3, 0});
  cap.clear();
  const MfMemory mm = supernodal_sx2_mf_simulate(arrow.layout(), up, 3);
  EXPECT_EQ(mm.max_mem, 1 + 2 + (2 + 1 + 1) / 2);
  EXPECT_EQ(cap.text(), "simulation: supernodal_sx2_mf_omp_v1()\nnworkers= 1\n"
                        "memC    (size, MB)=" + free_format(1, mb) + "\n" +
                        "memU    (size, MB)=" + free_format(2, 2 * mb) + "\n" +
                        "memUIDX (size, MB)=" + free_format(2, 2 * mb4) + "\n" +
                        "memEXTD (size, MB)=" + free_format(1, mb4) + "\n");
  // Job lists: children before parents, roots ascending; a supernode no root reaches stops.
  EXPECT_EQ(mf_job_list(4, ints({4, 3, 4, 0})), (std::vector<std::int32_t>{1, 2, 3, 4}));
  expect_stop([] { mf_job_list(3, ints({2, 1, 0})); }, "ERROR: The joblist does not capture all nodes.");
  // The trace at verbosity 5: a leaf {1} coupled to 7 only, the dense root {2..7} in two
  // panels of 4, and a second root, the lone column 8.
  densem g = random_spd(8, 1.0, 2);
  for (std::int64_t j = 2; j <= 8; ++j) g(1, j) = g(j, 1) = j == 7 ? g(1, j) : 0, g(8, j - 1) = g(j - 1, 8) = 0;
  const sparse_ija pg = upper_ija(g);
  HandFactor h = hand_factor(8, {1, 2, 8}, {{7}, {}, {}}, 4);
  Array1<std::int32_t> cflag(8, 0);
  std::int64_t rank = 0;
  ASSERT_EQ(load_matrix(8, pg.ia, pg.ja, pg.a, ints({1, 2, 3, 4, 5, 6, 7, 8}), h.layout(), h.lnz, cflag), 0);
  cap.clear();
  ASSERT_EQ(supernodal_sx2_mf_omp_v1(h.layout(), ints({2, 0, 0}), h.lnz, cflag, {}, default_skelda_blas(), rank, 5), 0);
  check_factor(g, h.layout(), h.lnz, cflag, 1, 8);
  const std::string t = cap.text();
  EXPECT_EQ(t.rfind("VARIANT 1 ********************\nThe matrix has 2 roots\nsimulation", 0), 0u) << t;
  EXPECT_NE(t.find("prep\npop  norm 1 0\nmod  norm 1 1 1\npush norm 1 1\npop  panel 2 1\n - index 1 1\n"
                   " - U value 1\nmod  panel 2 6 0\nnext/full 1 2\nnext/full 2 2\npop  norm 3 0\nmod  norm 3 1 0\n"
                   "Total POP(ext-add) "),
            std::string::npos)
      << t;
  // The timers close the run, one line each and in this order, then the peak.
  std::size_t at = t.find("\nTotal POP(ext-add) ");
  ASSERT_NE(at, std::string::npos);
  for (const char* label : {"Total ALLOCATE ", "Total POP(ext-add+alloc) ", "Total MOD ", "Total PUSH ",
                            "Total MOD panel ", "maxMEM "}) {
    at = t.find(std::string("\n") + label, at + 1);
    ASSERT_NE(at, std::string::npos) << label;
  }
  // The second variant announces itself and gives the same factor.
  ASSERT_EQ(load_matrix(8, pg.ia, pg.ja, pg.a, ints({1, 2, 3, 4, 5, 6, 7, 8}), h.layout(), h.lnz, cflag), 0);
  cap.clear();
  ASSERT_EQ(supernodal_sx2_mf_omp_v1(h.layout(), ints({2, 0, 0}), h.lnz, cflag, {.variant = 2}, default_skelda_blas(),
                                     rank, 3),
            0);
  EXPECT_EQ(cap.text().rfind("VARIANT 2 ********************\nThe matrix has 2 roots\n", 0), 0u);
  check_factor(g, h.layout(), h.lnz, cflag, 1, 8);
  // {1} with row 2 below it claims to be a root: its update is never taken.
  HandFactor two = hand_factor(3, {1, 2}, {{2}, {}}, 256);
  two.lnz(1) = two.lnz(3) = two.lnz(6) = 4;
  cap.clear();
  EXPECT_EQ(supernodal_sx2_mf_omp_v1(two.layout(), ints({0, 0}), two.lnz, cflag, {}, default_skelda_blas(), rank, 0), 0);
  EXPECT_EQ(cap.text(), "ERROR: Not deallocated C\nERROR: Not deallocated UIDX\n");
  // The parent {2} of {1} holds neither a column nor a row 3.
  HandFactor bad = hand_factor(3, {1, 2, 3}, {{3}, {}, {}}, 256);
  bad.lnz.fill(1.0);
  expect_stop([&] { supernodal_sx2_mf_omp_v1(bad.layout(), ints({2, 3, 0}), bad.lnz, cflag, {}, default_skelda_blas(), rank, 0); },
              "ERROR: set_relative_indices2() ridx is not determined.");
}

// The plain left-looking factorisation of the checks: the factor of a structure with a panel-form
// root against the factor it was drawn from, its trace worked by hand, a pivot failure; and the
// work that the multifrontal kernel reports held after a failure.
void expect_factor_near(const densem& got, const densem& want) {
  for (std::int64_t c = 1; c <= want.order(); ++c)
    for (std::int64_t r = c; r <= want.order(); ++r) EXPECT_NEAR(got(r, c), want(r, c), 1e-10) << r << "," << c;
}

TEST(SnllTestDriver, FactorOfDrawnStructureBothTypes) {
  // Columns 1-2 reach 5 and 7, column 3 reaches 4 and 6, column 4 reaches 6; the root 5..7 is
  // wider than the panel of 2, so it is stored in panel form with a padded last block.
  const auto fresh = [] { hand_structure(7, {1, 3, 4, 5}, {{5, 7}, {4, 6}, {6}, {}}, 2); };
  fresh();
  ASSERT_TRUE(skelda_layout().panel_form(4));
  const densem l = random_factor(11);
  const densem a = gram(l);
  CaptureOutput quiet;
  for (bool ldl : {false, true}) {
    fresh();
    store_factor(a, 1);
    ASSERT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, ldl, false), 0);
    expect_factor_near(read_factor(skelda_layout(), *skelda_state.lnz), ldl ? ldl_of_cholesky(l) : l);
  }
}

TEST(SnllTestDriver, TraceWorkedByHandAndPivotFailure) {
  // A = [4 2; 2 5] with one supernode a column: L = [2 0; 1 2].
  densem a(2, 0.0);
  a(1, 1) = 4; a(2, 1) = 2; a(1, 2) = 2; a(2, 2) = 5;
  hand_structure(2, {1, 2}, {{2}, {}}, 256);
  store_factor(a, 1);
  CaptureOutput cap;
  ASSERT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, false, true), 0);
  EXPECT_EQ(cap.text(),
            " SNLL LDL= F\n* LDL conversion is not performed.\nOMP_TEST_VERSION\n"
            " Supernode 1\nbefore\n   4.0000    \n   2.0000    \nintermediate\n   4.0000    \n   2.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n   1.0000    \n"
            " Supernode 2\nbefore\n   5.0000    \n gather SJ,SK= 2 1\nintermediate\n   4.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n");
  // A pivot that is not above 0 ends the factorisation with status 8.
  a(2, 2) = 1;  // 1 - 2*2/4 = 0
  hand_structure(2, {1, 2}, {{2}, {}}, 256);
  store_factor(a, 1);
  cap.clear();
  EXPECT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, true, false), 8);
  EXPECT_EQ(cap.text(), " SNLL LDL= T\n");
}

TEST(Multifrontal, FailureReportsTheWorkItHolds) {
  // Columns 1 and 2 both reach column 3. Column 2's pivot is 0: when it fails, the update of
  // column 1 waits on the stack, and column 2 holds its map and its diagonal values.
  densem a(3, 0.0);
  a(1, 1) = 4; a(3, 1) = a(1, 3) = 2; a(3, 3) = 5;  // a(2, 2) = 0
  hand_structure(3, {1, 2, 3}, {{3}, {3}, {}}, 256);
  store_factor(a, 1);
  Array1<std::int32_t> snparent(3, 0);
  snparent(1) = snparent(2) = 3;
  std::int64_t rank = 0;
  CaptureOutput cap;
  EXPECT_EQ(supernodal_sx2_mf_omp_v1(skelda_layout(), snparent, *skelda_state.lnz, *skelda_state.cflag, {},
                                     default_skelda_blas(), rank, 0),
            8);
  EXPECT_EQ(cap.text(),
            "ERROR: Not deallocated DIAG\nERROR: Not deallocated C\nERROR: Not deallocated UIDX\n"
            "ERROR: Not deallocated EXTD\n");
  // With column 2 sound, the factorisation ends with nothing held.
  a(2, 2) = 1;
  a(3, 2) = a(2, 3) = 1;
  hand_structure(3, {1, 2, 3}, {{3}, {3}, {}}, 256);
  store_factor(a, 1);
  cap.clear();
  EXPECT_EQ(supernodal_sx2_mf_omp_v1(skelda_layout(), snparent, *skelda_state.lnz, *skelda_state.cflag, {},
                                     default_skelda_blas(), rank, 0),
            0);
  EXPECT_EQ(cap.text(), "");
  EXPECT_EQ(rank, 3);
}

}  // namespace
