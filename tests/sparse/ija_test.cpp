// Row-compressed and list forms, conversions between all kinds, dense element access, printing,
// and damaged row forms at every routine that walks one.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/forms.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/sparse/solve.hpp"
#include "mmekit/support/output.hpp"
#include "sparse/test_helpers.hpp"

using namespace mmekit;
using mmekit::test::expect_stop;
using sparse_test::hash_with;
using sparse_test::RandomSymmetric;
using test::ints;
using test::stop_text;

namespace {

// Any of the kinds written out as a dense matrix.
template <class M>
densem dense_of(const M& m) {
  densem d;
  assign(d, m);
  return d;
}

}  // namespace

TEST(IjaForm, HashToIjaToDenseMatchesDirectAccumulation) {
  for (int step : {2, 0}) {  // every other row with a diagonal, then none at all
    const int n = 37;
    const RandomSymmetric m(n, 1 + step, step);
    const sparse_ija a = m.ija();
    // Diagonal first in every row (an explicit zero where none was added), nel = n + the
    // off-diagonal elements.
    std::int32_t off = 0;
    for (const auto& [i, j] : m.pattern) off += i != j;
    EXPECT_EQ(std::make_tuple(a.n, a.nel, a.ia(1), a.ia(n + 1)), std::make_tuple(n, n + off, 1, n + off + 1));
    for (int i = 1; i <= n; ++i) {
      EXPECT_EQ(a.ja(a.ia(i)), i);
      EXPECT_TRUE(m.pattern.count({i, i}) || a.a(a.ia(i)) == 0.0) << i;
      for (int k = a.ia(i) + 1; k < a.ia(i + 1); ++k) EXPECT_TRUE(a.ja(k) > i && m.pattern.count({i, a.ja(k)})) << i;
    }
    EXPECT_EQ(dense_of(a), m.d);
    EXPECT_EQ(dense_of(m.h), m.d);
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= n; ++j) ASSERT_EQ(getm_sparse_ija(i, j, a), j >= i ? m.d(i, j) : 0.0);

    // From a sorted matrix: the same elements, each row in column order.
    sparse_hashm sorted = m.h;
    sort_sparse_hashm(sorted);
    sparse_ija b;
    ija_from_hash(b, sorted);
    EXPECT_EQ(dense_of(b), m.d);
    for (int i = 1; i <= n; ++i)
      for (int k = b.ia(i) + 2; k < b.ia(i + 1); ++k) EXPECT_LT(b.ja(k - 1), b.ja(k));

    // Full form: every off-diagonal element in both rows; mode 0 or none is the upper form.
    const sparse_ija f = m.ija(true);
    EXPECT_EQ(f.nel, n + 2 * off);
    for (int i = 1; i <= n; ++i) {
      EXPECT_EQ(f.ja(f.ia(i)), i);
      for (int j = 1; j <= n; ++j) ASSERT_EQ(getm_sparse_ija(i, j, f), m.d(i, j));
    }

    // Round trips between the hash kinds and through the dense and row forms.
    sparse_hashm full, upper;
    HASHM_UPPER_FULL(full, m.h);
    HASHM_FULL_UPPER(upper, full);
    EXPECT_EQ(std::make_tuple(full.storage, full.nel, upper.storage, upper.nel),
              std::make_tuple('f', static_cast<std::int64_t>(m.pattern.size()) + off, 'u', m.h.nel));
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= n; ++j) {
        ASSERT_EQ(getm_sparse_hashm(i, j, full), m.d(i, j));
        ASSERT_EQ(getm_sparse_hashm(i, j, upper), getm_sparse_hashm(i, j, m.h));
      }
    sparse_hashm back, from_dense;
    sparse_ija ija_dense;
    hash_from_ija(back, a);
    assign(from_dense, m.d);
    assign(ija_dense, m.d);
    EXPECT_EQ(dense_of(back), m.d);
    EXPECT_EQ(dense_of(from_dense), m.d);
    EXPECT_EQ(dense_of(ija_dense), m.d);
  }
}

