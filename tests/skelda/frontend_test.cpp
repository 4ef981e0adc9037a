#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "patterns.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

using namespace skelda_test;
using mmekit::Array1;
using mmekit::Array2;
using mmekit::skelda_state;
using mmekit::skeldatask;

namespace {

// Fresh state and an empty step table for every test.
class Skelda : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_state = mmekit::SkeldaState{};
    mmekit::skelda_steps() = mmekit::SkeldaSteps{};
  }
  void TearDown() override { mmekit::skelda_steps() = mmekit::SkeldaSteps{}; }

  // Stand-ins for the later steps: they record their calls and move the stage as the real
  // steps do.
  void install_fake_steps() {
    auto& st = mmekit::skelda_steps();
    st.symfac = [this](std::int32_t, const mmekit::SkeldaArgs&, std::int32_t) {
      calls.push_back("symfac");
      if (skelda_state.stage() < 10) return 3;
      const std::int64_t n = skelda_state.iparm(41);
      skelda_state.cflag.emplace(n, 0);
      skelda_state.lnz.emplace(n, 1.0);
      skelda_state.iparm(44) = n;
      skelda_state.stage() = 20;
      return 0;
    };
    st.numfac = [this](std::int32_t, const mmekit::SkeldaArgs&, std::int32_t) {
      calls.push_back("numfac");
      if (skelda_state.stage() < 20) return 3;
      skelda_state.lnz->fill(2.0);
      skelda_state.iparm(51) = static_cast<std::int32_t>(skelda_state.iparm(41)) - 1;
      skelda_state.stage() = 30;
      return 0;
    };
    auto final_step = [this](const char* name) {
      return [this, name](std::int32_t, const mmekit::SkeldaArgs&, std::int32_t) {
        calls.push_back(name);
        return skelda_state.stage() == 30 ? 0 : 3;
      };
    };
    st.solve = final_step("solve");
    st.logdet = final_step("logdet");
    st.det = final_step("det");
    st.mulfac = final_step("mulfac");
    st.mulinv = final_step("mulinv");
    st.spinv = [this](std::int32_t, const mmekit::SkeldaArgs&, std::int32_t) {
      calls.push_back("spinv");
      if (skelda_state.stage() != 30) return 3;
      skelda_state.stage() = 40;
      return 0;
    };
  }

  std::vector<std::string> calls;
};

// A small matrix with every argument a task may want.
struct Mme {
  Pattern p;
  std::int32_t n, st = -1, verbose = 1, ival = 0;
  Array2<double> rhs, sol;
  double det = 0;
  explicit Mme(Pattern q) : p(std::move(q)), n(p.n), rhs(n, 1), sol(n, 1) {}
  mmekit::SkeldaArgs all() {
    return {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &p.a, .rhs = &rhs, .sol = &sol, .ival = &ival,
            .det = &det, .verbose = &verbose, .status = &st};
  }
};

// Postorder property of a final permutation: in the elimination tree of the permuted pattern
// every child comes before its parent and every subtree is a contiguous range ending at its root.
void expect_postordered(const Pattern& p, const Array1<std::int32_t>& iperm) {
  Array1<std::int32_t> xadj, adj, parent;
  mmekit::permuted_graph(p.n, p.ia, p.ja, iperm, xadj, adj);
  mmekit::elimination_tree(p.n, xadj, adj, parent);
  std::vector<std::int32_t> first(p.n + 1);
  for (std::int32_t v = 1; v <= p.n; ++v) first[v] = v;
  for (std::int32_t v = 1; v <= p.n; ++v) {
    const std::int32_t q = parent(v);
    if (q == 0) continue;
    ASSERT_GT(q, v);
    first[q] = std::min(first[q], first[v]);
  }
  // Subtree of v = first[v]..v: the nodes in between must all be descendants of v.
  for (std::int32_t v = 1; v <= p.n; ++v)
    for (std::int32_t u = first[v]; u < v; ++u) {
      std::int32_t a = u;
      while (a != 0 && a < v) a = parent(a);
      ASSERT_EQ(a, v) << "node " << u << " inside the range of " << v;
    }
}

}  // namespace

TEST_F(Skelda, DefaultsAfterTheFirstCall) {
  std::int64_t value = -5;
  std::int32_t parnum = 12;
  mmekit::CaptureOutput cap;
  skeldatask(3, {.parnum = &parnum, .parval8 = &value});
  EXPECT_EQ(cap.text(), "");  // the first call prints nothing extra
  EXPECT_EQ(value, 2147483647);
  const std::vector<std::pair<int, std::int64_t>> expected = {
      {1, 1}, {2, 0}, {3, 0}, {4, 0}, {10, 256}, {11, 256}, {12, 2147483647}, {13, 1}, {14, 0},
      {15, 1}, {16, 8192}, {17, 256}, {18, 0}, {19, 2}, {20, 2}, {21, 3}, {22, 0}, {29, 0},
      {30, 0}, {37, 0}, {41, 0}, {48, -1}, {128, 0}};
  for (auto [k, v] : expected) EXPECT_EQ(skelda_state.iparm(k), v) << k;
  EXPECT_EQ(skelda_state.rparm(10), static_cast<double>(1e-10f));
  EXPECT_NEAR(skelda_state.rparm(11), 1.000000013351432e-10, 1e-24);
  EXPECT_EQ(skelda_state.parameter_count, 128);
}

