#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "mmekit/skelda/amd.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/mmd.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::Array1;

namespace {

enum class M { amd, qamd, amf, mmd, metis };
const M kMethods[] = {M::amd, M::qamd, M::amf, M::mmd, M::metis};

void order(M m, std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
           Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  mmekit::CaptureOutput quiet;  // the caution line of the METIS stand-in
  switch (m) {
    case M::amd: mmekit::skelda_amd(n, xadj, adj, perm, iperm); break;
    case M::qamd: mmekit::skelda_qamd(n, xadj, adj, perm, iperm); break;
    case M::amf: mmekit::skelda_amf(n, xadj, adj, perm, iperm); break;
    case M::mmd: mmekit::skelda_mmd(n, xadj, adj, 0, perm, iperm); break;
    case M::metis: mmekit::skelda_metis(n, xadj, adj, Array1<std::int32_t>(8, 0), perm, iperm); break;
  }
}

void order(M m, const Pattern& p, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  Array1<std::int32_t> xadj, adj;
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  order(m, p.n, xadj, adj, perm, iperm);
}

Array1<std::int64_t> widen(const Array1<std::int32_t>& a) {
  Array1<std::int64_t> b(a.size());
  for (std::int64_t i = 1; i <= a.size(); ++i) b(i) = a(i);
  return b;
}

}  // namespace

TEST(Orderings, EveryMethodGivesAPermutationAndTheEightByteTwinsAgree) {
  // Fixed shapes, then sizes 1..80 with densities from empty to nearly complete and a hub row in
  // every third: every method returns a permutation, and the 8-byte kernels and graph builder
  // give the same results as the 4-byte ones.
  std::vector<Pattern> pats = {random_graph(500, 1500, 1u), random_graph(200, 3000, 2u),
                               grid2d(17, 13), disconnected(), from_edges(7, {}),
                               dense(25), from_edges(1, {}), mme(200, 4)};
  std::mt19937 rng(2024u);
  for (int trial = 0; trial < 150; ++trial) {
    const std::int32_t n = 1 + static_cast<std::int32_t>(rng() % 80);
    const std::int32_t edges = static_cast<std::int32_t>(rng() % (n * 4 + 1));
    Edges e;
    for (std::int32_t k = 0; k < edges; ++k)
      e.push_back({static_cast<std::int32_t>(rng() % n), static_cast<std::int32_t>(rng() % n)});
    if (trial % 3 == 0)
      for (std::int32_t v = 0; v < n; ++v) e.push_back({0, v});
    pats.push_back(from_edges(n, e));
  }
  for (std::size_t t = 0; t < pats.size(); ++t) {
    const Pattern& p = pats[t];
    Array1<std::int32_t> perm, iperm, xadj, adj;
    for (M m : kMethods) {
      order(m, p, perm, iperm);
      ASSERT_TRUE(is_permutation_pair(perm, iperm, p.n)) << "pattern " << t << " method " << int(m);
    }
    mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
    Array1<std::int64_t> x8 = widen(xadj), a8 = widen(adj), perm8, iperm8, gx, ga;
    mmekit::full_graph8(p.n, widen(p.ia), widen(p.ja), gx, ga);
    EXPECT_EQ(gx, x8) << t;
    EXPECT_EQ(ga, a8) << t;
    for (auto [k4, k8] : {std::pair{&mmekit::skelda_amd, &mmekit::skelda_amd8},
                          {&mmekit::skelda_qamd, &mmekit::skelda_qamd8}, {&mmekit::skelda_amf, &mmekit::skelda_amf8}}) {
      k4(p.n, xadj, adj, perm, iperm);
      k8(p.n, x8, a8, perm8, iperm8);
      EXPECT_EQ(widen(perm), perm8) << t;
    }
  }
}