TEST(IjaForm, SmallCasesAndFailures) {
  // No diagonal at all: n explicit zeros; a zero element behind the diagonal is kept.
  const sparse_hashm h = hash_with(3, {{1, 3, 0.0}, {2, 3, 2.5}});
  sparse_ija a;
  CONVERT_HASH_IJA(a, h);
  EXPECT_EQ(std::make_tuple(a.ia.vec(), a.ja.vec(), a.a.vec()),
            std::make_tuple(std::vector<std::int32_t>{1, 3, 5, 6}, std::vector<std::int32_t>{1, 3, 2, 3, 3}, std::vector<double>{0, 0, 0, 2.5, 0}));
  double r = -1;
  getm_sparse_ija(2, 3, a, r);
  EXPECT_EQ(r, 2.5);

  // The row form of a dense matrix: diagonal, then the nonzero upper elements in order; the 9
  // below the diagonal is not part of the upper forms.
  const densem d = dense_test::from_rows({{0, 5, 4}, {0, 0, 0}, {9, 0, 1}});
  sparse_ija b;
  assign(b, d);
  EXPECT_EQ(b.ja.vec(), (std::vector<std::int32_t>{1, 2, 3, 2, 3}));
  EXPECT_EQ(b.a.vec(), (std::vector<double>{0, 5, 4, 0, 1}));
  sparse_hashm hd;
  assign(hd, d);
  EXPECT_EQ(hd.nel, 3);
  dense_symm s;
  assign(s, d);
  EXPECT_EQ(std::vector<double>(s.begin(), s.end()), (std::vector<double>{0, 5, 4, 0, 0, 1}));
  sparse_ija b2;
  assign(b2, b);
  EXPECT_EQ(b2.ja.vec(), b.ja.vec());
  reset_sparse_ija(b2);
  EXPECT_TRUE(b2.n == 0 && b2.nel == 0 && !b2.allocated());

  // Conversions in place.
  sparse_hashm self = h;
  HASHM_UPPER_FULL(self, self);
  EXPECT_EQ(getm_sparse_hashm(3, 2, self), 2.5);
  HASHM_FULL_UPPER(self, self);
  EXPECT_EQ(std::make_tuple(getm_sparse_hashm(3, 2, self), self.nel), std::make_tuple(0.0, std::int64_t{2}));

  sparse_hashm f = hash_with(3, {{1, 1, 1.0}}, 'f'), t2;
  // The count of elements above the 4-byte range (the field is set by hand here).
  sparse_hashm big = h;
  big.nel = 3000000000LL;
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { CONVERT_HASH_IJA(a, f); }, "CONVERT_HASH_IJA: not yet implemented for full-stored hash matrix"},
      {[&] { CONVERT_HASH_IJA_GENERAL(a, f, 1); }, "CONVERT_HASH_IJA_GENERAL: not yet implemented for full-stored matrix"},
      {[&] { HASHM_UPPER_FULL(t2, f); }, "HASHM_UPPER_FULL: original matrix not upper"},
      {[&] { HASHM_FULL_UPPER(t2, h); }, "HASHM_FULL_UPPER: original matrix not full storage"},
      {[&] { CONVERT_HASH_IJA(a, big); },
       "CONVERT_HASH_IJA_GENERAL: too many elements found in a hash matrix\n"
       "The upper limit & actual number of elements 2147483647 3000000000"}};
  for (const auto& [call, message] : stops) expect_stop(call, message);
}