TEST_F(Skelda, SetIparmAcceptanceRules) {
  using mmekit::set_iparm;
  auto& ip = skelda_state.iparm;
  EXPECT_EQ(set_iparm(0, 1), 22);
  EXPECT_EQ(set_iparm(129, 1), 22);
  EXPECT_EQ(set_iparm(41, 99), 0);  // silently ignored
  EXPECT_EQ(ip(41), 0);
  // (index, value, the word afterwards), applied in this order. Word 3 cannot be turned off
  // again (only the reset does it); a zero panel size means 256 with detection switched on.
  const std::int64_t steps[][3] = {{3, 0, 0},    {3, 7, 1},  {3, 0, 1},  {4, -3, 0},
                                   {4, 6, 6},    {10, 64, 64}, {19, 1, 1}, {19, 3, 1}, {29, -4, -4}};
  for (const auto& [k, v, after] : steps) {
    set_iparm(static_cast<int>(k), v);
    EXPECT_EQ(ip(k), after) << k << " " << v;
  }
  skeldatask(0);
  EXPECT_EQ(ip(3), 0);
  set_iparm(10, 0);
  EXPECT_EQ(ip(10), 256);
  EXPECT_EQ(ip(3), 1);
  for (int k : {11, 12, 16, 17, 30, 33, 37}) {
    const std::int64_t before = ip(k);
    set_iparm(k, 1);
    EXPECT_EQ(ip(k), before) << k;
    set_iparm(k, 2);
    EXPECT_EQ(ip(k), 2) << k;
  }
  for (std::int64_t m : {0, 1, 2, 3, 4, 8, 9}) {
    set_iparm(13, m);
    EXPECT_EQ(ip(13), m);
  }
  for (std::int64_t m : {5, 6, 7, 10, -1}) {
    EXPECT_EQ(set_iparm(13, m), 0);
    EXPECT_EQ(ip(13), 9);
  }
  for (int k : {14, 15, 18, 20, 21, 22}) {
    set_iparm(k, 5);
    EXPECT_EQ(ip(k), 5);
    set_iparm(k, -1);
    EXPECT_EQ(ip(k), 5);
    set_iparm(k, 0);
    EXPECT_EQ(ip(k), 0);
  }
  EXPECT_EQ(mmekit::set_rparm(10, 1e-6), 0);
  EXPECT_EQ(skelda_state.rparm(10), 1e-6);
  mmekit::set_rparm(11, -1.0);
  EXPECT_EQ(skelda_state.rparm(11), static_cast<double>(1e-10f));
  mmekit::set_rparm(12, 3.0);
  EXPECT_EQ(skelda_state.rparm(12), 0.0);
  EXPECT_EQ(mmekit::set_rparm(0, 1.0), 22);
}

