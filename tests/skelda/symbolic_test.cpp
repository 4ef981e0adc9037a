// Symbolic factorisation: the structures against dense symbolic elimination, the storage map
// against an enumeration of the storage, panels, splits, statuses, the printout, elements and
// relative indices, and relaxed amalgamation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "common/symbolic_ref.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/output.hpp"
#include "patterns.hpp"

using namespace skelda_test;
using mmekit::Array1;
using mmekit::set_iparm;
using mmekit::skelda_state;
using mmekit::Sx2Layout;
using mmekit::test::DenseFill;
using mmekit::test::expect_stop;

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

Pattern pattern_of(const mmekit::densem& d) {
  Edges e;
  for (std::int32_t j = 1; j <= d.order(); ++j)
    for (std::int32_t i = 1; i < j; ++i)
      if (d(i, j) != 0.0) e.push_back({i - 1, j - 1});
  return from_edges(static_cast<std::int32_t>(d.order()), e);
}

// Two cliques 1..5 and 6..10 under the separator 11..13 (the second clique reaches 11 and 12
// only), and 14 joined to 13: supernodes {1..5}, {6..10}, {11,12}, {13,14}, no fill.
Pattern two_blocks() {
  Edges e;
  for (std::int32_t i = 0; i < 5; ++i) {
    for (std::int32_t j = i + 1; j < 5; ++j) e.push_back({i, j});
    for (std::int32_t s : {10, 11, 12}) e.push_back({i, s});
  }
  for (std::int32_t i = 5; i < 10; ++i) {
    for (std::int32_t j = i + 1; j < 10; ++j) e.push_back({i, j});
    for (std::int32_t s : {10, 11}) e.push_back({i, s});
  }
  e.insert(e.end(), {{10, 11}, {10, 12}, {11, 12}, {12, 13}});
  return from_edges(14, e);
}

// Storage of a supernode written out the way the layout is defined: normal form D column by
// column then B column by column; panel form block column by block column, each column of a
// block column running through block rows J..nb. Returns the offset of local element (r, c)
// (rows beyond w are list rows w+1..w+m), -1 where nothing is stored.
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

// The state's structures against dense symbolic elimination under its final permutation.
// exact: every supernode holds exactly nested columns (else the stored pattern need only hold
// the dense one); maximal: no two neighbouring supernodes could have been one.
void expect_dense_structure(const Pattern& p, bool exact, bool maximal) {
  const auto& S = skelda_state;
  ASSERT_EQ(S.iparm(1), 20);
  ASSERT_TRUE(is_permutation_pair(*S.perm, *S.iperm, p.n));
  const DenseFill fill(p.n, p.ia, p.ja, *S.iperm);
  const Sx2Layout L = mmekit::skelda_layout();
  const std::int64_t pnl = S.iparm(10);
  ASSERT_EQ(L.nsn, S.iparm(43));
  ASSERT_EQ((*L.xsuper)(1), 1);
  ASSERT_EQ((*L.xsuper)(L.nsn + 1), p.n + 1);
  EXPECT_EQ(S.iparm(54), fill.total());
  std::int64_t rows_sum = 0, widest = 0;
  for (std::int32_t s = 1; s <= L.nsn; ++s) {
    const std::int32_t c = (*L.xsuper)(s), d = (*L.xsuper)(s + 1) - 1;
    ASSERT_LE(c, d);
    const std::int64_t w = d - c + 1, m = L.rows_below(s);
    const std::vector<std::int32_t> list((*L.lindx).begin() + ((*L.xlindx)(s) - 1),
                                         (*L.lindx).begin() + ((*L.xlindx)(s + 1) - 1));
    ASSERT_TRUE(std::is_sorted(list.begin(), list.end()) && (list.empty() || list.front() > d)) << s;
    for (std::int32_t k = c; k <= d; ++k) {
      EXPECT_EQ((*L.snode)(k), s);
      for (std::int32_t r = k; r <= p.n; ++r) {
        const bool stored = r <= d || std::binary_search(list.begin(), list.end(), r);
        if (exact || fill(r, k)) {
          EXPECT_EQ(stored, fill(r, k)) << "column " << k << " row " << r;
        }
      }
    }
    if (exact) {
      EXPECT_EQ(list, fill.rows_after(c, d));
    }
    const std::int32_t up = fill.parent(d);
    EXPECT_EQ((*S.snparent)(s), up == 0 ? 0 : (*L.snode)(up)) << s;
    if (maximal && s < L.nsn) {
      EXPECT_FALSE(fill.parent(d) == d + 1 && fill.count(d) == fill.count(d + 1) + 1) << s;
    }
    const std::int64_t nb = (w + pnl - 1) / pnl;
    const std::int64_t size = (m == 0 && w > pnl) ? nb * (nb + 1) / 2 * pnl * pnl : (w + m) * w;
    EXPECT_EQ((*L.xlnz)(s + 1) - (*L.xlnz)(s), size) << s;
    rows_sum += w + m;
    widest = std::max(widest, w + m);
  }
  EXPECT_EQ(S.iparm(44), (*L.xlnz)(L.nsn + 1) - 1);
  EXPECT_EQ(S.lnz->size(), S.iparm(44));
  EXPECT_EQ(S.iparm(45), rows_sum);
  EXPECT_EQ(S.iparm(46), (*L.xlindx)(L.nsn + 1) - 1);
  EXPECT_EQ(S.iparm(47), widest);
  EXPECT_EQ(S.cflag->size(), p.n);
}

