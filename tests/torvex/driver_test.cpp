// The driver: stages, state, growth of the work space, the order file and the messages.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "helpers.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/torvex.hpp"

// The designated initialisers below leave every other argument absent on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace mmekit;
using namespace torvex_test;
using mmekit::test::expect_stop;
using Vec = Array1<double>;

TEST(TorvexDriver, StagesStateAndResults) {
  fresh_driver();
  const int n = 50;
  const densem d = test::random_spd(n, 0.07, 5);
  double logdet = 0;
  const densem inv = test::lapack_spd_inverse(d, &logdet);
  sparse_ija m = to_ija(d);

  // The first call grows the work space from 100 units, saying so at print level 1.
  CaptureOutput cap;
  const TorvexArgs pa{.print_level = 1};
  TORVEX("factorize", m, pa);
  const std::string t = cap.text();
  EXPECT_EQ(t.find(" memory increased from:  100  to:  "), 0u) << t;
  for (const char* line : {" ordering time = ", " symbolic factorization time= ", " numerical factorization time= "})
    EXPECT_NE(t.find(line), std::string::npos) << line;
  EXPECT_TRUE(torvex_state.memory_size > 100 && torvex_state.work.size() == torvex_state.memory_size);
  EXPECT_EQ(std::make_tuple(torvex_state.TORVEX_state, torvex_state.stats.calls_numeric), std::make_tuple(2, 1));

  // A solve after "fac" does not factorise again.
  cap.clear();
  Vec b = sines(n), sol;
  const Vec ref = matvec(inv, b);
  TORVEX("solve", m, {.rhs = &b, .sol = &sol});
  EXPECT_EQ(std::make_tuple(cap.text(), torvex_state.stats.calls_numeric), std::make_tuple("", 1));
  expect_all_near(sol, ref, 1e-10);
  // The statistics block after one solve, its lines in this order.
  TORVEX("statistics", m);
  const std::string nel = std::to_string(m.nel);
  std::size_t at = 0;
  for (const std::string& l : {std::string("              SPARSE STATISTICS\n"), std::string("      RANK                    =          50\n"),
                               "      NZE IN UPPER TRIANGULAR =" + std::string(12 - nel.size(), ' ') + nel + "\n",
                               std::string("      NO. OF CALLS SOLVE      =           1\n")}) {
    at = cap.text().find(l, at);
    ASSERT_NE(at, std::string::npos) << l << cap.text();
  }
  double det = 0;
  const TorvexArgs da{.det = &det};
  TORVEX("lde", m, da);
  EXPECT_NEAR(det, logdet, 1e-9);
  TORVEX("det", m, da);
  EXPECT_NEAR(std::log(det), logdet, 1e-9);

  // Products with the inverse factor and the factor (F F' = A): |F^-1 b|^2 = b' A^-1 b, and
  // the factor undoes it.
  Vec y, z;
  TORVEX("m_inv_fact", m, {.rhs = &b, .sol = &y});
  EXPECT_NEAR(dot(y, y), dot(b, ref), 1e-10);
  TORVEX("m_fact", m, {.rhs = &y, .sol = &z});
  expect_all_near(z, b, 1e-10);

  // The inverse goes into the matrix and the state falls back to 1; "res" clears it.
  cap.clear();
  TORVEX("invert", m, pa);
  EXPECT_NE(cap.text().find(" inversion time= "), std::string::npos) << cap.text();
  EXPECT_EQ(torvex_state.TORVEX_state, 1);
  expect_pattern_near(m, inv, 1e-10);
  TORVEX("reset", m);
  EXPECT_EQ(std::make_tuple(torvex_state.TORVEX_state, torvex_state.memory_size, torvex_state.work.allocated()),
            std::make_tuple(-1, 100, false));
  cap.clear();
  TORVEX("statistics", m);  // without a work space too
  EXPECT_NE(cap.text().find("              SPARSE STATISTICS\n"), std::string::npos);
}