TEST_F(Skelda, ParameterTasks) {
  std::int32_t st = -1, verbose = 1, parnum = 10, v4 = 0;
  std::int64_t v8 = 0;
  double ra = 0, rb = 0;
  // parval8 is preferred over parval4.
  v8 = 128;
  v4 = 64;
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .parval8 = &v8, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.iparm(10), 128);
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .status = &st});
  EXPECT_EQ(skelda_state.iparm(10), 64);
  // Reals: rval_b before rval_a.
  parnum = 10;
  ra = 1e-3;
  rb = 1e-4;
  skeldatask(2, {.parnum = &parnum, .rval_a = &ra, .rval_b = &rb, .status = &st});
  EXPECT_EQ(skelda_state.rparm(10), 1e-4);
  // Get: the same order.
  v4 = 0;
  ra = rb = 0;
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4, .rval_a = &ra, .status = &st});
  EXPECT_EQ(v4, 64);
  EXPECT_EQ(ra, 0.0);
  skeldatask(3, {.parnum = &parnum, .rval_a = &ra, .status = &st});
  EXPECT_EQ(ra, 1e-4);
  // Narrowing to 4 bytes is clamped.
  parnum = 29;
  v8 = std::int64_t{1} << 40;
  skeldatask(2, {.parnum = &parnum, .parval8 = &v8});
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4});
  EXPECT_EQ(v4, 2147483647);
  // Lack of arguments and a bad index.
  mmekit::CaptureOutput cap;
  skeldatask(2, {.parval4 = &v4, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  skeldatask(3, {.parnum = &parnum, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  parnum = 0;
  skeldatask(3, {.parnum = &parnum, .parval4 = &v4, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 22);
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 22);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [setpar] A trouble in SKELDATASK: the lack of argument(s).\n"
            " SKELDATASK: [setpar] A trouble in SKELDATASK: the lack of argument(s).\n"
            " SKELDATASK: [setpar] Unknown error --- please contact the author.\n"
            " SKELDATASK: [setpar] Unknown error --- please contact the author.\n");
}

TEST_F(Skelda, SetAllAndGetAll) {
  // Every word goes through the acceptance rules: from iparm4 alone ...
  Array1<std::int32_t> p4(128, 0);
  Array1<double> r8(128, -1.0);
  p4(10) = 32;
  p4(13) = 5;    // ignored
  p4(41) = 77;   // ignored
  r8(10) = 2e-8;
  skeldatask(4, {.iparm4 = &p4, .rparm8 = &r8});
  EXPECT_EQ(skelda_state.iparm(10), 32);
  EXPECT_EQ(skelda_state.iparm(13), 1);
  EXPECT_EQ(skelda_state.iparm(41), 0);
  EXPECT_EQ(skelda_state.iparm(19), 2);  // 0 is not accepted for the factor type
  EXPECT_EQ(skelda_state.iparm(15), 0);  // 0 is accepted for the Kachman switch
  EXPECT_EQ(skelda_state.rparm(10), 2e-8);
  EXPECT_EQ(skelda_state.rparm(11), static_cast<double>(1e-10f));  // negative: kept
  // ... and then from iparm8 as well: its zero at index 10 means 256 with detection on.
  Array1<std::int64_t> p8(128, 0);
  p8(11) = 16;
  skeldatask(4, {.iparm4 = &p4, .iparm8 = &p8});
  EXPECT_EQ(skelda_state.iparm(10), 256);
  EXPECT_EQ(skelda_state.iparm(3), 1);
  EXPECT_EQ(skelda_state.iparm(11), 16);
  EXPECT_EQ(skelda_state.iparm(13), 0);
  Array1<std::int32_t> g4;
  Array1<std::int64_t> g8;
  Array1<double> ga, gb;
  skeldatask(5, {.iparm4 = &g4, .rparm8 = &ga, .iparm8 = &g8, .rparm8b = &gb});
  ASSERT_EQ(g4.size(), 128);
  EXPECT_EQ(g4(11), 16);
  EXPECT_EQ(g4(12), 2147483647);
  EXPECT_EQ(g8(48), -1);
  EXPECT_EQ(ga(10), 2e-8);
  EXPECT_EQ(gb(11), static_cast<double>(1e-10f));
}

TEST_F(Skelda, StatusTextsAndReports) {
  using mmekit::skelda_status_text;
  EXPECT_EQ(skelda_status_text(0), "Completed successfully.");
  EXPECT_EQ(skelda_status_text(1), "No temporary memory available.");
  EXPECT_EQ(skelda_status_text(2), "No enough memory for the factorization.");
  EXPECT_EQ(skelda_status_text(3), "Invalid step of operation: ordering>symfac>numfac>sol>spinv.");
  EXPECT_EQ(skelda_status_text(4), "Abnormal parameters or arguments.");
  EXPECT_EQ(skelda_status_text(5), "Size mismatch.");
  EXPECT_EQ(skelda_status_text(6), "Trouble in ordering.");
  EXPECT_EQ(skelda_status_text(7), "Trouble in symbolic fact.");
  EXPECT_EQ(skelda_status_text(8), "Trouble in numerical fact (maybe BLAS/LAPACK error).");
  EXPECT_EQ(skelda_status_text(10), "A trouble in computing the log-determinant.");
  EXPECT_EQ(skelda_status_text(11), "Invalid factor type - LDL or Cholesky.");
  EXPECT_EQ(skelda_status_text(12), "Mismatch kind of variables.");
  // 62 characters in a 60-character text: the last two are lost.
  EXPECT_EQ(skelda_status_text(13), "A trouble in solution (unexpected modification on the factor");
  EXPECT_EQ(skelda_status_text(14), "A trouble in saving the current state to file.");
  EXPECT_EQ(skelda_status_text(15), "Trouble in loading the state from a file.");
  EXPECT_EQ(skelda_status_text(16), "Unknown algorithm specified for factorization.");
  EXPECT_EQ(skelda_status_text(17), "Unknown algorithm specified for sparse inversion.");
  EXPECT_EQ(skelda_status_text(20), "A trouble in SKELDATASK: the lack of argument(s).");
  // 61 characters: the full stop does not fit.
  EXPECT_EQ(skelda_status_text(21), "A trouble in SKELDATASK: setc and getc are exclusive options");
  EXPECT_EQ(skelda_status_text(90), "OVERFLOW: too many elements / too huge matrix.");
  for (int s : {9, 18, 22, 99, -1})
    EXPECT_EQ(skelda_status_text(s), "Unknown error --- please contact the author.");

  mmekit::CaptureOutput cap;
  mmekit::skelda_report(0, 2, "[order ]");
  mmekit::skelda_report(4, 0, "[order ]");
  EXPECT_EQ(cap.text(), "");
  mmekit::skelda_report(0, 3, "[order ]");
  mmekit::skelda_report(0, -3, "[symfac]");
  mmekit::skelda_report(4, 1, "[order ]");
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [order ] Completed successfully.\n"
            " SKELDATASK: [symfac] Completed successfully.\n"
            " SKELDATASK: [order ] Abnormal parameters or arguments.\n");
  cap.clear();
  EXPECT_NO_THROW(mmekit::skelda_report(0, -1, "[order ]"));
  EXPECT_THROW(mmekit::skelda_report(13, -1, "[solve ]"), mmekit::Stop);
  EXPECT_EQ(cap.text(), " SKELDATASK: [solve ] A trouble in solution (unexpected modification on the factor\n");
  cap.clear();
  mmekit::skelda_print_status("", 90);
  mmekit::skelda_print_status("skelda", 2);
  EXPECT_EQ(cap.text(),
            "ERROR: OVERFLOW: too many elements / too huge matrix.\n"
            "ERROR: skelda No enough memory for the factorization.\n");
}

TEST_F(Skelda, TaskLineInvalidTaskAndExclusiveConstraints) {
  std::int32_t verbose = 2, st = 77;
  mmekit::CaptureOutput cap;
  skeldatask(0, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 0 (initialization)\n");
  EXPECT_EQ(st, 0);
  cap.clear();
  st = 77;
  skeldatask(33, {.verbose = &verbose, .status = &st});
  skeldatask(101, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 33 (something)\nInvalid command of task.\n"
            " SKELDATASK: task= 101 (something)\nInvalid command of task.\n");
  EXPECT_EQ(st, 77);
  verbose = 1;
  cap.clear();
  skeldatask(33, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(cap.text(), "");
  // setc and getc together: status 21 for any task, nothing else happens.
  Pattern p = grid2d(3, 3);
  std::int32_t n = p.n;
  Array1<std::int32_t> c(9, 0), g(9, 0);
  for (std::int32_t task : {10, 6, 0, 50}) {
    cap.clear();
    st = 0;
    skeldatask(task, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .setc = &c, .getc = &g, .verbose = &verbose,
                      .status = &st});
    EXPECT_EQ(st, 21);
    EXPECT_EQ(skelda_state.stage(), 1);
    EXPECT_EQ(cap.text(), " SKELDATASK: [chkarg] A trouble in SKELDATASK: setc and getc are exclusive options\n");
  }
  // Labels of the other tasks in the task line.
  verbose = 2;
  cap.clear();
  for (std::int32_t task : {1, 2, 3, 4, 5, 6, 7, 10, 11, 12, 20, 40, 50, 54, 55, 56, 61, 71, 72, 73, 74, 75, 80, 90, 100}) {
    skeldatask(task, {.verbose = &verbose});
  }
  const std::string text = cap.text();
  for (const char* name : {"(clear internal memory)", "(set a parameter)", "(get a parameter)",
                           "(set all parameters)", "(get all parameters)", "(ordering)",
                           "(symbolic factorization)", "(numerical factorization)", "(solution)",
                           "(calculation of the determinant)", "(calculation of the log-determinant)",
                           "(calculation of the rank)", "(sparse inversion)", "(show the statistics)",
                           "(mult-inv)", "(mult-fact)", " SKELDATASK: task= 73 (something)"})
    EXPECT_NE(text.find(name), std::string::npos) << name;
}

TEST_F(Skelda, OrderingTaskThroughTheFrontEnd) {
  Pattern p = animal_mme(400, 5, 17u);
  std::int32_t n = p.n, st = -1, verbose = 3;
  Array1<std::int32_t> perm, iperm;
  mmekit::CaptureOutput cap;
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm,
                  .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.stage(), 10);
  EXPECT_EQ(skelda_state.iparm(41), n);
  EXPECT_EQ(skelda_state.iparm(42), p.ia(n + 1) - 1);
  EXPECT_EQ(skelda_state.iparm(48), 1);
  ASSERT_TRUE(is_permutation_pair(perm, iperm, n));
  EXPECT_EQ(perm, *skelda_state.perm);
  EXPECT_EQ(iperm, *skelda_state.iperm);
  expect_postordered(p, iperm);
  EXPECT_LT(fill_count(p, perm), fill_count(p, identity(n)));
  // Task 12 hands the state's permutation out.
  Array1<std::int32_t> p12, i12;
  skeldatask(12, {.perm = &p12, .iperm = &i12});
  EXPECT_EQ(p12, perm);
  EXPECT_EQ(i12, iperm);
  // Every method through the step, each postordered, with its printed name and number.
  const std::vector<std::pair<std::int64_t, std::string>> methods = {
      {2, "   Ordering = QAMD\n"}, {3, "   Ordering = AMF\n"}, {4, "   Ordering = MMD\n"},
      {8, "   Ordering = natural\n"}, {0, "   Ordering = METIS\n"}};
  for (const auto& [m, line] : methods) {
    mmekit::set_iparm(13, m);
    cap.clear();
    skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm,
                    .verbose = &verbose, .status = &st});
    EXPECT_EQ(st, 0);
    EXPECT_NE(cap.text().find(line), std::string::npos) << line;
    EXPECT_EQ(skelda_state.iparm(48), m);
    ASSERT_TRUE(is_permutation_pair(perm, iperm, n));
    expect_postordered(p, iperm);
    if (m == 0 && !mmekit::skelda_have_metis()) {
      EXPECT_NE(cap.text().find("Caution: You actually use a dummy subroutine for METIS_NodeND.\n"),
                std::string::npos);
    }
  }
  // An undefined method value falls through to AMD and records 1.
  skelda_state.iparm(13) = 6;
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  EXPECT_EQ(skelda_state.iparm(48), 1);
}

