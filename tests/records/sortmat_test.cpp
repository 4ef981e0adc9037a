#include "mmekit/records/sortmat.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "common/stop.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using Column = std::vector<std::int32_t>;

namespace {

std::int32_t bits_of(float f) { return std::bit_cast<std::int32_t>(f); }
std::int32_t text4(const char* s) {
  std::int32_t i;
  std::memcpy(&i, s, 4);
  return i;
}

Column column(const Array2<std::int32_t>& m, std::int64_t j) {
  Column c;
  for (std::int64_t i = 1; i <= m.rows(); ++i) c.push_back(m(i, j));
  return c;
}

// A matrix of one row holding `values`.
Array2<std::int32_t> row(const Column& values) {
  Array2<std::int32_t> m(1, static_cast<std::int64_t>(values.size()));
  m.vec() = values;
  return m;
}

// Sorts the first n columns of `m` with sortmat: their keys must come out in the order of
// compare_keys (worked by hand below) and the columns be the same multiset; the other columns stay.
void check_sort(Array2<std::int32_t> m, const Column& keys, const std::string& types, std::int32_t n) {
  const Array2<std::int32_t> before = m;
  const auto t = types.empty() ? std::nullopt : std::optional<std::string_view>(types);
  sortmat(m, keys, n, std::nullopt, t);
  for (std::int64_t j = n + 1; j <= m.cols(); ++j) ASSERT_EQ(column(m, j), column(before, j));
  std::vector<Column> want, got;
  for (std::int64_t j = 1; j <= n; ++j) want.push_back(column(before, j)), got.push_back(column(m, j));
  const auto less = [&](const Column& a, const Column& b) {
    Column x, y;
    for (const auto k : keys)
      x.push_back(a[static_cast<std::size_t>(k - 1)]), y.push_back(b[static_cast<std::size_t>(k - 1)]);
    return compare_keys(x, y, false, t) == 1;
  };
  ASSERT_TRUE(std::is_sorted(got.begin(), got.end(), less));
  std::sort(got.begin(), got.end());
  std::sort(want.begin(), want.end());
  ASSERT_EQ(got, want);
}

}  // namespace

TEST(Sortmat, CompareKeys) {
  const Column a{1, 5, -3}, b{1, 5, 7}, r1{bits_of(-2.0f)}, r2{bits_of(-1.0f)};
  const Column n1{bits_of(std::numeric_limits<float>::quiet_NaN()), 1}, n2{bits_of(3.0f), 2};
  const Column t1{text4("abzz")}, t2{text4("acaa")}, t3{text4("\xe9" "aaa")};
  struct Case {
    const Column &x, &y;
    bool descending;
    const char* types;
    int expected;
  };
  const Case cases[] = {
      {a, b, false, nullptr, 1}, {b, a, false, nullptr, 3}, {a, a, false, nullptr, 2},
      // Descending swaps the result of the whole key, not of each key.
      {a, b, true, nullptr, 3}, {b, a, true, nullptr, 1}, {a, a, true, nullptr, 2},
      // Reals by value: -2.0 has a larger bit pattern as an integer than -1.0 but is smaller.
      {r1, r2, false, "r", 1}, {r1, r2, false, "i", 3}, {r1, r2, false, nullptr, 3},
      // A NaN is neither less nor greater: equal, and the next key decides.
      {n1, n2, false, "ri", 1}, {n2, n1, false, "ri", 3},
      // Text in character order, first character most significant whatever the byte order;
      // characters above 127 come after the ASCII letters.
      {t1, t2, false, "a", 1}, {t2, t3, false, "a", 1},
      // A character other than i, a, r, or a missing one, leaves its key without effect.
      {a, b, false, "iix", 2}, {a, b, false, "ii", 2}};
  for (const Case& c : cases) {
    const auto types = c.types ? std::optional<std::string_view>(c.types) : std::nullopt;
    EXPECT_EQ(compare_keys(c.x, c.y, c.descending, types), c.expected) << &c - cases;
  }
}

