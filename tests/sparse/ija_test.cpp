// Row-compressed and list forms, conversions between all kinds, dense element access, printing.
#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>

#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

#include "sparse/test_helpers.hpp"

using namespace mmekit;
using sparse_test::stop_text;

namespace {

// A random sparse symmetric matrix accumulated twice: into an upper hash matrix by adds of
// the upper positions (each hit several times, some values zero), and directly into a dense
// matrix with both triangles.
struct RandomSymmetric {
  sparse_hashm h;
  densem d;
  std::set<std::pair<int, int>> pattern;  // upper positions
  RandomSymmetric(int n, unsigned seed, bool all_diagonals) : d(n, 0.0) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> idx(1, n);
    init_sparse_hashm(h, n);
    auto add = [&](double v, int i, int j) {
      addm_sparse_hashm(v, i, j, h);
      d(i, j) += v;
      if (i != j) d(j, i) += v;
      pattern.insert({i, j});
    };
    for (int k = 0; k < 6 * n; ++k) {
      int i = idx(gen), j = idx(gen);
      if (j < i) std::swap(i, j);
      if (!all_diagonals && i == j) continue;
      const double v = (k % 7 == 0) ? 0.0 : static_cast<double>(static_cast<int>(gen() % 1000)) / 8.0 - 60.0;
      add(v, i, j);
      if (k % 3 == 0) add(0.5, i, j);
    }
    if (all_diagonals)
      for (int i = 1; i <= n; ++i) add(100.0, i, i);
  }
};

}  // namespace

TEST(IjaForm, HashToIjaToDenseMatchesDirectAccumulation) {
  for (unsigned seed : {1u, 2u, 3u}) {
    const int n = 37;
    RandomSymmetric m(n, seed, seed != 2);
    sparse_ija a;
    CONVERT_HASH_IJA(a, m.h);
    // Diagonal first in every row, nel = n + off-diagonal elements, explicit zero diagonals.
    std::int32_t off = 0;
    for (const auto& [i, j] : m.pattern) off += i != j;
    EXPECT_EQ(a.n, n);
    EXPECT_EQ(a.nel, n + off);
    EXPECT_EQ(a.ia(1), 1);
    EXPECT_EQ(a.ia(n + 1), a.nel + 1);
    for (int i = 1; i <= n; ++i) {
      EXPECT_EQ(a.ja(a.ia(i)), i);
      if (!m.pattern.count({i, i})) {
        EXPECT_EQ(a.a(a.ia(i)), 0.0);
      }
      for (int k = a.ia(i) + 1; k < a.ia(i + 1); ++k) {
        EXPECT_GT(a.ja(k), i);
        EXPECT_TRUE(m.pattern.count({i, a.ja(k)}));
      }
    }
    densem from_ija, from_hash;
    assign(from_ija, a);
    assign(from_hash, m.h);
    EXPECT_EQ(from_ija, m.d);
    EXPECT_EQ(from_hash, m.d);
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= n; ++j) ASSERT_EQ(getm_sparse_ija(i, j, a), j >= i ? m.d(i, j) : 0.0);

    // The same from a sorted matrix: the same elements in row order.
    sparse_hashm sorted = m.h;
    sort_sparse_hashm(sorted);
    sparse_ija b;
    ija_from_hash(b, sorted);
    densem from_sorted;
    assign(from_sorted, b);
    EXPECT_EQ(from_sorted, m.d);
    for (int i = 1; i <= n; ++i)
      for (int k = b.ia(i) + 2; k < b.ia(i + 1); ++k) EXPECT_LT(b.ja(k - 1), b.ja(k));

    // Full form: every off-diagonal element in both rows.
    sparse_ija f;
    CONVERT_HASH_IJA_GENERAL(f, m.h, 1);
    EXPECT_EQ(f.nel, n + 2 * off);
    for (int i = 1; i <= n; ++i) {
      EXPECT_EQ(f.ja(f.ia(i)), i);
      for (int j = 1; j <= n; ++j) {
        const bool stored = m.pattern.count({std::min(i, j), std::max(i, j)}) > 0;
        if (stored) {
          ASSERT_EQ(getm_sparse_ija(i, j, f), m.d(i, j));
        } else {
          ASSERT_EQ(getm_sparse_ija(i, j, f), 0.0);
        }
      }
    }
    sparse_ija g;
    CONVERT_HASH_IJA_GENERAL(g, m.h, 0);
    EXPECT_EQ(g.nel, a.nel);
    CONVERT_HASH_IJA_GENERAL(g, m.h);
    EXPECT_EQ(g.nel, a.nel);

    // Round trips between the hash kinds and through the dense and row forms.
    sparse_hashm full, upper;
    HASHM_UPPER_FULL(full, m.h);
    EXPECT_EQ(full.storage, 'f');
    EXPECT_EQ(full.nel, static_cast<std::int64_t>(m.pattern.size()) + off);
    HASHM_FULL_UPPER(upper, full);
    EXPECT_EQ(upper.storage, 'u');
    EXPECT_EQ(upper.nel, m.h.nel);
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= n; ++j) {
        ASSERT_EQ(getm_sparse_hashm(i, j, full), m.pattern.count({std::min(i, j), std::max(i, j)}) ? m.d(i, j) : 0.0);
        ASSERT_EQ(getm_sparse_hashm(i, j, upper), getm_sparse_hashm(i, j, m.h));
      }
    sparse_hashm back;
    hash_from_ija(back, a);
    densem from_back;
    assign(from_back, back);
    EXPECT_EQ(from_back, m.d);
    sparse_hashm from_dense;
    assign(from_dense, m.d);
    sparse_ija ija_dense;
    assign(ija_dense, m.d);
    densem d2, d3;
    assign(d2, from_dense);
    assign(d3, ija_dense);
    EXPECT_EQ(d2, m.d);
    EXPECT_EQ(d3, m.d);
  }
}

