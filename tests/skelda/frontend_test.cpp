// The task front end: parameters, status texts and reports, the ordering tasks, the rules of
// the chain of steps (new matrix, arguments, steps not installed), constraints and statistics.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "common/stop.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::Array1;
using mmekit::Array2;
using mmekit::set_iparm;
using mmekit::skelda_state;
using mmekit::skeldatask;

namespace {

class Skelda : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_state = mmekit::SkeldaState{};
    mmekit::skelda_steps() = mmekit::SkeldaSteps{};
  }
};

// A matrix with every argument a task may want.
struct Mme {
  Pattern p;
  std::int32_t n, st = -1, verbose = 1, ival = 0;
  Array1<std::int32_t> perm, iperm;
  Array2<double> rhs, sol;
  double det = 0;
  explicit Mme(Pattern q) : p(std::move(q)), n(p.n), perm(identity(n)), iperm(identity(n)), rhs(n, 1), sol(n, 1) {}
  mmekit::SkeldaArgs all() {
    return {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .perm = &perm, .iperm = &iperm, .rhs = &rhs,
            .sol = &sol, .ival = &ival, .det = &det, .verbose = &verbose, .status = &st};
  }
  mmekit::SkeldaArgs matrix() { return {.neq = &n, .ia = &p.ia, .ja = &p.ja, .verbose = &verbose, .status = &st}; }
};

const std::string kMissing = "Unknown error --- please contact the author.\n";

}  // namespace