TEST(TorvexDriver, NewOrderAndRefactorisation) {
  fresh_driver();
  const int n = 30;
  const densem d1 = test::random_spd(n, 0.1, 8);
  sparse_ija m1 = to_ija(d1);
  Array1<std::int32_t> p1, q1;
  TORVEX("fac", m1, {.perm_out = &p1, .invp_out = &q1});
  ASSERT_EQ(p1.size(), n);
  for (int k = 1; k <= n; ++k) EXPECT_EQ(q1(p1(k)), k);
  // The order file holds the same ordering.
  {
    FramedReader r("torvex.ord");
    std::int32_t nn = 0, nsub = 0;
    std::vector<std::int32_t> p(n), q(n);
    ASSERT_TRUE(r.read(nn, nsub) == FramedStatus::ok && r.read(p) == FramedStatus::ok && r.read(q) == FramedStatus::ok);
    EXPECT_EQ(std::make_tuple(nn, p, q), std::make_tuple(n, p1.vec(), q1.vec()));
  }
  // "fac" on the same matrix forces the numeric stage only.
  CaptureOutput cap;
  TORVEX("fac", m1, {.print_level = 1});
  EXPECT_EQ(cap.text().find(" ordering time ="), std::string::npos);
  EXPECT_NE(cap.text().find(" numerical factorization time="), std::string::npos);
  EXPECT_EQ(torvex_state.stats.calls_numeric, 2);

  // Another order: ordering again, and the solution is that of the new matrix.
  cap.clear();
  const int n2 = 45;
  const densem d2 = test::random_spd(n2, 0.08, 9);
  sparse_ija m2 = to_ija(d2);
  const Vec ones2(n2, 1.0);
  Vec sol;
  TORVEX("sol", m2, {.rhs = &ones2, .sol = &sol, .print_level = 3});
  const std::string t = cap.text();
  EXPECT_NE(t.find(" TORVEX: size= 45   #nonzeroes= " + std::to_string(m2.nel) + "\n"), std::string::npos) << t;
  EXPECT_NE(t.find(" ordering time ="), std::string::npos);
  expect_all_near(sol, matvec(test::lapack_spd_inverse(d2), ones2), 1e-10);

  // Back to the first matrix: same order, other elements: ordered and factorised anew; then a
  // caller's ordering, used as given.
  const Vec ones(n, 1.0), ref1 = matvec(test::lapack_spd_inverse(d1), ones);
  TORVEX("sol", m1, {.rhs = &ones, .sol = &sol});
  expect_all_near(sol, ref1, 1e-10);
  Array1<std::int32_t> rev(n), got;
  for (int k = 1; k <= n; ++k) rev(k) = n + 1 - k;
  TORVEX("fac", m1, {.perm = &rev, .perm_out = &got});
  EXPECT_EQ(got, rev);
  TORVEX("sol", m1, {.rhs = &ones, .sol = &sol});
  expect_all_near(sol, ref1, 1e-10);
}

TEST(TorvexDriver, SingularInverse) {
  fresh_driver();
  const test::SmallMme mme = test::small_mme(60, 12);
  densem d;
  assign(d, mme.ija);
  sparse_ija m = mme.ija, orig = mme.ija;
  TORVEX("inverse", m);
  // The rows of the dependent equations are zero, the rest is the inverse of the kept part.
  std::vector<std::int64_t> keep;
  for (std::int32_t i = 1; i <= m.n; ++i)
    if (m.a(m.ia(i)) != 0.0) keep.push_back(i);
  ASSERT_EQ(static_cast<std::int64_t>(keep.size()), test::lapack_rank(d));
  double logdet = 0;
  expect_pattern_near(m, kept_inverse(d, keep, &logdet), 1e-9);
  // The next operation refactorises from the matrix handed in.
  double det = 0;
  TORVEX("ldet", orig, {.det = &det});
  EXPECT_NEAR(det, logdet, 1e-8);
}