TEST(IjaForm, SmallCasesAndFailures) {
  // No diagonal at all: n explicit zeros; a zero element behind the diagonal is kept.
  sparse_hashm h;
  init_sparse_hashm(h, 3);
  addm_sparse_hashm(0.0, 1, 3, h);
  addm_sparse_hashm(2.5, 2, 3, h);
  sparse_ija a;
  CONVERT_HASH_IJA(a, h);
  EXPECT_EQ(a.nel, 5);
  EXPECT_EQ(a.ia.vec(), (std::vector<std::int32_t>{1, 3, 5, 6}));
  EXPECT_EQ(a.ja.vec(), (std::vector<std::int32_t>{1, 3, 2, 3, 3}));
  EXPECT_EQ(a.a.vec(), (std::vector<double>{0.0, 0.0, 0.0, 2.5, 0.0}));
  EXPECT_EQ(getm_sparse_ija(3, 2, a), 0.0);  // below the diagonal of the upper form
  double r = -1;
  getm_sparse_ija(2, 3, a, r);
  EXPECT_EQ(r, 2.5);

  // The row form of a dense matrix: diagonal, then the nonzero upper elements in order.
  densem d(3, 0.0);
  d(1, 3) = 4;
  d(1, 2) = 5;
  d(3, 1) = 9;  // below: not part of the upper form
  d(3, 3) = 1;
  sparse_ija b;
  assign(b, d);
  EXPECT_EQ(b.ja.vec(), (std::vector<std::int32_t>{1, 2, 3, 2, 3}));
  EXPECT_EQ(b.a.vec(), (std::vector<double>{0, 5, 4, 0, 1}));
  sparse_hashm hd;
  assign(hd, d);
  EXPECT_EQ(hd.nel, 3);  // (3,1) fell away in the add
  dense_symm s;
  assign(s, d);
  EXPECT_EQ(s.order(), 3);
  EXPECT_EQ(s(1), 0.0);
  EXPECT_EQ(s(2), 5.0);
  EXPECT_EQ(s(3), 4.0);
  EXPECT_EQ(s(6), 1.0);
  sparse_ija b2;
  assign(b2, b);
  EXPECT_EQ(b2.ja.vec(), b.ja.vec());
  reset_sparse_ija(b2);
  EXPECT_EQ(b2.n, 0);
  EXPECT_EQ(b2.nel, 0);
  EXPECT_FALSE(b2.allocated());

  sparse_hashm f;
  init_sparse_hashm(f, 3, std::nullopt, 'f');
  addm_sparse_hashm(1.0, 1, 1, f);
  EXPECT_EQ(stop_text([&] { CONVERT_HASH_IJA(a, f); }), "CONVERT_HASH_IJA: not yet implemented for full-stored hash matrix");
  EXPECT_EQ(stop_text([&] { CONVERT_HASH_IJA_GENERAL(a, f, 1); }),
            "CONVERT_HASH_IJA_GENERAL: not yet implemented for full-stored matrix");
  EXPECT_EQ(stop_text([&] { CONVERT_HASH_IJA_GENERAL(a, f); }),
            "CONVERT_HASH_IJA_GENERAL: not yet implemented for full-stored matrix");
  sparse_hashm t2;
  EXPECT_EQ(stop_text([&] { HASHM_UPPER_FULL(t2, f); }), "HASHM_UPPER_FULL: original matrix not upper");
  EXPECT_EQ(stop_text([&] { HASHM_FULL_UPPER(t2, h); }), "HASHM_FULL_UPPER: original matrix not full storage");
  // The count of elements above the 4-byte range (the field is set by hand here).
  sparse_hashm big = h;
  big.nel = 3000000000LL;
  std::string printed;
  EXPECT_EQ(stop_text([&] { CONVERT_HASH_IJA(a, big); }, &printed),
            "CONVERT_HASH_IJA_GENERAL: too many elements found in a hash matrix\n"
            "The upper limit & actual number of elements 2147483647 3000000000");
  EXPECT_EQ(printed,
            "CONVERT_HASH_IJA_GENERAL: too many elements found in a hash matrix\n"
            "The upper limit & actual number of elements 2147483647 3000000000\n");

  // Conversions in place.
  sparse_hashm self = h;
  HASHM_UPPER_FULL(self, self);
  EXPECT_EQ(getm_sparse_hashm(3, 2, self), 2.5);
  HASHM_FULL_UPPER(self, self);
  EXPECT_EQ(getm_sparse_hashm(3, 2, self), 0.0);
  EXPECT_EQ(self.nel, 2);
}