TEST_F(Skelda, NaturalOrderIsPostordered) {
  // Edges 1-3 and 2-4: two trees (1 under 3, 2 under 4), postorder 1 3 2 4.
  Pattern p = from_edges(4, {{0, 2}, {1, 3}});
  std::int32_t n = 4, st = -1;
  mmekit::set_iparm(13, 8);
  Array1<std::int32_t> perm, iperm;
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm, .status = &st});
  EXPECT_EQ(st, 0);
  std::vector<std::int32_t> got(perm.begin(), perm.end());
  EXPECT_EQ(got, (std::vector<std::int32_t>{1, 3, 2, 4}));
}

TEST_F(Skelda, UserPermutationTask11) {
  Pattern p = grid2d(9, 7);
  std::int32_t n = p.n, st = -1, verbose = 3;
  // A user order: columns of the grid, right to left.
  Array1<std::int32_t> perm(n), iperm(n);
  std::int32_t k = 0;
  for (std::int32_t x = 8; x >= 0; --x)
    for (std::int32_t y = 0; y < 7; ++y) perm(++k) = y * 9 + x + 1;
  for (std::int32_t i = 1; i <= n; ++i) iperm(perm(i)) = i;
  const std::int64_t user_fill = fill_count(p, perm);
  mmekit::CaptureOutput cap;
  skeldatask(11, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm,
                  .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_NE(cap.text().find("   Ordering = user\n"), std::string::npos);
  EXPECT_EQ(skelda_state.iparm(13), 9);
  EXPECT_EQ(skelda_state.iparm(48), 9);
  ASSERT_TRUE(is_permutation_pair(perm, iperm, n));
  expect_postordered(p, iperm);
  EXPECT_EQ(fill_count(p, perm), user_fill);  // the postorder keeps the fill
  // Task 11 without perm: lack of arguments; with a perm that is no permutation: status 4.
  cap.clear();
  verbose = 1;
  skeldatask(0);
  skeldatask(11, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .iperm = &iperm, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  perm(3) = perm(4);
  skeldatask(11, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm, .verbose = &verbose,
                  .status = &st});
  EXPECT_EQ(st, 4);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [chkarg] A trouble in SKELDATASK: the lack of argument(s).\n"
            " SKELDATASK: [order ] Abnormal parameters or arguments.\n");
}

