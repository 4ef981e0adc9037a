// Symbolic factorisation: structures against dense symbolic elimination, every stored position
// against the storage written out, hand-worked cases, statuses, stops and relative indices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "common/symbolic_ref.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::set_iparm;
using mmekit::skelda_state;
using mmekit::Sx2Layout;
using mmekit::test::DenseFill;
using mmekit::test::expect_stop;
using mmekit::test::ints;

namespace {

class Symbolic : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_state = mmekit::SkeldaState{};
    mmekit::skelda_steps() = mmekit::SkeldaSteps{};
    mmekit::skelda_steps().symfac = mmekit::skelda_symfac_step;
  }
};

// Orders with `method` and runs the symbolic step; returns its status.
std::int32_t analyse(const Pattern& p, std::int32_t method, std::int32_t verbose = 0) {
  std::int32_t st = -1;
  set_iparm(13, method);
  mmekit::skelda_order(p.n, p.ia, p.ja, method, st, nullptr, nullptr, 0);
  EXPECT_EQ(st, 0);
  mmekit::skelda_symfac(p.n, p.ia, p.ja, st, verbose);
  return st;
}

// Two cliques 1..5 and 6..10 under the separator 11..13 (the second clique reaches 11 and 12
// only), and 14 joined to 13: supernodes {1..5}, {6..10}, {11,12}, {13,14}, no fill.
Pattern two_blocks() {
  Edges e;
  for (std::int32_t i = 0; i < 10; ++i) {
    for (std::int32_t j = i + 1; j < (i < 5 ? 5 : 10); ++j) e.push_back({i, j});
    for (std::int32_t s : {10, 11, 12})
      if (i < 5 || s < 12) e.push_back({i, s});
  }
  e.insert(e.end(), {{10, 11}, {10, 12}, {11, 12}, {12, 13}});
  return from_edges(14, e);
}

// Storage of a supernode written out the way the layout is defined: normal form D column by
// column then B column by column; panel form block column by block column, each column of a
// block column running through block rows J..nb. Returns the offset of local element (r, c)
// at [(c-1)(w+m) + r-1] (rows beyond w are list rows), -1 where nothing is stored.
std::vector<std::int64_t> enumerate_storage(std::int64_t w, std::int64_t m, std::int64_t p, std::int64_t& size) {
  const std::int64_t h = w + m;
  std::vector<std::int64_t> at(static_cast<std::size_t>(h * w), -1);
  auto cell = [&](std::int64_t r, std::int64_t c) -> std::int64_t& { return at[static_cast<std::size_t>((c - 1) * h + r - 1)]; };
  std::int64_t next = 0;
  if (m == 0 && w > p) {
    const std::int64_t nb = (w + p - 1) / p;
    for (std::int64_t jb = 1; jb <= nb; ++jb)
      for (std::int64_t cl = 1; cl <= p; ++cl)
        for (std::int64_t ib = jb; ib <= nb; ++ib)
          for (std::int64_t rl = 1; rl <= p; ++rl, ++next) {
            const std::int64_t r = (ib - 1) * p + rl, c = (jb - 1) * p + cl;
            if (r <= w && c <= w) cell(r, c) = next;
          }
  } else {
    for (std::int64_t c = 1; c <= w; ++c)
      for (std::int64_t r = 1; r <= w; ++r, ++next) cell(r, c) = next;
    for (std::int64_t c = 1; c <= w; ++c)
      for (std::int64_t k = 1; k <= m; ++k, ++next) cell(w + k, c) = next;
  }
  size = next;
  return at;
}

// Is the numbering a postorder of the elimination tree, every node between a node and its
// parent lying below that parent?
bool is_postorder(const DenseFill& fill, std::int32_t n) {
  for (std::int32_t v = 1; v <= n; ++v) {
    const std::int32_t p = fill.parent(v);
    std::int32_t a = v + 1;
    while (p != 0 && a != 0 && a < p) a = fill.parent(a);
    if (p != 0 && a != p) return false;
  }
  return true;
}

