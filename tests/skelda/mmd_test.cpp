#include <gtest/gtest.h>

#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/mmd.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::Array1;

namespace {

struct MmdResult {
  Array1<std::int32_t> perm, invp;
  std::int32_t nofsub = 0;
};

MmdResult run_mmd(const Pattern& p, std::int32_t delta, std::int32_t maxint = 2147483647) {
  Array1<std::int32_t> xadj, adj;
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  MmdResult r;
  r.perm = Array1<std::int32_t>(p.n);
  r.invp = Array1<std::int32_t>(p.n);
  Array1<std::int32_t> head(p.n), qsize(p.n), list(p.n), marker(p.n);
  mmekit::mmd_genmmd(p.n, xadj, adj, r.invp, r.perm, delta, head, qsize, list, marker, maxint, r.nofsub);
  return r;
}

}  // namespace

TEST(Mmd, HandWorkedPathAndClique) {
  // Path 1-2-3: both ends have degree 1 and are eliminated in one round (the last inserted
  // end first), then the middle: subscripts 2 + 2 + 1.
  Pattern path = from_edges(3, {{0, 1}, {1, 2}});
  MmdResult r = run_mmd(path, 0);
  EXPECT_EQ(std::vector<std::int32_t>(r.perm.begin(), r.perm.end()), (std::vector<std::int32_t>{3, 1, 2}));
  EXPECT_EQ(r.nofsub, 5);
  // With a negative delta one node per round; the fill is the same.
  r = run_mmd(path, -1);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 3));
  EXPECT_EQ(fill_count(path, r.perm), 5);
  // Clique of 4: the first pivot has 3 neighbours, the remaining three become one group with
  // no outside neighbour: 4 + 3 subscripts.
  r = run_mmd(dense(4), 0);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 4));
  EXPECT_EQ(r.nofsub, 7);
  // Diagonal: every node alone, one subscript each.
  r = run_mmd(from_edges(5, {}), 0);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 5));
  EXPECT_EQ(r.nofsub, 5);
}

TEST(Mmd, PermutationsAndFillOnPatterns) {
  std::vector<Pattern> pats = {grid2d(12, 11), random_graph(200, 400, 5u), disconnected(),
                               mme(100, 3), dense(30), from_edges(9, {})};
  for (const Pattern& p : pats) {
    for (std::int32_t delta : {-1, 0, 2}) {
      MmdResult r = run_mmd(p, delta);
      ASSERT_TRUE(is_permutation_pair(r.perm, r.invp, p.n)) << p.n << " " << delta;
      std::int64_t fill = fill_count(p, r.perm);
      EXPECT_LE(r.nofsub, fill);
      EXPECT_GE(r.nofsub, p.n);
    }
  }
}

TEST(Mmd, SmallMaxintResetsMarkersWithoutChangingTheOrder) {
  Pattern p = grid2d(9, 8);
  MmdResult a = run_mmd(p, 1);
  MmdResult b = run_mmd(p, 1, 5);
  EXPECT_EQ(a.perm, b.perm);
  EXPECT_EQ(a.nofsub, b.nofsub);
}