TEST(IjaForm, HashiaFillsCallerArraysAndWarns) {
  // A table in any pattern, (row, column, value) in each slot, empty slots among them: lower
  // elements, no diagonal convention, a row (6, 1) and a column (1, 7) over n.
  Array2<double> t(3, 8);
  t.vec() = {2, 1, 21, 0, 0, 0, 1, 2, 12, 5, 5, 55, 6, 1, 61, 0, 0, 0, 2, 2, 22, 1, 7, 17};
  Array1<std::int32_t> ia(6), ja(10);
  Array1<double> a(10);
  CaptureOutput cap;
  hashia(t.data(), 8, 5, ia, ja, a, 10);
  EXPECT_EQ(cap.text(), " 2 elements in HASH->IJA conversion had index(es) over 5\n");
  EXPECT_EQ(ia.vec(), (std::vector<std::int32_t>{1, 2, 4, 4, 4, 5}));
  EXPECT_EQ(std::vector<std::int32_t>(ja.begin(), ja.begin() + 4), (std::vector<std::int32_t>{2, 1, 2, 5}));
  EXPECT_EQ(std::vector<double>(a.begin(), a.begin() + 4), (std::vector<double>{12, 21, 22, 55}));
  expect_stop([&] { hashia(t.data(), 8, 5, ia, ja, a, 3); }, "Too small parameter m in hashia:should be > 4");
}

TEST(IjaForm, ListFormAndDenseElementAccess) {
  sparse_ll l;
  init_sparse_ll(l, 4);
  EXPECT_EQ(l.heads.size(), 4);
  l.heads(2).col = 3;
  l.heads(2).val = 1.5f;
  l.heads(2).next = std::make_unique<sparse_ll_node>();
  l.heads(2).next->col = 4;
  l.heads(2).next->val = 2.5f;
  init_sparse_ll(l, 4);  // same order: values zero, nodes kept
  ASSERT_TRUE(l.heads(2).next);
  EXPECT_EQ(std::make_tuple(l.heads(2).col, l.heads(2).val, l.heads(2).next->col, l.heads(2).next->val),
            std::make_tuple(3, 0.0f, 4, 0.0f));

  dense_symm s(3, 0.0);
  addm_dense_symm(2.0, 1, 3, s);
  addm_dense_symm(1.0, 1, 3, s);
  setm_dense_symm(7.0, 2, 2, s);
  double r = 0;
  getm_dense_symm(2, 2, s, r);
  EXPECT_EQ(std::make_tuple(getm_dense_symm(1, 3, s), s(3), s(4), r), std::make_tuple(3.0, 3.0, 7.0, 7.0));
  densem d(2, 0.0);
  addm_densem(1.5, 2, 1, d);
  addm_densem(1.0, 2, 1, d);
  EXPECT_EQ(std::make_tuple(getm_densem(2, 1, d), getm_densem(1, 2, d)), std::make_tuple(2.5, 0.0));

  const std::string lower = "Warning !!! this is an upper-triangular matrix";
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { init_sparse_ll(l, 5); }, "reset in sparse_ll not yet implemented"},
      {[&] { addm_dense_symm(1.0, 3, 1, s); }, lower},
      {[&] { addm_densem(1.0, 3, 1, d); }, "addm_densem: index out of range 3 1"}};
  for (const auto& [call, message] : stops) expect_stop(call, message);
}

TEST(IjaForm, Printing) {
  const sparse_hashm h = hash_with(2, {{1, 2, 1.5}, {1, 1, -2.0}});
  CaptureOutput cap;
  printm_sparse_hashm(h);
  EXPECT_EQ(cap.text(), "     -2.0000      1.5000\n      1.5000      0.0000\n");
  // Slot order: (1, 1) is in slot 978, (1, 2) in slot 6435 of 8192.
  cap.clear();
  printm_sparse_hashm(h, "internal");
  EXPECT_EQ(cap.text(), " 1 1 -2.0\n 1 2 1.5\n");
  sparse_ija a;
  CONVERT_HASH_IJA(a, h);
  cap.clear();
  printm_sparse_ija(a, "int");
  EXPECT_EQ(cap.text(), "       1       1     -2.0000\n       1       2      1.5000\n       2       2      0.0000\n");
}