TEST(Orderings, FillBelowTheNaturalOrderFromEitherTriangleAndAmfNearAmd) {
  // Every method leaves less fill than the natural order, also when the caller hands in the
  // whole symmetric pattern (every edge then arrives twice in the graph). On mixed-model
  // equations the covariate, the parities and popular sires make rows that touch much of the
  // system: the fill score must count the pairs those rows' elements already join; counting the
  // previous score instead gave such rows a score of 1 as soon as a neighbour was eliminated,
  // and AMF left three to nine times the fill of AMD.
  for (const Pattern& p : {grid2d(14, 14), random_graph(150, 300, 3u), mme(100, 21), mme(400, 5)}) {
    const std::int64_t natural = fill_count(p, identity(p.n));
    Array1<std::int32_t> xadj, adj, perm, iperm;
    mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
    Pattern both = p;  // each row: the diagonal, then its full adjacency
    both.ja = Array1<std::int32_t>(p.n + xadj(p.n + 1) - 1);
    for (std::int32_t i = 1; i <= p.n + 1; ++i) both.ia(i) = i - 1 + xadj(i);
    for (std::int32_t i = 1; i <= p.n; ++i) {
      both.ja(both.ia(i)) = i;
      std::copy(adj.begin() + (xadj(i) - 1), adj.begin() + (xadj(i + 1) - 1), both.ja.begin() + both.ia(i));
    }
    std::int64_t fill[5] = {};
    for (M m : kMethods) {
      if (m == M::metis && !mmekit::skelda_have_metis()) continue;
      order(m, p, perm, iperm);
      fill[int(m)] = fill_count(p, perm);
      EXPECT_LT(fill[int(m)], natural) << "n=" << p.n << " method " << int(m);
      order(m, both, perm, iperm);
      ASSERT_TRUE(is_permutation_pair(perm, iperm, p.n)) << int(m);
      EXPECT_LT(fill_count(p, perm), natural) << "n=" << p.n << " both triangles, method " << int(m);
    }
    EXPECT_LE(fill[int(M::amf)], fill[int(M::amd)] * 11 / 10) << "n=" << p.n;
  }
}

TEST(Orderings, AmdOnHandWorkedGraphs) {
  // A star (its centre first would fill it completely), a path and a binary tree: every
  // minimum-degree relative orders a tree without fill (n + edges nonzeros in L).
  Edges star, path, tree;
  for (std::int32_t v = 1; v < 6; ++v) star.push_back({0, v});
  for (std::int32_t v = 1; v < 8; ++v) path.push_back({v - 1, v});
  for (std::int32_t v = 1; v < 60; ++v) tree.push_back({v, (v - 1) / 2});
  Array1<std::int32_t> perm, iperm;
  for (const Pattern& p : {from_edges(6, star), from_edges(8, path), from_edges(60, tree)})
    for (M m : {M::amd, M::qamd, M::amf, M::mmd}) {
      order(m, p, perm, iperm);
      EXPECT_EQ(fill_count(p, perm), 2 * p.n - 1) << p.n << " " << int(m);
    }
}

TEST(Orderings, MissingKernelsAndClosingChecksSaySo) {
  // The 8-byte MMD and METIS entries have no kernel: a line, and the identity.
  Pattern p = grid2d(10, 10);
  Array1<std::int32_t> xadj, adj, perm, iperm;
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  Array1<std::int64_t> x8 = widen(xadj), a8 = widen(adj), perm8, iperm8;
  const std::pair<std::function<void()>, std::string> missing[] = {
      {[&] { mmekit::skelda_mmd8(100, x8, a8, 0, perm8, iperm8); }, "ERROR: GENMMD8 is not implemented yet.\n"},
      {[&] { mmekit::skelda_metis8(100, x8, a8, Array1<std::int64_t>(8, 0), perm8, iperm8); },
       "ERROR: METIS_NodeND8 is not implemented yet.\n"}};
  for (const auto& [call, text] : missing) {
    perm8.fill(0);
    iperm8.fill(0);
    mmekit::CaptureOutput cap;
    call();
    EXPECT_EQ(cap.text(), text);
    EXPECT_EQ(perm8, widen(identity(100)));
    EXPECT_EQ(iperm8, widen(identity(100)));
  }
  // The 4-byte METIS entry runs the library when it is built in, else a stand-in that says so.
  mmekit::CaptureOutput cap;
  mmekit::skelda_metis(p.n, xadj, adj, Array1<std::int32_t>(8, 0), perm, iperm);
  const bool have = mmekit::skelda_have_metis();
  EXPECT_EQ(cap.text(), have ? "" : "Caution: You actually use a dummy subroutine for METIS_NodeND.\n");
  EXPECT_EQ(perm == identity(p.n), !have);
  // The closing checks of QAMD and AMF pass quietly or stop with their messages.
  cap.clear();
  mmekit::qamd_check_finish(5, 5, 0);
  mmekit::amf_check_finish(5, 5);
  EXPECT_EQ(cap.text(), "");
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[] { mmekit::qamd_check_finish(5, 5, 1); }, " Internal ERROR quasi dense rows remains\n"},
      {[] { mmekit::qamd_check_finish(5, 4, 0); }, "Internal ERROR 2 detected in QAMD\n NEL not equal to N: N, NEL = 5 4\n"},
      {[] { mmekit::amf_check_finish(5, 3); }, "AMF internal error\n"}};
  for (const auto& [call, printed] : stops) EXPECT_EQ(mmekit::test::stop_output(call), printed);
}