TEST_F(Skelda, ParametersAndTheirTasks) {
  std::int64_t v8 = -5;
  std::int32_t st = -1, verbose = 1, parnum = 12, v4 = 64;
  mmekit::CaptureOutput cap;
  skeldatask(3, {.parnum = &parnum, .parval8 = &v8});
  EXPECT_EQ(cap.text(), "");  // the first call initialises quietly
  EXPECT_EQ(v8, 2147483647);
  EXPECT_EQ(skelda_state.stage(), 1);
  // (index, value, the word afterwards), applied in this order. Word 3 cannot be turned off
  // but by a reset; a zero panel size means 256 with detection on; some words take values
  // from 2, some from 0, some any value, and the derived ones none.
  const std::int64_t steps[][3] = {{3, 7, 1},   {3, 0, 1},    {4, -3, 0}, {4, 6, 6},   {10, 64, 64},
                                   {10, 0, 256}, {19, 1, 1},  {19, 3, 1}, {29, -4, -4}, {11, 1, 256},
                                   {37, 2, 2},  {14, 3, 3},   {14, 0, 0}, {22, 5, 5},   {22, -1, 5}, {41, 99, 0}};
  for (const auto& [k, v, after] : steps) {
    EXPECT_EQ(set_iparm(static_cast<int>(k), v), 0);
    EXPECT_EQ(skelda_state.iparm(k), after) << k << " " << v;
  }
  // Methods: 0 to 4, 8 (natural) and 9 (user).
  const std::set<std::int64_t> methods = {0, 1, 2, 3, 4, 8, 9};
  for (std::int64_t m = -1; m <= 10; ++m) {
    set_iparm(13, 1);
    set_iparm(13, m);
    EXPECT_EQ(skelda_state.iparm(13), methods.count(m) ? m : 1) << m;
  }
  EXPECT_EQ(set_iparm(129, 1), 22);
  EXPECT_EQ(mmekit::set_rparm(0, 1.0), 22);
  mmekit::set_rparm(11, -1.0);  // only the two tolerances, and not below 0
  mmekit::set_rparm(12, 3.0);
  EXPECT_EQ(skelda_state.rparm(11), static_cast<double>(1e-10f));
  EXPECT_EQ(skelda_state.rparm(12), 0.0);

  // Tasks 2 and 3: parval8 before parval4, rval_b before rval_a; narrowing to 4 bytes clamps.
  double ra = 1e-3, rb = 1e-4;
  parnum = 10;
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .parval8 = &v8, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.iparm(10), 2147483647);
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .rval_a = &ra, .rval_b = &rb});
  EXPECT_EQ(skelda_state.iparm(10), 64);
  skeldatask(2, {.parnum = &parnum, .rval_a = &ra, .rval_b = &rb});
  EXPECT_EQ(skelda_state.rparm(10), 1e-4);
  v4 = 0;
  ra = 0;
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4, .rval_a = &ra});
  EXPECT_EQ(v4, 64);
  EXPECT_EQ(ra, 0.0);
  skeldatask(3, {.parnum = &parnum, .rval_a = &ra});
  EXPECT_EQ(ra, 1e-4);
  parnum = 29;
  v8 = std::int64_t{1} << 40;
  skeldatask(2, {.parnum = &parnum, .parval8 = &v8});
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4});
  EXPECT_EQ(v4, 2147483647);
  // Lack of arguments and a bad index.
  skeldatask(2, {.parval4 = &v4, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  skeldatask(3, {.parnum = &parnum, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  parnum = 0;
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 22);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [setpar] A trouble in SKELDATASK: the lack of argument(s).\n"
            " SKELDATASK: [setpar] A trouble in SKELDATASK: the lack of argument(s).\n"
            " SKELDATASK: [setpar] " + kMissing);

  // Task 4 takes every word through the same rules; task 5 gives every word back.
  skeldatask(0);
  Array1<std::int32_t> p4(128, 0), g4;
  Array1<double> r8(128, -1.0), ga;
  p4(10) = 32;
  r8(10) = 2e-8;
  skeldatask(4, {.iparm4 = &p4, .rparm8 = &r8});
  EXPECT_EQ(skelda_state.iparm(10), 32);
  EXPECT_EQ(skelda_state.iparm(19), 2);
  EXPECT_EQ(skelda_state.iparm(15), 0);
  EXPECT_EQ(skelda_state.rparm(10), 2e-8);
  skeldatask(5, {.iparm4 = &g4, .rparm8 = &ga});
  ASSERT_EQ(g4.size(), 128);
  EXPECT_EQ(g4(10), 32);
  EXPECT_EQ(g4(12), 2147483647);
  EXPECT_EQ(ga(10), 2e-8);
}

TEST_F(Skelda, StatusTextsReportsAndTaskLines) {
  using mmekit::skelda_status_text;
  EXPECT_EQ(skelda_status_text(0), "Completed successfully.");
  // Held in 60 characters: longer texts lose their end.
  EXPECT_EQ(skelda_status_text(13), "A trouble in solution (unexpected modification on the factor");
  EXPECT_EQ(skelda_status_text(21), "A trouble in SKELDATASK: setc and getc are exclusive options");
  for (int s : {9, 18, 22, 99, -1}) EXPECT_EQ(skelda_status_text(s) + "\n", kMissing);

  mmekit::CaptureOutput cap;
  mmekit::skelda_report(0, 2, "[order ]");
  mmekit::skelda_report(4, 0, "[order ]");
  EXPECT_EQ(cap.text(), "");
  mmekit::skelda_report(0, 3, "[order ]");
  mmekit::skelda_report(0, -3, "[symfac]");
  mmekit::skelda_report(4, 1, "[order ]");
  mmekit::skelda_report(0, -1, "[order ]");
  mmekit::skelda_print_status("", 90);
  mmekit::skelda_print_status("skelda", 2);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [order ] Completed successfully.\n"
            " SKELDATASK: [symfac] Completed successfully.\n"
            " SKELDATASK: [order ] Abnormal parameters or arguments.\n"
            "ERROR: OVERFLOW: too many elements / too huge matrix.\n"
            "ERROR: skelda No enough memory for the factorization.\n");
  mmekit::test::expect_stop([] { mmekit::skelda_report(13, -1, "[solve ]"); },
                            " SKELDATASK: [solve ] A trouble in solution (unexpected modification on the factor");

  // The task line at verbosity 2, and unknown tasks.
  std::int32_t verbose = 2, st = 77;
  cap.clear();
  skeldatask(0, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  st = 77;
  skeldatask(33, {.verbose = &verbose, .status = &st});
  skeldatask(73, {.verbose = &verbose});
  EXPECT_EQ(st, 77);
  verbose = 1;
  skeldatask(101, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 0 (initialization)\n"
            " SKELDATASK: task= 33 (something)\nInvalid command of task.\n"
            " SKELDATASK: task= 73 (something)\n SKELDATASK: [load ] " + kMissing);
  // setc and getc together: status 21 for any task, nothing else happens.
  Mme m(grid2d(3, 3));
  Array1<std::int32_t> c(9, 0), g(9, 0);
  cap.clear();
  mmekit::SkeldaArgs a = m.all();
  a.setc = &c;
  a.getc = &g;
  skeldatask(10, a);
  EXPECT_EQ(m.st, 21);
  EXPECT_EQ(skelda_state.stage(), 1);
  EXPECT_EQ(cap.text(), " SKELDATASK: [chkarg] A trouble in SKELDATASK: setc and getc are exclusive options\n");
}

TEST_F(Skelda, OrderingTaskThroughTheFrontEnd) {
  Mme m(mme(200, 17));
  const Pattern& p = m.p;
  const std::int32_t n = m.n;
  m.verbose = 3;
  mmekit::CaptureOutput cap;
  skeldatask(10, m.all());
  EXPECT_EQ(m.st, 0);
  EXPECT_EQ(skelda_state.stage(), 10);
  EXPECT_EQ(skelda_state.iparm(48), 1);
  ASSERT_TRUE(is_permutation_pair(m.perm, m.iperm, n));
  EXPECT_LT(fill_count(p, m.perm), fill_count(p, identity(n)));
  // Task 12 hands the state's permutation out: the one given to the caller.
  Array1<std::int32_t> p12, i12;
  skeldatask(12, {.perm = &p12, .iperm = &i12});
  EXPECT_EQ(p12, m.perm);
  EXPECT_EQ(i12, m.iperm);
  // Every method through the step, with its printed name and number.
  const std::vector<std::pair<std::int64_t, std::string>> methods = {
      {2, "   Ordering = QAMD\n"}, {3, "   Ordering = AMF\n"}, {4, "   Ordering = MMD\n"},
      {8, "   Ordering = natural\n"}, {0, "   Ordering = METIS\n"}};
  for (const auto& [method, line] : methods) {
    set_iparm(13, method);
    cap.clear();
    skeldatask(10, m.all());
    EXPECT_EQ(m.st, 0);
    EXPECT_NE(cap.text().find(line), std::string::npos) << line;
    EXPECT_EQ(skelda_state.iparm(48), method);
    ASSERT_TRUE(is_permutation_pair(m.perm, m.iperm, n));
  }
  // An undefined method value falls through to AMD and records 1.
  skelda_state.iparm(13) = 6;
  skeldatask(10, m.matrix());
  EXPECT_EQ(skelda_state.iparm(48), 1);
  // Every final order is postordered, the natural one too: edges 1-3 and 2-4 make two trees,
  // 1 under 3 and 2 under 4, taken in the order 1 3 2 4.
  Mme t(from_edges(4, {{0, 2}, {1, 3}}));
  set_iparm(13, 8);
  skeldatask(10, t.all());
  EXPECT_EQ(t.perm.vec(), (std::vector<std::int32_t>{1, 3, 2, 4}));
}

TEST_F(Skelda, UserPermutationTask11) {
  Mme m(grid2d(9, 7));
  const std::int32_t n = m.n;
  m.verbose = 3;
  // A user order: columns of the grid, right to left.
  std::int32_t k = 0;
  for (std::int32_t x = 8; x >= 0; --x)
    for (std::int32_t y = 0; y < 7; ++y) m.perm(++k) = y * 9 + x + 1;
  for (std::int32_t i = 1; i <= n; ++i) m.iperm(m.perm(i)) = i;
  const std::int64_t user_fill = fill_count(m.p, m.perm);
  mmekit::CaptureOutput cap;
  skeldatask(11, m.all());
  EXPECT_EQ(m.st, 0);
  EXPECT_NE(cap.text().find("   Ordering = user\n"), std::string::npos);
  EXPECT_EQ(skelda_state.iparm(13), 9);
  EXPECT_EQ(skelda_state.iparm(48), 9);
  ASSERT_TRUE(is_permutation_pair(m.perm, m.iperm, n));
  EXPECT_EQ(fill_count(m.p, m.perm), user_fill);  // the postorder keeps the fill
  // Task 11 with a perm that is no permutation: status 4.
  skeldatask(0);
  m.perm(3) = m.perm(4);
  skeldatask(11, m.all());
  EXPECT_EQ(m.st, 4);
}

TEST_F(Skelda, OrderingStepStatuses) {
  // (neq, stage): no equations, an ordering after symbolic work, ia shorter than neq + 1
  // (nothing read past it), and a fine call.
  const Pattern p = grid2d(3, 3);
  for (auto [neq, stage, want] : {std::tuple{0, 1, 4}, {9, 20, 3}, {12, 1, 4}, {9, 10, 0}}) {
    std::int32_t st = -1;
    skelda_state.stage() = stage;
    mmekit::skelda_order(neq, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
    EXPECT_EQ(st, want) << neq << " " << stage;
  }
}

TEST_F(Skelda, ChainStepsAndTheNewMatrixRule) {
  // No step beyond the ordering is installed here: a chain runs what it needs up to the first
  // missing step and ends there with the unknown-error status; verbosity 3 shows each step.
  Mme m(grid2d(4, 4));
  m.verbose = 3;
  mmekit::CaptureOutput cap;
  skeldatask(50, m.all());
  EXPECT_EQ(m.st, mmekit::kSkeldaStepMissing);
  EXPECT_EQ(skelda_state.stage(), 10);  // the ordering ran
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 50 (solution)\n"
            " SKELDATASK: [chkarg] Completed successfully.\n"
            " SKELDATASK: [order ] Computing...\n"
            "   Ordering = AMD\n"
            " SKELDATASK: [order ] Completed successfully.\n"
            " SKELDATASK: [symfac] Computing...\n"
            " SKELDATASK: [symfac] " + kMissing);
  // From later stages (30: a factor; 40: an inverse), the state set by hand as those steps
  // leave it. A factor is cleared (zero-filled, back to stage 20) before a new numeric step;
  // a full reset comes before a new ordering or symbolic step, and loses the parameters set.
  m.verbose = 2;
  const std::string cleared = "new matrix: previous factor is cleared (zero-filled).\n";
  const std::string deleted = "new matrix: all previous results are deleted (init).\n";
  const std::string numfac = " SKELDATASK: [numfac] " + kMissing, symfac = " SKELDATASK: [symfac] " + kMissing;
  // (stage, task, the lines after the task line, stage afterwards)
  const std::tuple<std::int64_t, std::int32_t, std::string, std::int64_t> cases[] = {{30, 40, "<numfac> " + cleared + numfac, 20},
                        {40, 50, "<solve>  " + cleared + numfac, 20},
                        {40, 90, "<mulinv> " + cleared + numfac, 20},
                        {30, 50, " SKELDATASK: [solve ] " + kMissing, 30},  // a factor serves as it is
                        {40, 54, " SKELDATASK: [det   ] " + kMissing, 40},  // no rule for task 54
                        {20, 10, "<order>  " + deleted, 10},
                        {20, 11, "<setord>  " + deleted, 10},
                        {30, 20, "<sumfac> " + deleted + symfac, 10}};
  for (const auto& [stage, task, lines, stage_after] : cases) {
    SCOPED_TRACE(task);
    skelda_state.stage() = stage;
    skelda_state.iparm(mmekit::kLnzAllocated) = 4;
    skelda_state.lnz.emplace(4, 2.0);
    set_iparm(10, 100);
    cap.clear();
    skeldatask(task, m.all());
    const std::string text = cap.text();
    EXPECT_EQ(text.rfind(" SKELDATASK: task= " + std::to_string(task) + " (", 0), 0u) << text;
    EXPECT_EQ(text.substr(text.find('\n') + 1), lines);
    EXPECT_EQ(skelda_state.stage(), stage_after);
    EXPECT_EQ(skelda_state.iparm(10), stage_after == 10 ? 256 : 100);
    if (stage_after != 10) { EXPECT_EQ((*skelda_state.lnz)(1), stage_after == 20 ? 0.0 : 2.0); }
    if (task == 11) { EXPECT_EQ(skelda_state.iparm(48), 9); }  // the caller's order survives a reset
  }
  // Task 56 on a factor reads the rank without a step; task 1 clears the factor.
  skelda_state.stage() = 30;
  skelda_state.iparm(mmekit::kRank) = 13;
  skelda_state.iparm(mmekit::kLnzAllocated) = 4;
  skelda_state.lnz.emplace(4, 2.0);
  skeldatask(56, m.all());
  EXPECT_EQ(m.st, 0);
  EXPECT_EQ(m.ival, 13);
  m.verbose = 3;
  cap.clear();
  skeldatask(1, {.verbose = &m.verbose});
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 1 (clear internal memory)\n SKELDATASK: [clear ] Completed successfully.\n");
  EXPECT_EQ(skelda_state.stage(), 20);
  EXPECT_EQ((*skelda_state.lnz)(1), 0.0);
}

TEST_F(Skelda, ArgumentChecksGiveStatus20) {
  Mme m(grid2d(3, 3));
  // Each task with all arguments but one it needs: nothing runs.
  const std::vector<std::pair<std::int32_t, void (*)(mmekit::SkeldaArgs&)>> lacking = {
      {10, [](mmekit::SkeldaArgs& a) { a.ia = nullptr; }},  {20, [](mmekit::SkeldaArgs& a) { a.ja = nullptr; }},
      {40, [](mmekit::SkeldaArgs& a) { a.a = nullptr; }},   {50, [](mmekit::SkeldaArgs& a) { a.sol = nullptr; }},
      {90, [](mmekit::SkeldaArgs& a) { a.rhs = nullptr; }}, {55, [](mmekit::SkeldaArgs& a) { a.det = nullptr; }},
      {56, [](mmekit::SkeldaArgs& a) { a.ival = nullptr; }}, {6, [](mmekit::SkeldaArgs&) {}},  // no setc
      {7, [](mmekit::SkeldaArgs&) {}}};  // no getc
  for (const auto& [task, drop] : lacking) {
    mmekit::SkeldaArgs a = m.all();
    drop(a);
    m.st = -1;
    skeldatask(task, a);
    EXPECT_EQ(m.st, 20) << task;
  }
  EXPECT_EQ(skelda_state.stage(), 1);
  // On a factor, task 61 still wants the matrix, while a solve needs only rhs and sol.
  skelda_state.stage() = 30;
  skeldatask(61, {.ival = &m.ival, .status = &m.st});
  EXPECT_EQ(m.st, 20);
  skeldatask(50, {.rhs = &m.rhs, .sol = &m.sol, .status = &m.st});
  EXPECT_EQ(m.st, mmekit::kSkeldaStepMissing);
  // A negative verbosity stops on the error.
  m.verbose = -1;
  mmekit::SkeldaArgs a = m.matrix();
  a.ia = nullptr;
  mmekit::test::expect_stop([&] { skeldatask(10, a); },
                            " SKELDATASK: [chkarg] A trouble in SKELDATASK: the lack of argument(s).");
}

TEST_F(Skelda, ConstraintVectors) {
  Mme m(grid2d(3, 3));
  Array1<std::int32_t> c(9, 0), g, shorter(3, 1);
  for (std::int32_t i = 1; i <= 9; ++i) c(i) = i % 2;
  // Before a factor exists the store and the fetch fail with status 3.
  skeldatask(6, {.setc = &c, .status = &m.st});
  EXPECT_EQ(m.st, 3);
  skeldatask(7, {.getc = &g, .status = &m.st});
  EXPECT_EQ(m.st, 3);
  // On an ordered matrix moved on to a factor: task 6 stores cflag(iperm(i)) = setc(i), task
  // 7 gives it back; a short vector is refused.
  skeldatask(10, m.all());
  ASSERT_EQ(m.st, 0);
  skelda_state.stage() = 30;
  skelda_state.cflag.emplace(9, 0);
  skeldatask(6, {.setc = &c, .status = &m.st});
  EXPECT_EQ(m.st, 0);
  EXPECT_EQ(skelda_state.iparm(2), 1);
  for (std::int32_t i = 1; i <= 9; ++i) EXPECT_EQ((*skelda_state.cflag)(m.iperm(i)), c(i));
  skeldatask(7, {.getc = &g, .status = &m.st});
  EXPECT_EQ(m.st, 0);
  EXPECT_EQ(g, c);
  skeldatask(6, {.setc = &shorter, .status = &m.st});
  EXPECT_EQ(m.st, 4);
}

TEST_F(Skelda, Statistics) {
  mmekit::CaptureOutput cap;
  skeldatask(80);
  EXPECT_EQ(cap.text(), " SKELDA: Supernodal MME Solver  Version 0.9.70\n" + std::string(62, '-') +
                            "\n  No sparse matrix is given.\n");
  Mme m(grid2d(3, 3));
  skeldatask(10, m.matrix());
  ASSERT_EQ(m.st, 0);
  // A supernode partition of widths 1 2 2 1 3: the most frequent widths are 1 and 2 (twice
  // each), the smaller is shown.
  auto& s = skelda_state;
  s.xsuper.emplace(6);
  const std::int32_t starts[6] = {1, 2, 4, 6, 7, 10};
  for (int k = 0; k < 6; ++k) (*s.xsuper)(k + 1) = starts[k];
  s.iparm(43) = 5;
  s.iparm(44) = 131072;
  s.iparm(46) = 10;
  s.iparm(51) = 8;
  s.iparm(54) = 30;
  s.iparm(49) = 262144;
  s.rparm(51) = 0.5;
  s.rparm(52) = 0.25;
  cap.clear();
  skeldatask(80);
  // The computed lines: the largest widths, their share, the storage in megabytes (8-byte
  // entries of L, 4-byte integer arrays of 3 n + 3 supernodes + 3 + lindx entries), and the
  // defaults where no step has set a value.
  const std::string t = cap.text();
  for (const char* line : {"   No. of Equations                = 9\n",
                           "   No. of Nonzeros                 = 21\n",
                           "   Ordering Method                 = AMD\n",
                           "   No. of Cols. in the Last SN.    = 3\n"
                           "   Frequent No. of Cols.           = 1\n"
                           "   Its Count                       = 2\n"
                           "   Its Ratio (%)                   = 40.0\n"
                           "   Threshold of split              = 2147483647\n",
                           "   Storage for L              (MB) = 1.0\n"
                           "   Storage for integer arrays (MB) = 0.000209808349609375\n"
                           "   Temp. Mem. for FACT.       (MB) = 2.0\n",
                           "   Ordering                  (sec) = 0.5 0.25\n"})
    EXPECT_NE(t.find(line), std::string::npos) << line << t;
}