TEST(TorvexDriver, Messages) {
  fresh_driver();
  const int n = 10;
  sparse_ija m = to_ija(test::random_spd(n, 0.3, 2));
  CaptureOutput cap;
  // Missing optional arguments: message, nothing done, no stop.
  TORVEX("det", m);
  TORVEX("ldet", m);
  TORVEX("solve", m);
  const Vec rhs(n, 1.0);
  TORVEX("m_fact", m, {.rhs = &rhs});
  TORVEX("m_inv", m, {.rhs = &rhs});
  EXPECT_EQ(cap.text(),
            " TORVEX: optional parameter DET missing\n TORVEX: optional parameter DET misiing\n"
            " TORVEX: optional parameter SOL or RS missing\n TORVEX: optional parameter SOL or RS missing\n"
            " TORVEX: optional parameter SOL or RS missing\n");
  EXPECT_EQ(torvex_state.TORVEX_state, -1);

  // A caller's permutation of the wrong size: the kernel's lines, then the stop.
  Array1<std::int32_t> p(n + 2);
  for (int k = 1; k <= n + 2; ++k) p(k) = k;
  EXPECT_EQ(test::run_to_stop([&] { TORVEX("fac", m, {.perm = &p}); }).printed,
            " incorrect size of permutation vector\n size  12  found; size  10  required\n"
            " error in unit IOOR \n option no.  70  not implemented\n torvex: unknown error flag:  -1\n");
  TORVEX("res", m);
  // The limit on memory.
  const test::StopSeen seen = test::run_to_stop([&] { TORVEX("fac", m, {.max_memory = 150}); });
  EXPECT_EQ(seen.message.find(" TORVEX: memory needed:  "), 0u) << seen.message;
  EXPECT_NE(seen.printed.find("\n          maxmimum memory allowed:  150\n"), std::string::npos) << seen.printed;
  TORVEX("res", m);

  // An unknown operation, and the flags of a pivot failure and of an unknown error.
  TorvexWork w(10);
  std::int32_t size = 10;
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { TORVEX("xyz", m); }, " TORVEX operation  xyz  unknown"},
      {[&] { torvex_handle_flag(40000007, 0, w, size, 1000, 0); },
       " TORVEX: Zero or negative pivot for row ROW  during numerical factorization in row: 36000007"},
      {[&] { torvex_handle_flag(100, 0, w, size, 1000, 0); }, " torvex: unknown error flag:  100"}};
  for (const auto& [call, message] : stops) expect_stop(call, message);
  EXPECT_TRUE(torvex_handle_flag(101, 0, w, size, 1000, 0) && size == 101);
  EXPECT_FALSE(torvex_handle_flag(0, 0, w, size, 1000, 0));
}

TEST(TorvexDriver, EmptyMatrix) {
  fresh_driver();
  sparse_ija m;
  m.ia.assign(1, 1);
  Vec rhs, sol(3, 5.0);
  TORVEX("sol", m, {.rhs = &rhs, .sol = &sol});
  EXPECT_EQ(sol.size(), 0);
  double det = 7.0;
  TORVEX("det", m, {.det = &det});
  EXPECT_EQ(det, 7.0);  // nothing is stored for an empty matrix
  TORVEX("inv", m);
}

TEST(TorvexDriver, DenseRowsLastSwitch) {
  // The solver's dense-row switch also governs this package's ordering: the rows above the
  // threshold come last, in ascending order, and the factor solves the same system. A unit
  // added to the diagonal makes the generated equations positive definite.
  test::SmallMme mme = test::small_mme(400, 5);
  sparse_ija m = mme.ija;
  for (std::int32_t i = 1; i <= m.n; ++i) m.a(m.ia(i)) += 1.0;
  Array1<std::int32_t> xadj, adj;
  full_graph(m.n, m.ia, m.ja, xadj, adj);
  std::vector<std::int32_t> dense;
  for (std::int32_t i = 1; i <= m.n; ++i)
    if (xadj(i + 1) - xadj(i) > dense_row_threshold(m.n, 0.7)) dense.push_back(i);  // MMD's rule
  ASSERT_FALSE(dense.empty());
  Vec rhs(m.n), x_off, x_on;
  for (std::int32_t i = 1; i <= m.n; ++i) rhs(i) = std::sin(0.1 * i);
  Array1<std::int32_t> p_off, p_on;
  double ld_off = 0, ld_on = 0;
  {
    fresh_driver();
    sparse_ija a = m;
    TORVEX("fac", a, {.perm_out = &p_off});
    TORVEX("sol", a, {.rhs = &rhs, .sol = &x_off});
    TORVEX("lde", a, {.det = &ld_off});
  }
  skelda_state.switches.dense_rows_last = true;
  {
    fresh_driver();
    sparse_ija a = m;
    TORVEX("fac", a, {.perm_out = &p_on});
    TORVEX("sol", a, {.rhs = &rhs, .sol = &x_on});
    TORVEX("lde", a, {.det = &ld_on});
  }
  skelda_state.switches.dense_rows_last = false;
  EXPECT_NE(p_on, p_off);
  const std::vector<std::int32_t> tail(p_on.end() - static_cast<std::ptrdiff_t>(dense.size()), p_on.end());
  EXPECT_EQ(tail, dense);
  expect_all_near(x_on, x_off, 1e-9);
  EXPECT_NEAR(ld_on, ld_off, 1e-8);
}