TEST(Qamd, ThresholdFormula) {
  // mean = 40/10 = 4; (30-4)/10 + 40 + 1 = 43, above n = 10 -> n (no quasi-dense row).
  EXPECT_EQ(mmekit::qamd_dense_threshold(10, 30, 40), 10);
  // n = 1000, lenmax 900, 3000 entries: mean 3, (897)/10 + 30 + 1 = 120.
  EXPECT_EQ(mmekit::qamd_dense_threshold(1000, 900, 3000), 120);
  // Mean 0: lenmax/10 + 1.
  EXPECT_EQ(mmekit::qamd_dense_threshold(1000, 250, 500), 26);
  // Below 2 becomes n.
  EXPECT_EQ(mmekit::qamd_dense_threshold(1000, 5, 500), 1000);
}

TEST(Qamd, QuasiDenseRowsAreNumberedLast) {
  // 2000 nodes on a path, and rows 7, 500 and 1500 joined to every other node.
  const std::int32_t n = 2000;
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t v = 0; v + 1 < n; ++v) e.push_back({v, v + 1});
  for (std::int32_t d : {7, 500, 1500})
    for (std::int32_t v = 0; v < n; ++v) e.push_back({d, v});
  Pattern p = from_edges(n, e);
  Array1<std::int32_t> perm, iperm;
  order(M::qamd, p, perm, iperm);
  ASSERT_TRUE(is_permutation_pair(perm, iperm, n));
  std::vector<std::int32_t> last = {perm(n - 2), perm(n - 1), perm(n)};
  EXPECT_EQ(last, (std::vector<std::int32_t>{8, 501, 1501}));
}

TEST(Amf, ScoreAndBucketRules) {
  // Enough variables left: di(di-1+2dme) - si over wi+1: 3*(2+8) - 4 = 26, /2 = 13.
  EXPECT_EQ(mmekit::amf_score(100, 50, 4, 1, 3, 4), 13);
  // Few left: de = 6-1 = 5, a = 20 - 3*2 = 14, b = 26, min 14, /2 = 7.
  EXPECT_EQ(mmekit::amf_score(100, 6, 4, 1, 3, 4), 7);
  // Rounding halves away from zero: 27/2 = 13.5 -> 14.
  EXPECT_EQ(mmekit::amf_score(100, 50, 4, 1, 3, 3), 14);
  // Below 1 becomes 1.
  EXPECT_EQ(mmekit::amf_score(100, 50, 0, 1, 0, 0), 1);
  // Huge: 60000 * 179999 / 2 = 5399970000 is divided by n once more, then capped.
  EXPECT_EQ(mmekit::amf_score(1000, 100000000, 60000, 1, 60000, 0), 5399970);
  EXPECT_EQ(mmekit::amf_score(2, 100000000, 3000000, 1, 3000000, 0), 2147483646);
  // Buckets: up to n their own, then by n/8 steps, capped at n+1.
  EXPECT_EQ(mmekit::amf_bucket(80, 0), 0);
  EXPECT_EQ(mmekit::amf_bucket(80, 89), 80);
  EXPECT_EQ(mmekit::amf_bucket(80, 90), 81);
  EXPECT_EQ(mmekit::amf_bucket(80, 1000000), 81);
  EXPECT_EQ(mmekit::amf_bucket(4, 7), 5);  // n/8 = 0 -> step 1: 4 + 3 = 7 -> capped at 5
}

