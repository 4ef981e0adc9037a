// Checks of the row-compressed input, graph sizes, the elimination tree and its postorder.
#include <gtest/gtest.h>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::Array1;
using mmekit::test::ints;
using mmekit::test::stop_output;

TEST(CheckIja, ShowListsEveryRow) {
  // The mark vector is cleared per row: the same column in two rows is fine.
  mmekit::CaptureOutput cap;
  mmekit::check_ija(2, ints({1, 3, 4}), ints({1, 2, 2}), true);
  EXPECT_EQ(cap.text(), " ia= 1 2 ; ja= 1 2\n ia= 3 3 ; ja= 2\n");
}

TEST(CountColumns, CountsAndTheMmeCheck) {
  // Row 1: diagonal only (nonzero); row 2: zero diagonal; row 3: empty; row 4: two entries.
  Array1<std::int32_t> ia = ints({1, 2, 3, 3, 5}), ja = ints({1, 2, 4, 5});
  Array1<double> a = mmekit::test::array1<double>({2.0, 0.0, 1.0, 1.0});
  std::int64_t empty = 9, zero = 9, nonzero = 9;
  mmekit::count_columns(4, ia, ja, a, empty, zero, nonzero);
  EXPECT_EQ(empty, 1);
  EXPECT_EQ(zero, 1);
  EXPECT_EQ(nonzero, 3);
  // A single entry off the diagonal.
  Array1<std::int32_t> ib = ints({1, 2}), jb = ints({3});
  EXPECT_EQ(stop_output([&] { mmekit::count_columns(1, ib, jb, a, empty, zero, nonzero); }),
            "There is no diagonal element within the column.\nThe matrix seems not to be a MME.\n");
}

TEST(GraphSize, RobustCountAndTheObsoleteRoutine) {
  Pattern p = grid2d(4, 3);  // 17 edges
  EXPECT_EQ(mmekit::get_size_for_graph_robust(p.n, p.ia, p.ja), 34);
  EXPECT_EQ(mmekit::skelda_state.graph_n, 12);
  // Rows without their diagonal count the same.
  Array1<std::int32_t> ia = ints({1, 2, 2}), ja = ints({2});
  EXPECT_EQ(mmekit::get_size_for_graph_robust(2, ia, ja), 2);
  EXPECT_EQ(stop_output([] { mmekit::get_size_for_graph(1, 40); }),
            "This function (get_size_for_graph) is obsolete.\n"
            "You have to use new function [get_size_for_graph_robust(n,ia,ja) ].\n");
}

TEST(Tree, EliminationTreeAndPostorderByHand) {
  // Edges 1-3, 2-4, 3-5, 4-5: parent 1->3, 3->5, 2->4, 4->5.
  Pattern p = from_edges(5, {{0, 2}, {1, 3}, {2, 4}, {3, 4}});
  Array1<std::int32_t> xadj, adj, parent, post;
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  mmekit::elimination_tree(5, xadj, adj, parent);
  EXPECT_EQ(parent, ints({3, 4, 5, 5, 0}));
  mmekit::tree_postorder(5, parent, post);
  EXPECT_EQ(post, ints({1, 3, 2, 4, 5}));
  Array1<std::int32_t> perm = identity(5), iperm = identity(5);
  mmekit::compose_postorder(5, parent, post, perm, iperm);
  EXPECT_EQ(perm, ints({1, 3, 2, 4, 5}));
  EXPECT_EQ(iperm, ints({1, 3, 2, 4, 5}));
  EXPECT_EQ(parent, ints({2, 5, 4, 5, 0}));
  // Forest: roots ascending, children smallest first.
  Array1<std::int32_t> forest = ints({4, 4, 0, 0, 3});
  mmekit::tree_postorder(5, forest, post);
  EXPECT_EQ(post, ints({5, 3, 1, 2, 4}));
  // The permuted graph renames nodes by iperm.
  Array1<std::int32_t> px, pa;
  mmekit::permuted_graph(5, p.ia, p.ja, ints({5, 4, 3, 2, 1}), px, pa);
  EXPECT_EQ(px, ints({1, 3, 5, 7, 8, 9}));
  EXPECT_EQ(pa(1), 3);  // new 1 is old 5, joined to old 3 = new 3
}