TEST_F(Skelda, OrderingStepStatuses) {
  Pattern p = grid2d(3, 3);
  std::int32_t st = -1;
  mmekit::skelda_order(0, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, 4);
  skelda_state.stage() = 20;
  mmekit::skelda_order(9, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, 3);
  skelda_state.stage() = 10;
  mmekit::skelda_order(9, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, 0);
  // ia shorter than neq+1: status 4, nothing read past it.
  skelda_state.stage() = 1;
  mmekit::skelda_order(12, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, 4);
  // A diagonal matrix: empty graph, every method gives a permutation.
  Pattern d = from_edges(6, {});
  for (std::int32_t m : {0, 1, 2, 3, 4, 8}) {
    mmekit::CaptureOutput cap;
    skelda_state.stage() = 1;
    mmekit::skelda_order(6, d.ia, d.ja, m, st, nullptr, nullptr, 0);
    EXPECT_EQ(st, 0);
    EXPECT_TRUE(is_permutation_pair(*skelda_state.perm, *skelda_state.iperm, 6));
  }
}

TEST_F(Skelda, MissingStepsAreReportedNotFaked) {
  Pattern p = grid2d(4, 4);
  std::int32_t n = p.n, st = -1, verbose = 1;
  mmekit::CaptureOutput cap;
  skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, mmekit::kSkeldaStepMissing);
  EXPECT_EQ(skelda_state.stage(), 10);  // the ordering ran, the symbolic step is not there
  EXPECT_EQ(cap.text(), " SKELDATASK: [symfac] Unknown error --- please contact the author.\n");
  cap.clear();
  skeldatask(72, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(st, mmekit::kSkeldaStepMissing);
  EXPECT_EQ(cap.text(), " SKELDATASK: [save  ] Unknown error --- please contact the author.\n");
}

