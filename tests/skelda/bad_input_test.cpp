// Patterns that do not fit their arrays, at every entry of the solver that takes ia/ja: a stop
// with a message, or status 4 where the front end reports through its status table.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "patterns.hpp"

using namespace mmekit;
using test::ints;
using test::stop_output;

TEST(SkeldaBadInput, CheckIjaBeyondItsOwnMessages) {
  // Rows {1,2} {2}: the arrays are cut or the pattern reaches past them. The faults that have
  // a message of their own keep it, in the order a row-by-row walk meets them.
  struct Case {
    std::int32_t neq;
    Array1<std::int32_t> ia, ja;
    const char* printed;
  };
  const std::vector<Case> cases = {
      {3, ints({1, 3, 4}), ints({1, 2, 2}), "check_ija: n = 3 needs 4 entries in ia but ia holds 3\n"},
      {2, ints({1, 3, 12}), ints({1, 2, 2}), "check_ija: ia(3)-1 = 11 but ja holds 3 entries\n"},
      {2, ints({1, 3, 4}), ints({1, 3, 2}), "check_ija: ja(2) = 3 in row 1 is outside 1..2\n"},
      {2, ints({2, 3, 4}), ints({1, 1, 2}), "check_ija: ia(1) = 2 but the first row must start at 1\n"},
      // Row 1's duplicate comes before row 2's reach past ja; an empty row before a bad column.
      {2, ints({1, 3, 40}), ints({2, 2, 2}), "ERROR: j found twice or more\n"},
      {3, ints({1, 1, 2, 3}), ints({9, 2}), "ERROR: ia(i) > ia(i+1)-1\n"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(stop_output([&] { check_ija(c.neq, c.ia, c.ja, false); }), c.printed) << c.printed;
  // With show, the rows before the fault are listed, then the message.
  EXPECT_EQ(stop_output([&] { check_ija(2, ints({1, 3, 9}), ints({1, 2, 2}), true); }),
            " ia= 1 2 ; ja= 1 2\ncheck_ija: ia(3)-1 = 8 but ja holds 3 entries\n");
}

TEST(SkeldaBadInput, GraphRoutinesStop) {
  const Array1<std::int32_t> short_ia = ints({1, 3}), ja = ints({1, 2, 2});
  Array1<std::int32_t> xadj, adj, parent;
  Array1<double> a = test::array1<double>({4.0, 1.0});
  std::int64_t e = 0, z = 0, nz = 0;
  Array1<std::int64_t> ia8(3, 1), ja8(1, 1), xadj8, adj8;
  ia8(2) = 2;
  ia8(3) = 7;
  const std::vector<std::pair<std::function<void()>, std::string>> cases = {
      {[&] { get_size_for_graph_robust(2, short_ia, ja); },
       "get_size_for_graph_robust: n = 2 needs 3 entries in ia but ia holds 2\n"},
      {[&] { get_size_for_graph_robust8(2, ia8, ja8); }, "get_size_for_graph_robust8: ia(3)-1 = 6 but ja holds 1 entries\n"},
      {[&] { full_graph(2, ints({1, 3, 4}), ints({1, 5, 2}), xadj, adj); },
       "full_graph: ja(2) = 5 in row 1 is outside 1..2\n"},
      {[&] { full_graph8(2, ia8, ja8, xadj8, adj8); },
       "full_graph8: ia(3)-1 = 6 but ja holds 1 entries\n"},
      {[&] { permuted_graph(2, ints({1, 3, 2}), ja, ints({2, 1}), xadj, adj); }, "permuted_graph: ia(3) = 2 is below ia(2) = 3\n"},
      {[&] { permuted_graph(2, ints({1, 3, 4}), ja, ints({2}), xadj, adj); }, "permuted_graph: n = 2 but iperm holds 1 entries\n"},
      {[&] { permuted_graph(2, ints({1, 3, 4}), ja, ints({2, 3}), xadj, adj); }, "permuted_graph: iperm(2) = 3 is outside 1..2\n"},
      {[&] { elimination_tree(3, ints({1, 2, 3}), ints({2, 1}), parent); },
       "elimination_tree: n = 3 needs 4 entries in ia but ia holds 3\n"},
      // The values must reach as far as the pattern; a column is never used as an index here.
      {[&] { count_columns(2, ints({1, 3, 4}), ja, a, e, z, nz); }, "count_columns: ia(3)-1 = 3 but a holds 2 entries\n"},
  };
  for (const auto& [call, printed] : cases) EXPECT_EQ(stop_output(call), printed) << printed;
}

TEST(SkeldaBadInput, FrontEndAnswersWithStatusFour) {
  skelda_state = SkeldaState{};
  skelda_steps() = SkeldaSteps{};
  skelda_test::Pattern p = skelda_test::grid2d(3, 3);
  std::int32_t n = p.n, st = -1, verbose = 1;
  // A column beyond neq (once skipped by the graph) is an abnormal argument of the ordering.
  Array1<std::int32_t> wide = p.ja;
  wide(2) = n + 1;
  CaptureOutput cap;
  skelda_order(n, p.ia, wide, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  EXPECT_EQ(skelda_state.stage(), 1);
  // After a good ordering, the symbolic step refuses a pattern cut short, and the values of the
  // numerical step must reach as far as the pattern; no step is entered (none is installed).
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  ASSERT_EQ(st, 0);
  Array1<std::int32_t> cut = p.ja;
  cut.vec().pop_back();
  skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &cut, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  Array1<double> few(3, 1.0);
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &few, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  EXPECT_EQ(cap.text(),
            " SKELDATASK: [chkarg] Abnormal parameters or arguments.\n"
            " SKELDATASK: [chkarg] Abnormal parameters or arguments.\n");
  EXPECT_EQ(skelda_state.stage(), 10);
  // With a negative verbosity the report stops the run.
  verbose = -1;
  EXPECT_EQ(stop_output([&] { skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &cut, .verbose = &verbose}); }),
            " SKELDATASK: [chkarg] Abnormal parameters or arguments.\n");
}
