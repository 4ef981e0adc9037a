// The check of a row-compressed structure: every fault in words, and the order in which a
// row-by-row walk meets them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "mmekit/support/row_structure.hpp"

#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace mmekit;
using test::ints;
using Ints = Array1<std::int32_t>;

namespace {

std::string said(const RowStructureFault& f) { return f ? describe(f) : "sound"; }

}  // namespace

TEST(RowStructure, EveryFaultInWords) {
  // Rows {1,3} {2} {3}.
  const Ints ia = ints({1, 3, 4, 5}), ja = ints({1, 3, 2, 3});
  const RowStructureRules any, no_empty{.empty_rows = false}, three_values{.values = 3},
      five{.values = 4, .elements = 5}, free_columns{.columns = false};
  struct Case {
    std::int64_t n;
    Ints ia, ja;
    RowStructureRules rules;
    const char* text;
  };
  const std::vector<Case> cases = {
      {3, ia, ja, any, "sound"},
      {3, ia, ints({1, 3, 2, 3, 99}), any, "sound"},
      {0, ints({}), ints({}), any, "sound"},
      {0, ints({1}), ints({}), any, "sound"},
      {2, ints({1, 2, 2}), ints({1}), any, "sound"},
      {3, ia, ints({1, 9, 2, 3}), free_columns, "sound"},
      {-3, ints({1}), ints({}), any, "the order n = -3 is negative"},
      {3, ints({1, 3, 4}), ja, any, "n = 3 needs 4 entries in ia but ia holds 3"},
      {3, ints({}), ints({}), any, "n = 3 needs 4 entries in ia but ia holds 0"},
      {3, ints({0, 3, 4, 5}), ja, any, "ia(1) = 0 but the first row must start at 1"},
      {3, ints({2, 3, 4, 5}), ja, any, "ia(1) = 2 but the first row must start at 1"},
      {0, ints({3}), ints({}), any, "ia(1) = 3 but the first row must start at 1"},
      {3, ints({1, 3, 2, 5}), ja, any, "ia(3) = 2 is below ia(2) = 3"},
      {3, ints({1, 3, 4, 13}), ja, any, "ia(4)-1 = 12 but ja holds 4 entries"},
      {3, ia, ints({1, 3, 2}), any, "ia(4)-1 = 4 but ja holds 3 entries"},
      // Row 2's bounds come before row 3's column.
      {3, ints({1, 3, 9, 5}), ints({1, 3, 2, 0}), any, "ia(3)-1 = 8 but ja holds 4 entries"},
      {3, ia, ints({1, 3, 0, 3}), any, "ja(3) = 0 in row 2 is outside 1..3"},
      {3, ia, ints({1, 4, 2, 3}), any, "ja(2) = 4 in row 1 is outside 1..3"},
      {2, ints({1, 2, 2147483647}), ints({1}), any, "ia(3)-1 = 2147483646 but ja holds 1 entries"},
      {2, ints({1, 2, 2}), ints({1}), no_empty, "row 2 is empty: ia(2) = ia(3) = 2"},
      {3, ia, ja, three_values, "ia(4)-1 = 4 but a holds 3 entries"},
      {3, ia, ja, five, "nel = 5 but ia(n+1)-1 = 4"},
      {0, ints({}), ints({}), five, "nel = 5 but ia(n+1)-1 = 0"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(said(check_row_structure(c.n, span_of(c.ia), span_of(c.ja), c.rules)), c.text) << c.text;
  // The 8-byte twin and the stop.
  Array1<std::int64_t> ia8(3, 1), ja8(1, 1);
  ia8(2) = 2;
  ia8(3) = std::int64_t{1} << 40;
  EXPECT_EQ(said(check_row_structure(2, span_of(ia8), span_of(ja8))), "ia(3)-1 = 1099511627775 but ja holds 1 entries");
  test::expect_stop([&] { require_row_structure("who", 3, span_of(ia), span_of(ints({1}))); },
                    "who: ia(2)-1 = 2 but ja holds 1 entries");
}

TEST(RowStructure, WalkOrderAndOneRow) {
  // Rows are handed over in order, each before its columns; the walk ends at the first fault.
  const Ints ia = ints({1, 3, 4, 6}), ja = ints({1, 3, 2, 3, 7});
  std::string seen;
  const RowStructureFault f = scan_row_structure<std::int32_t>(
      3, span_of(ia), span_of(ja), {},
      [&](std::int64_t i, std::int64_t first, std::int64_t last) {
        seen += " r" + std::to_string(i) + ":" + std::to_string(first) + "-" + std::to_string(last);
      },
      [&](std::int64_t, std::int64_t k, std::int64_t j) { seen += " " + std::to_string(k) + "=" + std::to_string(j); });
  EXPECT_EQ(seen, " r1:1-2 1=1 2=3 r2:3-3 3=2 r3:4-5 4=3");
  EXPECT_EQ(said(f), "ja(5) = 7 in row 3 is outside 1..3");
  // One row alone: its two bounds only; rows outside 1..n have none.
  auto row = [](std::int64_t i, const Ints& a, const Ints& b, std::int64_t values = -1) {
    return said(check_row_bounds<std::int32_t>(i, 3, span_of(a), span_of(b), {.values = values}));
  };
  EXPECT_EQ(row(2, ia, ints({1, 3})), "ia(3)-1 = 3 but ja holds 2 entries");
  EXPECT_EQ(row(1, ia, ints({1, 3})), "sound");
  EXPECT_EQ(row(4, ia, ints({})), "sound");
  EXPECT_EQ(row(3, ints({1, 3, 4}), ja), "n = 3 needs 4 entries in ia but ia holds 3");
  EXPECT_EQ(row(2, ints({1, 0, 4, 6}), ja), "ia(2) = 0 is below 1");
  EXPECT_EQ(row(2, ints({1, 5, 4, 6}), ja), "ia(3) = 4 is below ia(2) = 5");
  EXPECT_EQ(row(3, ia, ja, 4), "ia(4)-1 = 5 but a holds 4 entries");
}