// The state's structures against dense symbolic elimination under its final permutation (a
// postorder), and each element written through the setter against its place in
// enumerate_storage. Exact supernodes (not relaxed) hold exactly nested columns, else the
// stored pattern need only hold the dense one; unless cut, no two neighbours could be one.
void expect_structure(const Pattern& p) {
  const auto& S = skelda_state;
  const bool exact = !S.switches.relaxed_amalgamation, maximal = exact && S.iparm(12) == 0;
  ASSERT_EQ(S.iparm(1), 20);
  ASSERT_TRUE(is_permutation_pair(*S.perm, *S.iperm, p.n));
  const DenseFill fill(p.n, p.ia, p.ja, *S.iperm);
  EXPECT_TRUE(is_postorder(fill, p.n));
  const Sx2Layout L = mmekit::skelda_layout();
  ASSERT_EQ(L.nsn, S.iparm(43));
  ASSERT_TRUE((*L.xsuper)(1) == 1 && (*L.xsuper)(L.nsn + 1) == p.n + 1);
  EXPECT_EQ(S.iparm(54), fill.total());
  auto list_of = [&](std::int32_t s) {
    return std::span<const std::int32_t>(L.lindx->data() + ((*L.xlindx)(s) - 1), static_cast<std::size_t>(L.rows_below(s)));
  };
  std::int64_t rows_sum = 0, widest = 0;
  double value = 0;
  for (std::int32_t s = 1; s <= L.nsn; ++s) {
    const std::int32_t c = (*L.xsuper)(s), d = (*L.xsuper)(s + 1) - 1;
    const std::int64_t w = d - c + 1, m = L.rows_below(s);
    const std::span<const std::int32_t> list = list_of(s);
    ASSERT_TRUE(c <= d && std::is_sorted(list.begin(), list.end()) && (list.empty() || list.front() > d)) << s;
    if (exact) { EXPECT_EQ(std::vector<std::int32_t>(list.begin(), list.end()), fill.rows_after(c, d)) << s; }
    std::int64_t size = 0;
    const std::vector<std::int64_t> at = enumerate_storage(w, m, L.panel, size);
    EXPECT_EQ((*L.xlnz)(s + 1) - (*L.xlnz)(s), size) << s;
    for (std::int32_t k = c; k <= d; ++k) {
      EXPECT_EQ((*L.snode)(k), s);
      for (std::int32_t r = k; r <= p.n; ++r) {
        const auto in = std::lower_bound(list.begin(), list.end(), r);
        const bool stored = r <= d || (in != list.end() && *in == r);
        if (exact || fill(r, k)) { EXPECT_EQ(stored, fill(r, k)) << "column " << k << " row " << r; }
        if (!stored) { EXPECT_EQ(mmekit::sx2_element_position(L, s, r, k), 0) << "column " << k << " row " << r; continue; }
        const std::int64_t row = r <= d ? r - c + 1 : w + 1 + (in - list.begin());
        mmekit::set_sx2_factor_element(s, r, k, ++value);
        ASSERT_EQ((*S.lnz)((*L.xlnz)(s) + at[static_cast<std::size_t>((k - c) * (w + m) + row - 1)]), value)
            << "column " << k << " row " << r;
      }
    }
    const std::int32_t up = fill.parent(d);
    EXPECT_EQ((*S.snparent)(s), up == 0 ? 0 : (*L.snode)(up)) << s;
    if (maximal && s < L.nsn) { EXPECT_FALSE(up == d + 1 && fill.count(d) == fill.count(d + 1) + 1) << s; }
    rows_sum += w + m;
    widest = std::max(widest, w + m);
    // What left-looking factorisation relies on: the rows of s from the first one in a target
    // j on all lie in j's columns or row list.
    for (std::size_t i = 0; i < list.size(); ++i) {
      const std::int32_t j = (*L.snode)(list[i]);
      for (const std::int32_t r : list.subspan(i))
        EXPECT_TRUE(r < (*L.xsuper)(j + 1) || std::binary_search(list_of(j).begin(), list_of(j).end(), r)) << s << " row " << r;
    }
  }
  EXPECT_EQ((std::vector<std::int64_t>{S.iparm(44), S.lnz->size(), S.iparm(45), S.iparm(46), S.iparm(47), S.cflag->size()}),
            (std::vector<std::int64_t>{(*L.xlnz)(L.nsn + 1) - 1, S.iparm(44), rows_sum, (*L.xlindx)(L.nsn + 1) - 1, widest, p.n}));
}

}  // namespace

