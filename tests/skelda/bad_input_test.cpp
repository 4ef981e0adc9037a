// The row-compressed input: its checks, graph sizes, the elimination tree and its postorder, and
// patterns that do not fit their arrays at each entry of the solver that takes ia/ja: a stop
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
#include "mmekit/support/output.hpp"
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

TEST(CheckIja, ShowListsEveryRow) {
  // The mark vector is cleared per row: the same column in two rows is fine.
  CaptureOutput cap;
  check_ija(2, ints({1, 3, 4}), ints({1, 2, 2}), true);
  EXPECT_EQ(cap.text(), " ia= 1 2 ; ja= 1 2\n ia= 3 3 ; ja= 2\n");
}

TEST(CountColumns, CountsAndTheMmeCheck) {
  // Row 1: diagonal only (nonzero); row 2: zero diagonal; row 3: empty; row 4: two entries.
  Array1<std::int32_t> ia = ints({1, 2, 3, 3, 5}), ja = ints({1, 2, 4, 5});
  Array1<double> a = test::array1<double>({2.0, 0.0, 1.0, 1.0});
  std::int64_t empty = 9, zero = 9, nonzero = 9;
  count_columns(4, ia, ja, a, empty, zero, nonzero);
  EXPECT_EQ(empty, 1);
  EXPECT_EQ(zero, 1);
  EXPECT_EQ(nonzero, 3);
  // A single entry off the diagonal.
  Array1<std::int32_t> ib = ints({1, 2}), jb = ints({3});
  EXPECT_EQ(stop_output([&] { count_columns(1, ib, jb, a, empty, zero, nonzero); }),
            "There is no diagonal element within the column.\nThe matrix seems not to be a MME.\n");
}

TEST(GraphSize, RobustCountAndTheObsoleteRoutine) {
  skelda_test::Pattern p = skelda_test::grid2d(4, 3);  // 17 edges
  EXPECT_EQ(get_size_for_graph_robust(p.n, p.ia, p.ja), 34);
  EXPECT_EQ(skelda_state.graph_n, 12);
  // Rows without their diagonal count the same.
  Array1<std::int32_t> ia = ints({1, 2, 2}), ja = ints({2});
  EXPECT_EQ(get_size_for_graph_robust(2, ia, ja), 2);
  EXPECT_EQ(stop_output([] { get_size_for_graph(1, 40); }),
            "This function (get_size_for_graph) is obsolete.\n"
            "You have to use new function [get_size_for_graph_robust(n,ia,ja) ].\n");
}

TEST(Tree, EliminationTreeAndPostorderByHand) {
  // Edges 1-3, 2-4, 3-5, 4-5: parent 1->3, 3->5, 2->4, 4->5.
  skelda_test::Pattern p = skelda_test::from_edges(5, {{0, 2}, {1, 3}, {2, 4}, {3, 4}});
  Array1<std::int32_t> xadj, adj, parent, post;
  full_graph(p.n, p.ia, p.ja, xadj, adj);
  elimination_tree(5, xadj, adj, parent);
  EXPECT_EQ(parent, ints({3, 4, 5, 5, 0}));
  tree_postorder(5, parent, post);
  EXPECT_EQ(post, ints({1, 3, 2, 4, 5}));
  Array1<std::int32_t> perm = skelda_test::identity(5), iperm = skelda_test::identity(5);
  compose_postorder(5, parent, post, perm, iperm);
  EXPECT_EQ(perm, ints({1, 3, 2, 4, 5}));
  EXPECT_EQ(iperm, ints({1, 3, 2, 4, 5}));
  EXPECT_EQ(parent, ints({2, 5, 4, 5, 0}));
  // Forest: roots ascending, children smallest first.
  Array1<std::int32_t> forest = ints({4, 4, 0, 0, 3});
  tree_postorder(5, forest, post);
  EXPECT_EQ(post, ints({5, 3, 1, 2, 4}));
  // The permuted graph renames nodes by iperm.
  Array1<std::int32_t> px, pa;
  permuted_graph(5, p.ia, p.ja, ints({5, 4, 3, 2, 1}), px, pa);
  EXPECT_EQ(px, ints({1, 3, 5, 7, 8, 9}));
  EXPECT_EQ(pa(1), 3);  // new 1 is old 5, joined to old 3 = new 3
}