// Does the numbering of the elimination tree put every subtree in the range of numbers that
// ends at its root?
bool is_postorder(const DenseFill& fill, std::int32_t n) {
  std::vector<std::int32_t> size(static_cast<std::size_t>(n) + 1, 1);
  for (std::int32_t v = 1; v <= n; ++v)
    if (fill.parent(v) != 0) size[static_cast<std::size_t>(fill.parent(v))] += size[static_cast<std::size_t>(v)];
  for (std::int32_t v = 1; v <= n; ++v)
    for (std::int32_t u = v - size[static_cast<std::size_t>(v)] + 1; u < v; ++u) {
      std::int32_t a = u;
      while (a != 0 && a < v) a = fill.parent(a);
      if (a != v) return false;
    }
  return true;
}

// What left-looking factorisation relies on: the rows of supernode K from the first one in a
// target J on all lie in J's columns or row list. Checked with set_relative_indices1, which
// stops on a row it cannot find; the index it gives must name the row.
void expect_rows_in_targets() {
  const Sx2Layout L = mmekit::skelda_layout();
  auto list = [&](std::int32_t s) {
    return std::span<const std::int32_t>(L.lindx->data() + ((*L.xlindx)(s) - 1), static_cast<std::size_t>(L.rows_below(s)));
  };
  for (std::int32_t k = 1; k <= L.nsn; ++k) {
    const std::span<const std::int32_t> rows = list(k);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::int32_t j = (*L.snode)(rows[i]);
      if (i > 0 && (*L.snode)(rows[i - 1]) == j) continue;
      const std::span<const std::int32_t> mine = rows.subspan(i);
      const auto first = static_cast<std::int32_t>(L.first(j)), last = static_cast<std::int32_t>(L.first(j) + L.width(j) - 1);
      std::vector<std::int32_t> front, got(mine.size());
      for (std::int32_t r = first; r <= last; ++r) front.push_back(r);
      front.insert(front.end(), list(j).begin(), list(j).end());
      mmekit::set_relative_indices1(mine, first, last, list(j), got);
      for (std::size_t x = 0; x < mine.size(); ++x) ASSERT_EQ(front[static_cast<std::size_t>(got[x] - 1)], mine[x]);
    }
  }
}

}  // namespace

