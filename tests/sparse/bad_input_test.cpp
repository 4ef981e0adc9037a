// A damaged row-compressed matrix at each routine of the package that walks one: a stop that
// names the routine and the fault, never a read past an array.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/arrays.hpp"
#include "common/stop.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/forms.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/sparse/solve.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using test::ints;
using test::stop_text;

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