TEST(IjaForm, HashiaFillsCallerArraysAndWarns) {
  // A table in any pattern: lower elements, no diagonal convention, one row over n.
  Array2<double> t(3, 8, 0.0);
  auto put = [&](int k, double i, double j, double v) {
    t(1, k) = i;
    t(2, k) = j;
    t(3, k) = v;
  };
  put(1, 2, 1, 21);
  put(3, 1, 2, 12);
  put(4, 5, 5, 55);
  put(5, 6, 1, 61);  // row over n
  put(7, 2, 2, 22);
  put(8, 1, 7, 17);  // column over n
  Array1<std::int32_t> ia(6), ja(10);
  Array1<double> a(10);
  CaptureOutput cap;
  hashia(t.data(), 8, 5, ia, ja, a, 10);
  EXPECT_EQ(cap.text(), " 2 elements in HASH->IJA conversion had index(es) over 5\n");
  EXPECT_EQ(ia.vec(), (std::vector<std::int32_t>{1, 2, 4, 4, 4, 5}));
  EXPECT_EQ(ja(1), 2);
  EXPECT_EQ(a(1), 12.0);
  EXPECT_EQ(ja(2), 1);
  EXPECT_EQ(a(2), 21.0);
  EXPECT_EQ(ja(3), 2);
  EXPECT_EQ(a(3), 22.0);
  EXPECT_EQ(ja(4), 5);
  EXPECT_EQ(a(4), 55.0);

  // The element (n + 1, 1) alone.
  Array2<double> u(3, 4, 0.0);
  u(1, 2) = 6;
  u(2, 2) = 1;
  u(3, 2) = 1;
  u(1, 3) = 1;
  u(2, 3) = 1;
  u(3, 3) = 3;
  cap.clear();
  hashia(u.data(), 4, 5, ia, ja, a, 10);
  EXPECT_EQ(cap.text(), " 1 elements in HASH->IJA conversion had index(es) over 5\n");

  std::string printed;
  EXPECT_EQ(stop_text([&] { hashia(t.data(), 8, 5, ia, ja, a, 3); }, &printed),
            "Too small parameter m in hashia:should be > 4");
}