TEST_F(Skelda, Statistics) {
  mmekit::CaptureOutput cap;
  skeldatask(80);
  EXPECT_EQ(cap.text(), " SKELDA: Supernodal MME Solver  Version 0.9.70\n" + std::string(62, '-') +
                            "\n  No sparse matrix is given.\n");
  Pattern p = grid2d(3, 3);
  std::int32_t n = p.n, st = -1;
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  ASSERT_EQ(st, 0);
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
  EXPECT_EQ(cap.text(),
            " SKELDA: Supernodal MME Solver  Version 0.9.70\n" + std::string(62, '-') + "\n"
            " Original MME:\n"
            "   No. of Equations                = 9\n"
            "   No. of Nonzeros                 = 21\n"
            "   Ordering Method                 = AMD\n"
            "   Factor Type                     = LDL\n"
            "   Algorithm for Factorization     = SN LL\n"
            "   Algorithm for Inversion         = INVMF\n"
            " Supernodes (SNs):\n"
            "   No. of SNs.                     = 5\n"
            "   No. of Cols. in the Last SN.    = 3\n"
            "   Frequent No. of Cols.           = 1\n"
            "   Its Count                       = 2\n"
            "   Its Ratio (%)                   = 40.0\n"
            "   Threshold of split              = 2147483647\n"
            " Factor (L):\n"
            "   User-defined constraint         = 0\n"
            "   Rank                            = 8\n"
            "   No. of Constraints              = 1\n"
            "   Panel Size                      = 256\n"
            "   Tolerances for Kachman mod.     = 1.000000013351432E-10 1.000000013351432E-10\n"
            "   Detect the panel size (1:YES)   = 0\n"
            " Memory:\n"
            "   No. of effective entries in L   = 30\n"
            "   No. of allocated entries in L   = 131072\n"
            "   Storage for L              (MB) = 1.0\n"
            "   Storage for integer arrays (MB) = 0.000209808349609375\n"  // (27+15+3+10)*4/2^20
            "   Temp. Mem. for FACT.       (MB) = 2.0\n"
            "   Temp. Mem. for INV.        (MB) = 0.0\n"
            " CPU & System Time for the last Call:\n"
            "   Ordering                  (sec) = 0.5 0.25\n"
            "   Symbolic Fact.            (sec) = 0.0 0.0\n"
            "   Numerical Fact.           (sec) = 0.0 0.0\n"
            "   Sparse Inversion          (sec) = 0.0 0.0\n"
            "   Solution                  (sec) = 0.0 0.0\n");
  // The names of the other methods (word 48), factor types (19) and algorithms (20, 21), and
  // of unknown values.
  const std::vector<std::tuple<int, std::int64_t, std::string>> names = {
      {48, 0, "Method                 = METIS\n"}, {48, 2, "Method                 = QAMD\n"},
      {48, 3, "Method                 = AMF\n"},   {48, 4, "Method                 = MMD\n"},
      {48, 9, "Method                 = User\n"},  {48, 8, "Method                 = Unknown\n"},
      {19, 1, "Factor Type                     = Cholesky\n"},
      {19, 7, "Factor Type                     = Unknown\n"},
      {20, 4, "Factorization     = SN MF w/OpenMP\n"}, {20, 3, "Factorization     = SN MF\n"},
      {21, 2, "Inversion         = SELINV\n"},        {21, 4, "Inversion         = INVMF w/OpenMP\n"}};
  for (const auto& [k, v, line] : names) {
    s.iparm(k) = v;
    cap.clear();
    skeldatask(80);
    EXPECT_NE(cap.text().find(line), std::string::npos) << line;
  }
}