// A damaged row form: a stop that names the routine and the fault, never a read past an array.
TEST(SparseBadInput, EveryRoutineChecksTheStructure) {
  // Rows (1,1)=4 (1,3)=1 | (2,2)=5 (2,3)=2 | (3,3)=6, and six ways to damage it.
  const sparse_ija good{.n = 3, .nel = 5, .m = 0, .ia = ints({1, 3, 5, 6}), .ja = ints({1, 3, 2, 3, 3}),
                        .a = test::array1<double>({4, 1, 5, 2, 6})};
  sparse_ija short_ia = good, short_ja = good, short_a = good, falls = good, count = good, column = good;
  short_ia.ia.resize(3);
  short_ja.ja.resize(3);
  short_a.a.resize(4);
  falls.ia(3) = 2;
  count.nel = 6;
  column.ja(4) = 4;
  densem d, small(2, 1.0);
  sparse_hashm h;
  const Array1<double> x(3, 1.0);
  Array1<double> sol(3, 0.0);
  // The forms name a column outside the order as they name a stray index of the hash form.
  const std::vector<std::pair<std::function<void()>, std::string>> cases = {
      {[&] { assign(h, short_a); }, "hash_from_ija: ia(4)-1 = 5 but a holds 4 entries"},
      {[&] { assign(d, count); }, "assign(densem, sparse_ija): nel = 6 but ia(n+1)-1 = 5"},
      {[&] { printm_sparse_ija(short_ia); }, "printm_sparse_ija: n = 3 needs 4 entries in ia but ia holds 3"},
      {[&] { printm_sparse_ija(short_a, "int"); }, "printm_sparse_ija: ia(4)-1 = 5 but a holds 4 entries"},
      {[&] { BLOCK_IJA(d, column, 1, 2, 2, 3); }, "BLOCK_IJA: element outside the order of the matrix 2 4 3"},
      {[&] { QUADR_IJA(x, falls, x); }, "QUADR_IJA: ia(3) = 2 is below ia(2) = 3"},
      {[&] { TRACE_IJA(good, short_a); }, "TRACE_IJA: ia(4)-1 = 5 but a holds 4 entries"},
      {[&] { TRACE_IJA(count, good); }, "TRACE_IJA: nel = 6 but ia(n+1)-1 = 5"},
      {[&] { BLOCKTRACE_IJA(small, short_ja, 2, 3, 2, 3); }, "BLOCKTRACE_IJA: ia(3)-1 = 4 but ja holds 3 entries"},
      {[&] { SOLVE_IJA(column, x, sol); }, "SOLVE_IJA: ja(4) = 4 in row 2 is outside 1..3"},
      {[&] { SOLVE_IJA(short_a, x, sol); }, "SOLVE_IJA: ia(4)-1 = 5 but a holds 4 entries"},
  };
  for (const auto& [call, message] : cases) EXPECT_EQ(stop_text(call), message);
  // Element access reads one row: only that row's bounds matter.
  EXPECT_EQ(getm_sparse_ija(1, 3, short_ja), 1.0);
  EXPECT_EQ(stop_text([&] { getm_sparse_ija(2, 3, short_ja); }), "getm_sparse_ija: ia(3)-1 = 4 but ja holds 3 entries");
  EXPECT_EQ(stop_text([&] { getm_sparse_ija(3, 3, short_a); }), "getm_sparse_ija: ia(4)-1 = 5 but a holds 4 entries");
  EXPECT_EQ(stop_text([&] { getm_sparse_ija(1, 1, short_ia); }), "getm_sparse_ija: n = 3 needs 4 entries in ia but ia holds 3");
  EXPECT_EQ(getm_sparse_ija(4, 1, short_ia), 0.0);
  // The empty matrix is sound everywhere.
  const sparse_ija empty;
  assign(d, empty);
  EXPECT_EQ(std::make_tuple(d.order(), QUADR_IJA(Array1<double>(), empty, Array1<double>())), std::make_tuple(0, 0.0));
}