TEST(DenseRows, ThresholdSplitAndArrowMatrix) {
  // max(16, alpha * sqrt(n)), alpha 2 by default; MMD's 0.7 sqrt(n) truncated (22.1 at n = 1000),
  // at least 16 (0.7 sqrt(500) = 15.7).
  EXPECT_EQ(mmekit::dense_row_threshold(1), 16);
  EXPECT_EQ(mmekit::dense_row_threshold(10000, 10.0), 1000);
  EXPECT_EQ(mmekit::dense_row_threshold(10000), 200);
  EXPECT_EQ(mmekit::dense_row_threshold(1000, mmekit::kDenseRowAlphaMmd), 22);
  EXPECT_EQ(mmekit::dense_row_threshold(500, mmekit::kDenseRowAlphaMmd), 16);

  // Arrow matrix: node 1 joined to all 39 others, which form a path 2-3-...-40. Only the hub
  // is above the threshold of 16.
  const std::int32_t n = 40;
  Edges e;
  for (std::int32_t v = 1; v < n; ++v) e.push_back({0, v});
  for (std::int32_t v = 2; v < n; ++v) e.push_back({v - 1, v});
  const Pattern arrow = from_edges(n, e);
  Array1<std::int32_t> xadj, adj;
  mmekit::full_graph(n, arrow.ia, arrow.ja, xadj, adj);
  mmekit::DenseRowSplit split;
  mmekit::split_dense_rows(n, xadj, adj, 16, split);
  ASSERT_EQ(split.n, n - 1);
  EXPECT_EQ(split.dense, Array1<std::int32_t>(1, 1));
  // The rest is the path 1-2-...-39 of the reduced numbering, node k being original k + 1.
  const Pattern path = grid2d(n - 1, 1);
  Array1<std::int32_t> px, pa;
  mmekit::full_graph(n - 1, path.ia, path.ja, px, pa);
  EXPECT_EQ(split.xadj, px);
  EXPECT_EQ(split.adj, pa);
  for (std::int32_t k = 1; k <= split.n; ++k) EXPECT_EQ(split.node(k), k + 1);
  // A threshold at the hub's degree keeps everything.
  mmekit::split_dense_rows(n, xadj, adj, n - 1, split);
  EXPECT_EQ(split.n, n);
  EXPECT_EQ(split.dense.size(), 0);
  EXPECT_EQ(split.adj, adj);

  // Every method with the hub set aside: the path is a tree and orders without fill, the hub
  // comes last, and L holds the diagonal, the path and the hub's row: 40 + 38 + 39 entries.
  // The hub first would fill the whole matrix.
  for (M m : kMethods) {
    Array1<std::int32_t> perm, iperm;
    const std::int32_t dense = mmekit::order_dense_rows_last(
        n, xadj, adj, 16, [m](std::int32_t rn, auto& x, auto& a, auto& p, auto& ip) { order(m, rn, x, a, p, ip); },
        perm, iperm);
    EXPECT_EQ(dense, 1);
    ASSERT_TRUE(is_permutation_pair(perm, iperm, n)) << int(m);
    EXPECT_EQ(perm(n), 1) << int(m);
    if (m != M::metis || !mmekit::skelda_have_metis()) {
      EXPECT_EQ(fill_count(arrow, perm), 3 * n - 3) << int(m);
    }
  }
}

TEST(DenseRows, SwitchOfTheOrderingStep) {
  mmekit::SkeldaState& s = mmekit::skelda_state;
  auto step = [&](const Pattern& p, std::int32_t method) {
    std::int32_t st = -1;
    mmekit::CaptureOutput quiet;
    mmekit::skelda_order(p.n, p.ia, p.ja, method, st, nullptr, nullptr, 0);
    EXPECT_EQ(st, 0);
    return *s.perm;
  };
  const Pattern p = mme(400, 5), grid = grid2d(20, 15);
  Array1<std::int32_t> xadj, adj;
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  // MMD sets aside the rows above max(16, 0.7 sqrt(n)), the other methods those above
  // max(16, 2 sqrt(n)).
  auto dense_rows = [&](double alpha) {
    std::set<std::int32_t> d;
    for (std::int32_t i = 1; i <= p.n; ++i)
      if (xadj(i + 1) - xadj(i) > mmekit::dense_row_threshold(p.n, alpha)) d.insert(i);
    return d;
  };
  const std::set<std::int32_t> dense_amd = dense_rows(2.0), dense_mmd = dense_rows(0.7);
  ASSERT_FALSE(dense_amd.empty());
  ASSERT_GT(dense_mmd.size(), dense_amd.size());
  ASSERT_LT(static_cast<std::int32_t>(dense_mmd.size()), p.n / 10);
  mmekit::skelda_init();
  for (std::int32_t method : {0, 1, 2, 3, 4}) {
    const std::set<std::int32_t>& dense = method == 4 ? dense_mmd : dense_amd;
    s.switches.dense_rows_last = false;
    const Array1<std::int32_t> off = step(p, method), grid_off = step(grid, method);
    s.switches.dense_rows_last = true;
    const Array1<std::int32_t> on = step(p, method);
    // The dense rows end the order (the postorder keeps them last: they are ancestors of the
    // rest of this connected system).
    ASSERT_TRUE(is_permutation_pair(on, *s.iperm, p.n)) << method;
    std::set<std::int32_t> tail(on.end() - static_cast<std::ptrdiff_t>(dense.size()), on.end());
    EXPECT_EQ(tail, dense) << method;
    // A graph without dense rows orders as with the switch off; turned off again, the
    // previous ordering comes back.
    EXPECT_EQ(step(grid, method), grid_off) << method;
    s.switches.dense_rows_last = false;
    EXPECT_EQ(step(p, method), off) << method;
  }
  // QAMD on the reduced graph keeps the quasi-dense threshold of the whole matrix. Hub 1 is
  // joined to all 400 nodes, 2..400 form a path, and four nodes have 30 more neighbours on the
  // path (degree 33, below the switch's 40). Whole graph: longest row 399, mean 4, QAMD's
  // threshold 80, so no row of the reduced graph is quasi-dense and QAMD orders it as AMD
  // does. The reduced graph's own threshold would be 24 and postpone the four.
  Edges e;
  for (std::int32_t v = 1; v < 400; ++v) e.push_back({0, v});
  for (std::int32_t v = 2; v < 400; ++v) e.push_back({v - 1, v});
  for (std::int32_t c : {50, 150, 250, 350})
    for (std::int32_t v = c - 40; v < c - 10; ++v) e.push_back({c, v});
  const Pattern stars = from_edges(400, e);
  s.switches.dense_rows_last = true;
  EXPECT_EQ(step(stars, 2), step(stars, 1));
  s.switches.dense_rows_last = false;
  EXPECT_NE(step(stars, 2), step(stars, 1));  // the whole graph has quasi-dense rows: the hub
  // Neither a parameter nor a full reset touches the switch.
  s.switches.dense_rows_last = true;
  EXPECT_EQ(mmekit::set_iparm(13, 2), 0);
  std::int32_t st = -1;
  mmekit::skeldatask(0, {.status = &st});
  EXPECT_TRUE(s.switches.dense_rows_last);
  s.switches.dense_rows_last = false;
}