TEST_F(Skelda, ChainRunsTheStepsAndTheNewMatrixRule) {
  install_fake_steps();
  Mme m(grid2d(4, 4));
  m.verbose = 2;
  std::int32_t &st = m.st, &n = m.n;
  const Pattern& p = m.p;
  mmekit::CaptureOutput cap;
  auto full = [&](std::int32_t task) { skeldatask(task, m.all()); };
  full(50);
  EXPECT_EQ(calls, (std::vector<std::string>{"symfac", "numfac", "solve"}));
  EXPECT_EQ(skelda_state.stage(), 30);
  EXPECT_EQ(st, 0);
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 50 (solution)\n");
  // Second solve reuses the factor, no new-matrix line.
  calls.clear();
  cap.clear();
  full(50);
  EXPECT_EQ(calls, (std::vector<std::string>{"solve"}));
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 50 (solution)\n");
  // Task 40 on a finished factor clears and refactorises only.
  calls.clear();
  cap.clear();
  full(40);
  EXPECT_EQ(calls, (std::vector<std::string>{"numfac"}));
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 40 (numerical factorization)\n"
                        "<numfac> new matrix: previous factor is cleared (zero-filled).\n");
  // After an inversion every factor task clears and refactorises.
  const std::vector<std::pair<std::int32_t, std::string>> after_inverse = {
      {50, "<solve>  new matrix: previous factor is cleared (zero-filled).\n"},
      {55, "<logdet> new matrix: previous factor is cleared (zero-filled).\n"},
      {56, "<rank>   new matrix: previous factor is cleared (zero-filled).\n"},
      {100, "<mulfac> new matrix: previous factor is cleared (zero-filled).\n"},
      {90, "<mulinv> new matrix: previous factor is cleared (zero-filled).\n"},
      {61, "<spinv>  new matrix: previous factor is cleared (zero-filled).\n"}};
  for (const auto& [task, line] : after_inverse) {
    full(61);
    ASSERT_EQ(skelda_state.stage(), 40);
    calls.clear();
    cap.clear();
    full(task);
    EXPECT_NE(cap.text().find(line), std::string::npos) << task;
    EXPECT_EQ(calls.front(), "numfac") << task;
    EXPECT_EQ((*skelda_state.lnz)(1), 2.0);
  }
  EXPECT_EQ(m.ival, n - 1);  // the rank from task 56
  // Task 54 has no new-matrix rule: on an inverse the final step finds stage 40 and fails.
  full(61);
  cap.clear();
  calls.clear();
  full(54);
  EXPECT_EQ(calls, (std::vector<std::string>{"det"}));
  EXPECT_EQ(st, 3);
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 54 (calculation of the determinant)\n"
                        " SKELDATASK: [det   ] Invalid step of operation: ordering>symfac>numfac>sol>spinv.\n");
  // Task 20 after a factor: full reset, parameters set earlier are lost.
  full(50);
  mmekit::set_iparm(10, 100);
  cap.clear();
  calls.clear();
  full(20);
  EXPECT_EQ(skelda_state.iparm(10), 256);
  EXPECT_EQ(calls, (std::vector<std::string>{"symfac"}));
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 20 (symbolic factorization)\n"
                        "<sumfac> new matrix: all previous results are deleted (init).\n");
  // Ordering tasks after symbolic work.
  cap.clear();
  full(10);
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 10 (ordering)\n"
                        "<order>  new matrix: all previous results are deleted (init).\n");
  full(20);
  Array1<std::int32_t> perm = *skelda_state.perm, iperm = *skelda_state.iperm;
  cap.clear();
  skeldatask(11, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .perm = &perm, .iperm = &iperm, .verbose = &m.verbose});
  EXPECT_EQ(cap.text(), " SKELDATASK: task= 11 (something)\n"
                        "<setord>  new matrix: all previous results are deleted (init).\n");
  EXPECT_EQ(skelda_state.iparm(48), 9);  // the caller's order survives the reset
  EXPECT_EQ(*skelda_state.perm, perm);
  // At verbosity 3 the reset is reported and every step shows its progress.
  m.verbose = 3;
  cap.clear();
  full(20);
  full(10);
  EXPECT_NE(cap.text().find("<order>  new matrix: all previous results are deleted (init).\n"
                            " SKELDATASK: [init  ] Completed successfully.\n"),
            std::string::npos);
}