TEST_F(Symbolic, StructuresAgainstDenseElimination) {
  const std::vector<std::pair<const char*, Pattern>> cases = {
      {"random", pattern_of(mmekit::test::random_spd(60, 0.06, 7))},
      {"grid", grid2d(7, 6)},
      {"mme", mme(100, 3)},
      {"diagonal", from_edges(9, {})},
      {"dense", dense(12)},
      {"forest", disconnected()}};
  for (const auto& [name, p] : cases)
    for (std::int32_t method : {1, 8}) {
      SCOPED_TRACE(std::string(name) + " method " + std::to_string(method));
      SetUp();
      ASSERT_EQ(analyse(p, method), 0);
      // Maximal exactly nested supernodes: one per column of the diagonal matrix (each a
      // root of size 1), one for the dense matrix.
      expect_dense_structure(p, true, true);
    }
  // A caller's permutation reaches the step unpostordered (odd grid nodes first, then the
  // even ones): the step postorders it again.
  SetUp();
  const Pattern g = grid2d(5, 4);
  ASSERT_EQ(analyse(g, 8), 0);
  skelda_state.stage() = 10;
  for (std::int32_t k = 1; k <= g.n; ++k) {
    const std::int32_t v = k <= 10 ? 2 * k - 1 : 2 * (k - 10);
    (*skelda_state.perm)(k) = v;
    (*skelda_state.iperm)(v) = k;
  }
  EXPECT_FALSE(is_postorder(DenseFill(g.n, g.ia, g.ja, *skelda_state.iperm), g.n));
  std::int32_t st = -1;
  mmekit::skelda_symfac(g.n, g.ia, g.ja, st, 0);
  ASSERT_EQ(st, 0);
  expect_dense_structure(g, true, true);
  EXPECT_TRUE(is_postorder(DenseFill(g.n, g.ia, g.ja, *skelda_state.iperm), g.n));
}