TEST(Sortmat, MatchesAStableSortOnRandomMatrices) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 60; ++trial) {
    const auto rows = static_cast<std::int32_t>(1 + rng() % 5), cols = static_cast<std::int32_t>(rng() % 400);
    const std::int32_t spread = trial % 3 == 0 ? 3 : 1000;  // many ties or few
    Array2<std::int32_t> m(rows, cols);
    for (auto& v : m.vec()) v = static_cast<std::int32_t>(rng() % static_cast<unsigned>(spread)) - spread / 2;
    Column keys(1 + rng() % 3);
    for (auto& k : keys) k = static_cast<std::int32_t>(1 + rng() % static_cast<unsigned>(rows));
    check_sort(m, keys, "", trial % 4 == 0 ? cols / 2 : cols);
  }
  // Typed keys: reals (with negative values and zeros of both signs), text, integers.
  const char* words[] = {"abcd", "abce", "ABCD", "zz  ", "a   ", "0123", "\xe9xyz", "abcd"};
  for (int trial = 0; trial < 30; ++trial) {
    const auto cols = static_cast<std::int32_t>(1 + rng() % 300);
    Array2<std::int32_t> m(4, cols);
    for (std::int32_t j = 1; j <= cols; ++j) {
      const float f = static_cast<float>(static_cast<int>(rng() % 21) - 10) * 0.25f;
      m(1, j) = bits_of(f == 0.0f && rng() % 2 ? -0.0f : f);
      m(2, j) = text4(words[rng() % 8]);
      m(3, j) = static_cast<std::int32_t>(rng() % 4) - 2;
      m(4, j) = j;
    }
    check_sort(m, {1, 2, 3}, "rai", cols);
    check_sort(m, {2, 1}, "ar", cols);
    check_sort(m, {3, 2}, "ia", cols);
  }
  // Already sorted, reversed and constant inputs.
  for (int kind = 0; kind < 3; ++kind) {
    Array2<std::int32_t> m(2, 1000);
    for (std::int32_t j = 1; j <= 1000; ++j) m(1, j) = kind == 0 ? j : (kind == 1 ? 1000 - j : 7), m(2, j) = j;
    check_sort(m, {1}, "", 1000);
  }
}

TEST(Sortmat, CountsKeyListsAndShortTypes) {
  // Counts of 0 and 1 leave the matrix alone; a count above the number of columns sorts them
  // all. Keys may come as the library's 1-based array too.
  Array2<std::int32_t> m = row({3, 2, 1});
  for (std::int32_t n : {0, 1}) {
    sortmat(m, Column{1}, n);
    EXPECT_EQ(m, row({3, 2, 1}));
  }
  sortmat(m, Array1<std::int32_t>(1, 1), 99);
  EXPECT_EQ(m, row({1, 2, 3}));
  // Types shorter than the keys are reported and the sort goes on by the first key only.
  Array2<std::int32_t> t(2, 4);
  t.vec() = {2, 9, 1, 8, 2, 7, 1, 6};
  CaptureOutput cap;
  sortmat(t, Column{1, 2}, std::nullopt, std::nullopt, "i");
  EXPECT_EQ(cap.text(), " sortmat: ordering types of wrong length:'\\ 1 < 2\n");
  EXPECT_EQ((Column{t(1, 1), t(1, 2), t(1, 3), t(1, 4)}), (Column{1, 1, 2, 2}));
}

TEST(Sortmat, FailureMessages) {
  Array2<std::int32_t> m(1, 5);
  const std::string order = " sortmat: sort order is either 'a' for ascending or 'd' for  descending\n";
  const std::string types = "sortmat: types should contain only characters 'iar'\n";
  // Any order at all ends the run, 'a' included.
  EXPECT_EQ(test::stop_output([&] { sortmat(m, Column{1}, std::nullopt, "a"); }), order);
  EXPECT_EQ(test::stop_output([&] { sortmat(m, Column{1}, std::nullopt, "d"); }), order);
  EXPECT_EQ(test::stop_output([&] { sortmat(m, Column{1}, std::nullopt, std::nullopt, "x"); }), types);
  EXPECT_EQ(test::stop_output([&] { sortmat(m, Column{1, 1}, std::nullopt, std::nullopt, "iI"); }), types);
  EXPECT_EQ(test::stop_output([&] { sortmat(m, Column{2}); }), " sortmat: key row 2 outside the matrix of 1 rows\n");

  // Depth of the stack: the pivot is always the third largest of its part, with the two largest
  // at the right end, so each partition pushes a part of two and goes on with all but three.
  // Built by following the exchanges: the pivot moves to r - 2 and the value there to the middle.
  const std::int32_t n = 200;
  std::vector<std::size_t> item(n + 1);
  std::iota(item.begin(), item.end(), 0);
  Column value(n + 1, 0);
  std::int32_t next = 1000000, l = 1, r = n, pushes = 0;
  for (; l + (r - l) / 2 <= r - 3; r -= 3, ++pushes) {
    const std::int32_t mid = l + (r - l) / 2;
    for (std::int32_t p : {r, r - 1, mid}) value[item[static_cast<std::size_t>(p)]] = next--;
    std::swap(item[static_cast<std::size_t>(mid)], item[static_cast<std::size_t>(r - 2)]);
  }
  ASSERT_GT(pushes, 50);
  Array2<std::int32_t> deep(1, n);
  for (std::int32_t p = 1, low = 1; p <= n; ++p) deep(1, p) = value[static_cast<std::size_t>(p)] != 0 ? value[static_cast<std::size_t>(p)] : low++;
  EXPECT_EQ(test::stop_output([&] { sortmat(deep, Column{1}); }), "stack > 50\n");
  // The stack is usable again after the stop; a shallower pattern of the same kind sorts.
  Column up(100);
  std::iota(up.begin(), up.end(), 1);
  Array2<std::int32_t> fine = row(Column(up.rbegin(), up.rend()));
  sortmat(fine, Column{1});
  EXPECT_EQ(fine, row(up));
}