TEST_F(Symbolic, StructuresAndPositionsAgainstDenseElimination) {
  // Each pattern under both orderings, with exact and relaxed supernodes. Two cliques of 5 with
  // panels of 2 are two padded panel-form roots; width 9 with panels of 8 takes two block columns;
  // the cliques of two_blocks stay normal form with panels of 2, having rows below.
  Edges cliques;
  for (std::int32_t i = 0; i < 5; ++i)
    for (std::int32_t j = i + 1; j < 5; ++j) cliques.insert(cliques.end(), {{i, j}, {i + 5, j + 5}});
  const std::tuple<const char*, Pattern, std::int32_t, std::int32_t> cases[] = {
      {"random", random_graph(60, 110, 7), 256, 0}, {"grid", grid2d(7, 6), 256, 0}, {"mme", mme(100, 3), 256, 0},
      {"diagonal", from_edges(9, {}), 256, 0},      {"dense", dense(12), 256, 0},   {"forest", disconnected(), 256, 0},
      {"two roots", from_edges(10, cliques), 2, 0}, {"width p+1", dense(9), 8, 0},  {"split", mme(100, 5), 256, 3},
      {"two blocks", two_blocks(), 2, 0}};
  for (const auto& [name, p, panel, split] : cases)
    for (std::int32_t method : {1, 8})
      for (bool relaxed : {false, true}) {
        SCOPED_TRACE(std::string(name) + " method " + std::to_string(method) + (relaxed ? " relaxed" : ""));
        SetUp();
        skelda_state.switches.relaxed_amalgamation = relaxed;
        set_iparm(10, panel);
        set_iparm(12, split);
        ASSERT_EQ(analyse(p, method), 0);
        expect_structure(p);
      }
  // A caller's permutation reaches the step unpostordered (odd grid nodes first, then the
  // even ones): the step postorders it again.
  SetUp();
  const Pattern g = grid2d(5, 4);
  ASSERT_EQ(analyse(g, 8), 0);
  skelda_state.stage() = 10;
  for (std::int32_t k = 1; k <= g.n; ++k) (*skelda_state.iperm)((*skelda_state.perm)(k) = k <= 10 ? 2 * k - 1 : 2 * (k - 10)) = k;
  EXPECT_FALSE(is_postorder(DenseFill(g.n, g.ia, g.ja, *skelda_state.iperm), g.n));
  std::int32_t st = -1;
  mmekit::skelda_symfac(g.n, g.ia, g.ja, st, 0);
  ASSERT_EQ(st, 0);
  expect_structure(g);
}

TEST_F(Symbolic, HandWorkedCasesSplitPrintoutAndAmalgamation) {
  const Pattern p = two_blocks();
  set_iparm(12, 2);
  set_iparm(3, 1);
  mmekit::CaptureOutput cap;
  ASSERT_EQ(analyse(p, 8, 3), 0);
  // Before the split: widths 5, 5, 2, 2 with 8, 7, 3, 2 rows; 5+5 columns hang on {11,12},
  // which hangs on the root {13,14}. The detected panel is the widest, 5: all in normal form,
  // sizes 40+35+6+4 = 85 of 63 entries. The split cuts the two cliques into pairs and a last
  // single column: 16+12+4+14+10+3+6+4 = 69.
  EXPECT_EQ(cap.text(),
            "   NOTE: panel size is automatically detecied: SM= 5\n"
            "   ns       = 4\n"
            "   maxcolcnt= 8\n"
            "   increase = 1.3492063\n"
            "   nsplit   = 2\n"
            "   |Sm|     = 2\n"
            "   max|Sj|  = 5\n"
            "   max_kids = 2\n"
            "   max_kids = 1\n"
            "   ntarget  = 2\n"
            "   splns    = 8\n"
            "   |A|      = 63\n"
            "   |L0|     = 63\n"
            "   |Lx|     = 69\n"
            "   Lx blk   = 5\n"
            "   |L0|/|A| = 1.0\n"
            "   |Lx|/|A| = 1.0952381\n"
            "   |Lx|/|L0|= 1.0952381\n");
  EXPECT_EQ(*skelda_state.perm, identity(14));
  EXPECT_EQ(*skelda_state.xsuper, ints({1, 3, 5, 6, 8, 10, 11, 13, 15}));
  EXPECT_EQ(skelda_state.iparm(10), 5);
  expect_structure(p);
  // Relaxed (the switch survives the reset at first use): {6..10} (7 rows, 25 entries) takes
  // {11,12} (3 rows, 5 entries) with 5 zeros (share 5/35), then {13,14} with 7 more (12/45);
  // {1..5} hangs on 11, not on the next supernode, and stays apart.
  SetUp();
  skelda_state.switches.relaxed_amalgamation = true;
  ASSERT_EQ(analyse(p, 8), 0);
  EXPECT_EQ(*skelda_state.xsuper, ints({1, 6, 15}));
  EXPECT_EQ(*skelda_state.lindx, ints({11, 12, 13}));
  expect_structure(p);
  // With the small share at 5/35 the first merge is just taken and the second (12/45) refused.
  std::int32_t nsn = 4;
  mmekit::Array1<std::int32_t> xsuper = ints({1, 6, 11, 13, 15});
  const auto colcnt = mmekit::test::array1<std::int64_t>({8, 7, 6, 5, 4, 7, 6, 5, 4, 3, 3, 2, 2, 1});
  EXPECT_EQ(mmekit::amalgamate_supernodes(colcnt, nsn, xsuper, ints({3, 3, 4, 0}), {.always_width = 0, .small_share = 5.0 / 35}), 1);
  EXPECT_EQ(xsuper, ints({1, 6, 13, 15}));
}

