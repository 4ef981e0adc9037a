// Patterns that do not fit their arrays, at each entry of the solver that takes ia/ja: a stop
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

TEST(SkeldaBadInput, EveryEntryChecksThePattern) {
  // check_ija keeps its own messages for the faults it always named, in walk order: row 1's
  // duplicate before row 2's reach past ja, an empty row before a bad column.
  const Array1<std::int32_t> ja = ints({1, 2, 2});
  Array1<std::int32_t> xadj, adj, parent;
  Array1<double> a = test::array1<double>({4.0, 1.0});
  std::int64_t e = 0, z = 0, nz = 0;
  Array1<std::int64_t> ia8(3, 1), ja8(1, 1), xadj8, adj8;
  ia8(2) = 2;
  ia8(3) = 7;
  const std::vector<std::pair<std::function<void()>, std::string>> cases = {
      {[&] { check_ija(2, ints({1, 3, 4}), ints({1, 3, 2}), false); }, "check_ija: ja(2) = 3 in row 1 is outside 1..2\n"},
      {[&] { check_ija(2, ints({1, 3, 40}), ints({2, 2, 2}), false); }, "ERROR: j found twice or more\n"},
      {[&] { check_ija(0, ints({1}), ints({1}), false); }, "ERROR: neq < 1\n"},
      {[&] { check_ija(1, ints({0, 1}), ints({1}), false); }, "ERROR: zero or negative ia\n"},
      {[&] { check_ija(2, ints({1, 2, 3}), ints({1, 0}), false); }, "ERROR: zero or negative j\n"},
      {[&] { check_ija(3, ints({1, 1, 2, 3}), ints({9, 2}), false); }, "ERROR: ia(i) > ia(i+1)-1\n"},
      {[&] { check_ija(2, ints({1, 3, 9}), ja, true); }, " ia= 1 2 ; ja= 1 2\ncheck_ija: ia(3)-1 = 8 but ja holds 3 entries\n"},
      {[&] { get_size_for_graph_robust(2, ints({1, 3}), ja); },
       "get_size_for_graph_robust: n = 2 needs 3 entries in ia but ia holds 2\n"},
      {[&] { get_size_for_graph_robust8(2, ia8, ja8); }, "get_size_for_graph_robust8: ia(3)-1 = 6 but ja holds 1 entries\n"},
      {[&] { full_graph(2, ints({1, 3, 4}), ints({1, 5, 2}), xadj, adj); }, "full_graph: ja(2) = 5 in row 1 is outside 1..2\n"},
      {[&] { full_graph8(2, ia8, ja8, xadj8, adj8); }, "full_graph8: ia(3)-1 = 6 but ja holds 1 entries\n"},
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
  // A column beyond neq is an abnormal argument of the ordering.
  Array1<std::int32_t> wide = p.ja, cut = p.ja;
  wide(2) = n + 1;
  cut.vec().pop_back();
  Array1<double> few(3, 1.0);
  CaptureOutput cap;
  skelda_order(n, p.ia, wide, 1, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  EXPECT_EQ(skelda_state.stage(), 1);
  // After a good ordering the symbolic step refuses a pattern cut short, and the numerical
  // step values that do not reach as far as the pattern; no step is entered.
  skeldatask(10, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .status = &st});
  ASSERT_EQ(st, 0);
  skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &cut, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  skeldatask(40, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .a = &few, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, kSkeldaAbnormalArgs);
  const std::string said = " SKELDATASK: [chkarg] Abnormal parameters or arguments.\n";
  EXPECT_EQ(cap.text(), said + said);
  EXPECT_EQ(skelda_state.stage(), 10);
  // With a negative verbosity the report stops the run.
  verbose = -1;
  EXPECT_EQ(stop_output([&] { skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &cut, .verbose = &verbose}); }), said);
}