namespace {

// MMD with its own arguments: the order and the count of subscripts of the compressed factor.
struct MmdResult {
  Array1<std::int32_t> perm, invp;
  std::int32_t nofsub = 0;
};

MmdResult run_mmd(const Pattern& p, std::int32_t delta, std::int32_t maxint = 2147483647) {
  Array1<std::int32_t> xadj, adj, head(p.n), qsize(p.n), list(p.n), marker(p.n);
  mmekit::full_graph(p.n, p.ia, p.ja, xadj, adj);
  MmdResult r{Array1<std::int32_t>(p.n), Array1<std::int32_t>(p.n)};
  mmekit::mmd_genmmd(p.n, xadj, adj, r.invp, r.perm, delta, head, qsize, list, marker, maxint, r.nofsub);
  return r;
}

}  // namespace

TEST(Mmd, HandWorkedPathCliqueAndDiagonal) {
  // Path 1-2-3: both ends have degree 1 and are eliminated in one round (the last inserted
  // end first), then the middle: subscripts 2 + 2 + 1.
  Pattern path = from_edges(3, {{0, 1}, {1, 2}});
  MmdResult r = run_mmd(path, 0);
  EXPECT_EQ(r.perm, mmekit::test::ints({3, 1, 2}));
  EXPECT_EQ(r.nofsub, 5);
  // With a negative delta one node per round; the fill is the same.
  r = run_mmd(path, -1);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 3));
  EXPECT_EQ(fill_count(path, r.perm), 5);
  // Clique of 4: the first pivot has 3 neighbours, the remaining three become one group with
  // no outside neighbour: 4 + 3 subscripts. Diagonal: every node alone, one subscript each.
  r = run_mmd(dense(4), 0);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 4));
  EXPECT_EQ(r.nofsub, 7);
  r = run_mmd(from_edges(5, {}), 0);
  EXPECT_TRUE(is_permutation_pair(r.perm, r.invp, 5));
  EXPECT_EQ(r.nofsub, 5);
}

TEST(Mmd, EveryDeltaOnPatternsAndASmallMaxint) {
  // A permutation whose subscripts lie between n and the fill; a small maxint resets the
  // markers more often without changing the order.
  for (const Pattern& p : {grid2d(12, 11), random_graph(200, 400, 5u), disconnected(), mme(100, 3), dense(30)})
    for (std::int32_t delta : {-1, 0, 2}) {
      const MmdResult r = run_mmd(p, delta);
      ASSERT_TRUE(is_permutation_pair(r.perm, r.invp, p.n)) << p.n << " " << delta;
      EXPECT_LE(r.nofsub, fill_count(p, r.perm));
      EXPECT_GE(r.nofsub, p.n);
      const MmdResult small = run_mmd(p, delta, 5);
      EXPECT_EQ(small.perm, r.perm);
      EXPECT_EQ(small.nofsub, r.nofsub);
    }
}