TEST(IjaForm, ListFormAndDenseElementAccess) {
  sparse_ll l;
  init_sparse_ll(l, 4);
  EXPECT_EQ(l.n, 4);
  EXPECT_EQ(l.heads.size(), 4);
  EXPECT_EQ(sizeof(sparse_ll_node), 16u);
  l.heads(2).col = 3;
  l.heads(2).val = 1.5f;
  l.heads(2).next = std::make_unique<sparse_ll_node>();
  l.heads(2).next->col = 4;
  l.heads(2).next->val = 2.5f;
  init_sparse_ll(l, 4);  // same order: values zero, nodes kept
  EXPECT_EQ(l.heads(2).col, 3);
  EXPECT_EQ(l.heads(2).val, 0.0f);
  ASSERT_TRUE(l.heads(2).next);
  EXPECT_EQ(l.heads(2).next->col, 4);
  EXPECT_EQ(l.heads(2).next->val, 0.0f);
  EXPECT_EQ(stop_text([&] { init_sparse_ll(l, 5); }), "reset in sparse_ll not yet implemented");

  dense_symm s(3, 0.0);
  addm_dense_symm(2.0, 1, 3, s);
  addm_dense_symm(1.0, 1, 3, s);
  setm_dense_symm(7.0, 2, 2, s);
  EXPECT_EQ(getm_dense_symm(1, 3, s), 3.0);
  EXPECT_EQ(s(3), 3.0);  // position (1 - 1) 3 - ((1 - 3) 1) / 2 - 1 + 3 = 3
  EXPECT_EQ(s(4), 7.0);  // (2 - 1) 3 - ((2 - 3) 2) / 2 - 2 + 2 = 4
  double r = 0;
  getm_dense_symm(2, 2, s, r);
  EXPECT_EQ(r, 7.0);
  EXPECT_EQ(stop_text([&] { addm_dense_symm(1.0, 3, 1, s); }), "Warning !!! this is an upper-triangular matrix");
  EXPECT_EQ(stop_text([&] { setm_dense_symm(1.0, 2, 1, s); }), "Warning !!! this is an upper-triangular matrix");
  EXPECT_EQ(stop_text([&] { getm_dense_symm(3, 2, s); }), "Warning !!! this is an upper-triangular matrix");

  densem d(2, 0.0);
  addm_densem(1.5, 2, 1, d);
  addm_densem(1.0, 2, 1, d);
  EXPECT_EQ(getm_densem(2, 1, d), 2.5);
  EXPECT_EQ(getm_densem(1, 2, d), 0.0);
  EXPECT_EQ(stop_text([&] { addm_densem(1.0, 3, 1, d); }), "addm_densem: index out of range 3 1");
}

TEST(IjaForm, Printing) {
  sparse_hashm h;
  init_sparse_hashm(h, 2);
  addm_sparse_hashm(1.5, 1, 2, h);
  addm_sparse_hashm(-2.0, 2, 2, h);
  CaptureOutput cap;
  printm_sparse_hashm(h);
  EXPECT_EQ(cap.text(), "      0.0000      1.5000\n      1.5000     -2.0000\n");
  cap.clear();
  printm_sparse_hashm(h, "internal");
  // Slot order: the slots of (1,2) and (2,2) in a table of 8192 (from the mixing walk).
  const double k12[2] = {1, 2}, k22[2] = {2, 2};
  std::int64_t c = 0;
  const auto s12 = hash_pair(k12, h.x.data(), 8192, 3, 0, c), s22 = hash_pair(k22, h.x.data(), 8192, 3, 0, c);
  EXPECT_EQ(cap.text(), s12 < s22 ? " 1 2 1.5\n 2 2 -2.0\n" : " 2 2 -2.0\n 1 2 1.5\n");

  sparse_ija a;
  CONVERT_HASH_IJA(a, h);
  cap.clear();
  printm_sparse_ija(a, "int");
  EXPECT_EQ(cap.text(), "       1       1      0.0000\n       1       2      1.5000\n       2       2     -2.0000\n");
  cap.clear();
  printm_sparse_ija(a);
  EXPECT_EQ(cap.text(), "      0.0000      1.5000\n      1.5000     -2.0000\n");

  // 21 columns: 20 values to a line.
  sparse_hashm w;
  init_sparse_hashm(w, 21);
  addm_sparse_hashm(1.0, 1, 21, w);
  cap.clear();
  printm_sparse_hashm(w);
  const std::string text = cap.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 42);
  std::string first_row;
  for (int j = 0; j < 20; ++j) first_row += "      0.0000";
  first_row += "\n      1.0000\n";
  EXPECT_EQ(text.substr(0, first_row.size()), first_row);
}