TEST_F(Symbolic, HandWorkedCaseWithSplitAndPrintout) {
  const Pattern p = two_blocks();
  set_iparm(12, 2);
  mmekit::CaptureOutput cap;
  ASSERT_EQ(analyse(p, 8, 3), 0);
  // Before the split: widths 5, 5, 2, 2 with 8, 7, 3, 2 rows; 5+5 columns hang on {11,12},
  // which hangs on the root {13,14}. Sizes 40+35+6+4 = 85 of 63 entries. The split cuts the
  // two cliques into pairs and a last single column: 16+12+4+14+10+3+6+4 = 69.
  EXPECT_EQ(cap.text(),
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
            "   Lx blk   = 256\n"
            "   |L0|/|A| = 1.0\n"
            "   |Lx|/|A| = 1.0952381\n"
            "   |Lx|/|L0|= 1.0952381\n");
  const auto& S = skelda_state;
  EXPECT_EQ(*S.perm, identity(14));
  EXPECT_EQ(*S.xsuper, mmekit::test::ints({1, 3, 5, 6, 8, 10, 11, 13, 15}));
  EXPECT_EQ(*S.snparent, mmekit::test::ints({2, 3, 7, 5, 6, 7, 8, 0}));
  EXPECT_EQ(*S.xlindx, mmekit::test::array1<std::int64_t>({1, 7, 11, 14, 19, 22, 24, 25, 25}));
  EXPECT_EQ(*S.lindx, mmekit::test::ints({3, 4, 5, 11, 12, 13, 5, 11, 12, 13, 11, 12, 13,  //
                                          8, 9, 10, 11, 12, 10, 11, 12, 11, 12, 13}));
  EXPECT_EQ(*S.xlnz, mmekit::test::array1<std::int64_t>({1, 17, 29, 33, 47, 57, 60, 66, 70}));
  for (auto [k, v] : {std::pair{43, 8}, {44, 69}, {45, 38}, {46, 24}, {47, 8}, {54, 63}})
    EXPECT_EQ(S.iparm(k), v) << k;
  expect_dense_structure(p, true, false);
  // Through the task front end the step is the one of task 20.
  SetUp();
  std::int32_t n = p.n, st = -1, verbose = 1;
  set_iparm(13, 8);
  mmekit::skeldatask(20, {.neq = &n, .ia = &p.ia, .ja = &p.ja, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 0);
  EXPECT_EQ(skelda_state.iparm(43), 4);
}

TEST_F(Symbolic, PanelsDetectionAndStorageMap) {
  // The dense order-1000 root with panels of 256: 4 block columns, 10 blocks of 256 x 256.
  {
    const Pattern big = dense(1000);
    ASSERT_EQ(analyse(big, 8), 0);
    EXPECT_EQ(skelda_state.iparm(43), 1);
    EXPECT_EQ(skelda_state.iparm(44), 655360);
    EXPECT_TRUE(mmekit::skelda_layout().panel_form(1));
  }
  // Root width p is normal form, p+1 panel form with two block columns.
  for (auto [n, size, panel] : {std::tuple{8, 64, false}, {9, 3 * 64, true}}) {
    SetUp();
    set_iparm(10, 8);
    ASSERT_EQ(analyse(dense(n), 8), 0);
    EXPECT_EQ(skelda_state.iparm(44), size);
    EXPECT_EQ(mmekit::skelda_layout().panel_form(1), panel);
  }
  // Every position of a padded panel form (width 10, panels of 4) and of a normal form with
  // rows below, through the layout of the state and through the element setter.
  {
    SetUp();
    set_iparm(10, 4);
    const Pattern p = dense(10);
    ASSERT_EQ(analyse(p, 8), 0);
    std::int64_t size = 0;
    const std::vector<std::int64_t> at = enumerate_storage(10, 0, 4, size);
    EXPECT_EQ(size, 6 * 16);
    EXPECT_EQ(skelda_state.iparm(44), size);
    const Sx2Layout L = mmekit::skelda_layout();
    for (std::int32_t c = 1; c <= 10; ++c)
      for (std::int32_t r = c; r <= 10; ++r) {
        ASSERT_EQ(mmekit::sx2_element_position(L, 1, r, c), 1 + at[static_cast<std::size_t>((c - 1) * 10 + r - 1)]);
        mmekit::set_sx2_factor_element(1, r, c, 100.0 * r + c);
      }
    for (std::int32_t c = 1; c <= 10; ++c)
      EXPECT_EQ((*skelda_state.lnz)(1 + at[static_cast<std::size_t>((c - 1) * 10 + 9)]), 1000.0 + c);
  }
  {
    SetUp();
    const Pattern p = two_blocks();  // supernode 1: columns 1..5, rows 11, 12, 13 below
    ASSERT_EQ(analyse(p, 8), 0);
    std::int64_t size = 0;
    const std::vector<std::int64_t> at = enumerate_storage(5, 3, 256, size);
    const Sx2Layout L = mmekit::skelda_layout();
    EXPECT_EQ((*L.xlnz)(2) - 1, size);
    const std::int32_t rows[] = {1, 2, 3, 4, 5, 11, 12, 13};
    for (std::int32_t c = 1; c <= 5; ++c)
      for (std::int32_t k = c; k <= 8; ++k)
        EXPECT_EQ(mmekit::sx2_element_position(L, 1, rows[k - 1], c), 1 + at[static_cast<std::size_t>((c - 1) * 8 + k - 1)]);
  }
  // Detection: the panel becomes the widest supernode (at least 1), so every supernode is
  // normal form, and the printout says so.
  for (auto [p, sm] : {std::pair{two_blocks(), 5}, {from_edges(3, {}), 1}}) {
    SetUp();
    set_iparm(10, 2);
    set_iparm(3, 1);
    mmekit::CaptureOutput cap;
    ASSERT_EQ(analyse(p, 8, 3), 0);
    EXPECT_EQ(cap.text().substr(0, cap.text().find('\n') + 1),
              "   NOTE: panel size is automatically detecied: SM= " + std::to_string(sm) + "\n");
    EXPECT_EQ(skelda_state.iparm(10), sm);
    const Sx2Layout L = mmekit::skelda_layout();
    for (std::int32_t s = 1; s <= L.nsn; ++s) EXPECT_FALSE(L.panel_form(s));
  }
  // Two roots, both in panel form: two cliques of 5 with panels of 2 (3 block columns, 6
  // blocks of 2 x 2 each).
  SetUp();
  Edges e;
  for (std::int32_t i = 0; i < 5; ++i)
    for (std::int32_t j = i + 1; j < 5; ++j) e.insert(e.end(), {{i, j}, {i + 5, j + 5}});
  set_iparm(10, 2);
  ASSERT_EQ(analyse(from_edges(10, e), 8), 0);
  EXPECT_EQ(*skelda_state.snparent, mmekit::test::ints({0, 0}));
  EXPECT_EQ(*skelda_state.xlnz, mmekit::test::array1<std::int64_t>({1, 25, 49}));
}

TEST_F(Symbolic, StatusesAndSizeOverflow) {
  const Pattern p = grid2d(3, 3);
  std::int32_t st = -1;
  mmekit::skelda_symfac(p.n, p.ia, p.ja, st, 0);
  EXPECT_EQ(st, 3);  // not ordered
  mmekit::skelda_order(p.n, p.ia, p.ja, 1, st, nullptr, nullptr, 0);
  mmekit::skelda_symfac(p.n - 1, p.ia, p.ja, st, 0);
  EXPECT_EQ(st, 4);  // another order
  Array1<std::int32_t> ia = p.ia, ja = p.ja;
  ia(p.n + 1) -= 1;  // one entry fewer than the ordered matrix
  mmekit::skelda_symfac(p.n, ia, ja, st, 0);
  EXPECT_EQ(st, 4);
  EXPECT_EQ(skelda_state.stage(), 10);
  EXPECT_FALSE(skelda_state.xsuper.has_value());
  // Sizes that do not fit an 8-byte count: the sum is -1, which the step reports as status 90.
  std::int64_t lx = 0, rows = 0, lindx = 0;
  const Array1<std::int64_t> huge = mmekit::test::array1<std::int64_t>({std::int64_t{1} << 62, 3, 2, 1});
  mmekit::supernode_sizes(4, huge, 2, mmekit::test::ints({1, 3, 5}), 256, lx, rows, lindx);
  EXPECT_EQ(lx, -1);
  mmekit::supernode_sizes(4, mmekit::test::array1<std::int64_t>({4, 3, 2, 1}), 2, mmekit::test::ints({1, 3, 5}), 256,
                          lx, rows, lindx);
  EXPECT_EQ(lx, 4 * 2 + 2 * 2);
  EXPECT_EQ(rows, 6);
  EXPECT_EQ(lindx, 2);
  EXPECT_EQ(mmekit::sx2_size(std::int64_t{1} << 40, 0, 1), -1);  // panel form: nb(nb+1)/2 overflows
  EXPECT_EQ(mmekit::sx2_size(3, std::numeric_limits<std::int64_t>::max() - 1, 256), -1);
}

TEST_F(Symbolic, ElementsAndRelativeIndices) {
  const Pattern p = two_blocks();
  ASSERT_EQ(analyse(p, 8), 0);
  const std::string lost = "ERROR: set_sx2_factor_element() Element not allocated";
  // Row 10 is not below supernode 1, column 6 is not in it, row 2 lies above column 3.
  for (auto [s, r, c] : {std::tuple{1, 10, 1}, {1, 6, 6}, {1, 2, 3}, {5, 1, 1}})
    expect_stop([&] { mmekit::set_sx2_factor_element(s, r, c, 1.0); }, lost);
  // A panel-form root holds nothing below its block.
  SetUp();
  set_iparm(10, 2);
  ASSERT_EQ(analyse(dense(5), 8), 0);
  expect_stop([] { mmekit::set_sx2_factor_element(1, 6, 1, 1.0); }, lost);

  // Target: columns 10..12, rows 15, 18, 20 below (6 rows). By hand: row 11 is the second from
  // the top, the fifth from the bottom.
  const std::vector<std::int32_t> list = {15, 18, 20}, rows = {11, 15, 20};
  std::vector<std::int32_t> rel(3, 0);
  mmekit::set_relative_indices(rows, 10, 12, list, rel);
  EXPECT_EQ(rel, (std::vector<std::int32_t>{5, 3, 1}));
  mmekit::set_relative_indices1(rows, 10, 12, list, rel);
  EXPECT_EQ(rel, (std::vector<std::int32_t>{2, 4, 6}));
  mmekit::set_relative_indices2(std::vector<std::int32_t>{15, 20}, std::vector<std::int32_t>{13, 15, 18, 20}, rel);
  EXPECT_EQ(rel[0], 2);
  EXPECT_EQ(rel[1], 4);
  const std::vector<std::int32_t> stray = {11, 16};
  expect_stop([&] { mmekit::set_relative_indices(stray, 10, 12, list, rel); },
              "ERROR: set_relative_indices() ridx is not determined.");
  expect_stop([&] { mmekit::set_relative_indices1(std::vector<std::int32_t>{9}, 10, 12, list, rel); },
              "ERROR: set_relative_indices1() ridx is not determined.");
  expect_stop([&] { mmekit::set_relative_indices2(std::vector<std::int32_t>{21}, list, rel); },
              "ERROR: set_relative_indices2() ridx is not determined.");

  // On a factor (split into pieces of 3): every supernode's rows from each target on are
  // found in the target, and the index from the top names the same row.
  SetUp();
  set_iparm(12, 3);
  ASSERT_EQ(analyse(mme(100, 5), 1), 0);
  expect_rows_in_targets();
}

TEST_F(Symbolic, RelaxedAmalgamationKeepsTheFillInFewerSupernodes) {
  const std::vector<Pattern> cases = {mme(100, 3), grid2d(8, 7), pattern_of(mmekit::test::random_spd(70, 0.05, 11))};
  for (const Pattern& p : cases) {
    SetUp();
    ASSERT_EQ(analyse(p, 1), 0);
    const std::int64_t exact_nsn = skelda_state.iparm(43), exact_l0 = skelda_state.iparm(54);
    SetUp();
    skelda_state.switches.relaxed_amalgamation = true;
    mmekit::skelda_init();  // the reset keeps the switch
    ASSERT_TRUE(skelda_state.switches.relaxed_amalgamation);
    ASSERT_EQ(analyse(p, 1), 0);
    expect_dense_structure(p, false, false);
    expect_rows_in_targets();
    EXPECT_LT(skelda_state.iparm(43), exact_nsn);
    EXPECT_EQ(skelda_state.iparm(54), exact_l0);
    EXPECT_GE(skelda_state.iparm(44), exact_l0);
    // Cut into pieces of 3, the pieces of merged supernodes keep the rows of the whole.
    mmekit::skelda_init();
    set_iparm(12, 3);
    ASSERT_EQ(analyse(p, 1), 0);
    expect_dense_structure(p, false, false);
    expect_rows_in_targets();
  }
  // By hand: {6..10} (7 rows, 25 entries) takes {11,12} (3 rows, 5 entries) with 5 zeros
  // (share 5/35), then {13,14} with 7 more (12/45); {1..5} hangs on 11, not on the next
  // supernode, and stays apart.
  SetUp();
  skelda_state.switches.relaxed_amalgamation = true;
  ASSERT_EQ(analyse(two_blocks(), 8), 0);
  EXPECT_EQ(*skelda_state.xsuper, mmekit::test::ints({1, 6, 15}));
  EXPECT_EQ(*skelda_state.snparent, mmekit::test::ints({2, 0}));
  EXPECT_EQ(*skelda_state.lindx, mmekit::test::ints({11, 12, 13}));
  EXPECT_EQ(*skelda_state.xlnz, mmekit::test::array1<std::int64_t>({1, 41, 122}));
  EXPECT_EQ(skelda_state.iparm(47), 9);
  EXPECT_EQ(skelda_state.iparm(54), 63);
}