TEST_F(Skelda, ArgumentChecksGiveStatus20) {
  install_fake_steps();
  Mme m(grid2d(3, 3));
  std::int32_t &st = m.st, &verbose = m.verbose, &n = m.n;
  mmekit::CaptureOutput cap;
  // Each task with all arguments but one it needs.
  const std::vector<std::pair<std::int32_t, void (*)(mmekit::SkeldaArgs&)>> lacking = {
      {10, [](mmekit::SkeldaArgs& a) { a.ia = nullptr; }},  {20, [](mmekit::SkeldaArgs& a) { a.ja = nullptr; }},
      {40, [](mmekit::SkeldaArgs& a) { a.a = nullptr; }},   {50, [](mmekit::SkeldaArgs& a) { a.sol = nullptr; }},
      {90, [](mmekit::SkeldaArgs& a) { a.rhs = nullptr; }}, {55, [](mmekit::SkeldaArgs& a) { a.det = nullptr; }},
      {56, [](mmekit::SkeldaArgs& a) { a.ival = nullptr; }}};
  for (const auto& [task, drop] : lacking) {
    mmekit::SkeldaArgs a = m.all();
    drop(a);
    st = -1;
    skeldatask(task, a);
    EXPECT_EQ(st, 20) << task;
  }
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(skelda_state.stage(), 1);
  // Task 61 wants the matrix even when the factor exists.
  skeldatask(40, {.neq = &n, .ia = &m.p.ia, .ja = &m.p.ja, .a = &m.p.a, .status = &st});
  ASSERT_EQ(st, 0);
  skeldatask(61, {.ival = &m.ival, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  // But a solve on an existing factor needs only rhs and sol.
  skeldatask(50, {.rhs = &m.rhs, .sol = &m.sol, .status = &st});
  EXPECT_EQ(st, 0);
  // Task 6 and 7 without their vector.
  skeldatask(6, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  skeldatask(7, {.verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 20);
  // A negative verbosity stops on the error.
  verbose = -1;
  cap.clear();
  EXPECT_THROW(skeldatask(10, {.neq = &n, .verbose = &verbose, .status = &st}), mmekit::Stop);
  EXPECT_EQ(cap.text(), " SKELDATASK: [chkarg] A trouble in SKELDATASK: the lack of argument(s).\n");
}

TEST_F(Skelda, ConstraintVectors) {
  install_fake_steps();
  Mme m(grid2d(3, 3));
  m.verbose = 2;
  std::int32_t &n = m.n, &st = m.st, &verbose = m.verbose;
  Array1<std::int32_t> c(n, 0), g(n, 0), other(n, 1);
  for (std::int32_t i = 1; i <= n; ++i) c(i) = i % 2;
  mmekit::CaptureOutput cap;
  // Before a factor exists the store fails with status 3.
  skeldatask(6, {.setc = &c, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 3);
  skeldatask(7, {.getc = &g, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 3);
  // setc handed to the chain: stored right after symbolic work, where the stage is 20, so it
  // fails with status 3 while the messages still appear, and the chain goes on.
  cap.clear();
  mmekit::SkeldaArgs with_c = m.all(), with_g = m.all();
  with_c.setc = &c;
  with_g.getc = &other;
  skeldatask(40, with_c);
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.stage(), 30);
  EXPECT_EQ(skelda_state.iparm(2), 0);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 40 (numerical factorization)\n"
            "Constraints are supplied.\n"
            "Kachman modification will be turned off in the factorization.\n"
            " SKELDATASK: [setc  ] Invalid step of operation: ordering>symfac>numfac>sol>spinv.\n");
  // Task 6 on a factor stores cflag(iperm(i)) = setc(i); task 7 gives it back.
  skeldatask(6, {.setc = &c, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.iparm(2), 1);
  const auto& iperm = *skelda_state.iperm;
  for (std::int32_t i = 1; i <= n; ++i) EXPECT_EQ((*skelda_state.cflag)(iperm(i)), c(i));
  skeldatask(7, {.getc = &g, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(g, c);
  // getc in a chain that refactorises is stored, not read back.
  skeldatask(61, m.all());
  skeldatask(50, with_g);
  EXPECT_EQ(st, 0);
  skeldatask(7, {.getc = &g, .status = &st});
  EXPECT_EQ(g, other);
}

TEST_F(Skelda, ProgressAndReportsAtVerbosity3) {
  install_fake_steps();
  Mme m(grid2d(3, 3));
  m.verbose = 3;
  mmekit::CaptureOutput cap;
  skeldatask(50, m.all());
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 50 (solution)\n"
            " SKELDATASK: [chkarg] Completed successfully.\n"
            " SKELDATASK: [order ] Computing...\n"
            "   Ordering = AMD\n"
            " SKELDATASK: [order ] Completed successfully.\n"
            " SKELDATASK: [symfac] Computing...\n"
            " SKELDATASK: [symfac] Completed successfully.\n"
            " SKELDATASK: [numfac] Computing...\n"
            " SKELDATASK: [numfac] Completed successfully.\n"
            " SKELDATASK: [solve ] Computing...\n"
            " SKELDATASK: [solve ] Completed successfully.\n");
  const std::vector<std::pair<std::int32_t, std::string>> finals = {
      {55, " SKELDATASK: [logdet] Computing...\n SKELDATASK: [logdet] Completed successfully.\n"},
      {54, " SKELDATASK: [det   ] Computing...\n SKELDATASK: [det   ] Completed successfully.\n"},
      {100, " SKELDATASK: [mulfac] Computing...\n SKELDATASK: [mulfac] Completed successfully.\n"},
      {90, " SKELDATASK: [mulinv] Computing...\n SKELDATASK: [mulinv] Completed successfully.\n"},
      {56, " SKELDATASK: [rank  ] Completed successfully.\n"},
      {61, " SKELDATASK: [spinv ] Computing...\n SKELDATASK: [spinv ] Completed successfully.\n"}};
  for (const auto& [task, tail] : finals) {
    cap.clear();
    skeldatask(task, m.all());
    EXPECT_EQ(m.st, 0) << task;
    const std::string text = cap.text();
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail) << task;
  }
  // The parameter tasks report under their labels.
  cap.clear();
  std::int32_t parnum = 10, v4 = 64;
  skeldatask(2, {.parnum = &parnum, .parval4 = &v4, .verbose = &m.verbose});
  skeldatask(1, {.verbose = &m.verbose});
  EXPECT_EQ(cap.text(),
            " SKELDATASK: task= 2 (set a parameter)\n"
            " SKELDATASK: [setpar] Completed successfully.\n"
            " SKELDATASK: task= 1 (clear internal memory)\n"
            " SKELDATASK: [clear ] Completed successfully.\n");
  // Clear zero-fills the factor and goes back to stage 20 (the inversion left stage 40).
  EXPECT_EQ(skelda_state.stage(), 20);
  EXPECT_EQ((*skelda_state.lnz)(1), 0.0);
}