TEST_F(Symbolic, StatusesAndSizeOverflow) {
  const Pattern p = grid2d(3, 3);
  std::int32_t st = -1;
  mmekit::skelda_symfac(p.n, p.ia, p.ja, st, 0);
  EXPECT_EQ(st, 3);  // not ordered
  mmekit::skelda_order(p.n, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  mmekit::skelda_symfac(p.n - 1, p.ia, p.ja, st, 0);
  EXPECT_EQ(st, 4);  // another order
  mmekit::Array1<std::int32_t> ia = p.ia;
  ia(p.n + 1) -= 1;  // one entry fewer than the ordered matrix
  mmekit::skelda_symfac(p.n, ia, p.ja, st, 0);
  EXPECT_EQ(st, 4);
  EXPECT_EQ(skelda_state.stage(), 10);
  EXPECT_FALSE(skelda_state.xsuper.has_value());
  // Through the task front end the step is the one of task 20.
  std::int32_t n = p.n, verbose = 1;
  mmekit::skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.stage(), 20);
  // Sizes that do not fit an 8-byte count: the sum is -1, which the step reports as status 90.
  std::int64_t lx = 0, rows = 0, lindx = 0;
  mmekit::supernode_sizes(4, mmekit::test::array1<std::int64_t>({std::int64_t{1} << 62, 3, 2, 1}), 2, ints({1, 3, 5}), 256,
                          lx, rows, lindx);
  EXPECT_EQ(lx, -1);
  EXPECT_EQ(mmekit::sx2_size(std::int64_t{1} << 40, 0, 1), -1);  // panel form: nb(nb+1)/2 overflows
  EXPECT_EQ(mmekit::sx2_size(3, std::numeric_limits<std::int64_t>::max() - 1, 256), -1);
}

TEST_F(Symbolic, ElementStopsAndRelativeIndices) {
  ASSERT_EQ(analyse(two_blocks(), 8), 0);
  // Row 10 is not below supernode 1, column 6 is not in it, row 2 lies above column 3, and
  // there are 4 supernodes.
  for (auto [s, r, c] : {std::tuple{1, 10, 1}, {1, 6, 6}, {1, 2, 3}, {5, 1, 1}})
    expect_stop([&] { mmekit::set_sx2_factor_element(s, r, c, 1.0); }, "ERROR: set_sx2_factor_element() Element not allocated");
  // Target: columns 10..12, rows 15, 18, 20 below (6 rows). By hand: row 11 is the second from
  // the top, the fifth from the bottom.
  const std::vector<std::int32_t> list = {15, 18, 20}, rows = {11, 15, 20};
  std::vector<std::int32_t> rel(3, 0);
  mmekit::set_relative_indices(rows, 10, 12, list, rel);
  EXPECT_EQ(rel, (std::vector<std::int32_t>{5, 3, 1}));
  mmekit::set_relative_indices1(rows, 10, 12, list, rel);
  EXPECT_EQ(rel, (std::vector<std::int32_t>{2, 4, 6}));
  mmekit::set_relative_indices2(std::vector<std::int32_t>{15, 20}, std::vector<std::int32_t>{13, 15, 18, 20}, rel);
  EXPECT_EQ(rel, (std::vector<std::int32_t>{2, 4, 6}));  // the third entry left as it was
  expect_stop([&] { mmekit::set_relative_indices(std::vector<std::int32_t>{11, 16}, 10, 12, list, rel); },
              "ERROR: set_relative_indices() ridx is not determined.");
  expect_stop([&] { mmekit::set_relative_indices1(std::vector<std::int32_t>{9}, 10, 12, list, rel); },
              "ERROR: set_relative_indices1() ridx is not determined.");
  expect_stop([&] { mmekit::set_relative_indices2(std::vector<std::int32_t>{21}, list, rel); },
              "ERROR: set_relative_indices2() ridx is not determined.");
}
