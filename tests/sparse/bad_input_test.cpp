// A damaged row-compressed matrix at every routine of the package that walks one: a stop that
// names the routine and what is wrong, never a read past an array.
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
using test::array1;
using test::ints;
using test::stop_text;

TEST(SparseBadInput, EveryRoutineNamesTheFault) {
  // Rows (1,1)=4 (1,3)=1 | (2,2)=5 (2,3)=2 | (3,3)=6.
  sparse_ija good;
  good.n = 3;
  good.nel = 5;
  good.ia = ints({1, 3, 5, 6});
  good.ja = ints({1, 3, 2, 3, 3});
  good.a = array1<double>({4, 1, 5, 2, 6});
  struct Damage {
    std::function<void(sparse_ija&)> apply;
    std::string what;
  };
  const std::vector<Damage> damages = {
      {[](sparse_ija& m) { m.ia.resize(3); }, "n = 3 needs 4 entries in ia but ia holds 3"},
      {[](sparse_ija& m) { m.ja.resize(4); }, "ia(4)-1 = 5 but ja holds 4 entries"},
      {[](sparse_ija& m) { m.a.resize(4); }, "ia(4)-1 = 5 but a holds 4 entries"},
      {[](sparse_ija& m) { m.ia(3) = 2; }, "ia(3) = 2 is below ia(2) = 3"},
      {[](sparse_ija& m) { m.nel = 6; }, "nel = 6 but ia(n+1)-1 = 5"},
      {[](sparse_ija& m) { m.ja(4) = 4; }, "ja(4) = 4 in row 2 is outside 1..3"},
  };
  densem d, small(2, 1.0);
  sparse_hashm h;
  const Array1<double> x(3, 1.0);
  Array1<double> sol(3, 0.0);
  const std::vector<std::pair<std::string, std::function<void(const sparse_ija&)>>> routines = {
      {"hash_from_ija", [&](const sparse_ija& m) { assign(h, m); }},
      {"assign(densem, sparse_ija)", [&](const sparse_ija& m) { assign(d, m); }},
      {"printm_sparse_ija", [&](const sparse_ija& m) { printm_sparse_ija(m); }},
      {"printm_sparse_ija", [&](const sparse_ija& m) { printm_sparse_ija(m, "int"); }},
      {"BLOCK_IJA", [&](const sparse_ija& m) { BLOCK_IJA(d, m, 1, 2, 2, 3); }},
      {"QUADR_IJA", [&](const sparse_ija& m) { QUADR_IJA(x, m, x); }},
      {"TRACE_IJA", [&](const sparse_ija& m) { TRACE_IJA(good, m); }},
      {"TRACE_IJA", [&](const sparse_ija& m) { TRACE_IJA(m, good); }},
      {"BLOCKTRACE_IJA", [&](const sparse_ija& m) { BLOCKTRACE_IJA(small, m, 2, 3, 2, 3); }},
      {"SOLVE_IJA", [&](const sparse_ija& m) { SOLVE_IJA(m, x, sol); }},
  };
  CaptureOutput cap;
  for (const Damage& damage : damages) {
    sparse_ija m = good;
    damage.apply(m);
    for (const auto& [who, call] : routines) {
      std::string want = who + ": " + damage.what;
      // The forms name a column outside the order as they name a stray index of the hash form.
      const bool form = who.find("_IJA") != std::string::npos && who != "SOLVE_IJA";
      if (form && damage.what.starts_with("ja(")) want = who + ": element outside the order of the matrix 2 4 3";
      EXPECT_EQ(stop_text([&] { call(m); }), want);
    }
  }
  // Element access reads one row: only that row's bounds matter.
  sparse_ija cut = good;
  cut.ja.resize(3);
  EXPECT_EQ(getm_sparse_ija(1, 3, cut), 1.0);
  EXPECT_EQ(stop_text([&] { getm_sparse_ija(2, 3, cut); }), "getm_sparse_ija: ia(3)-1 = 4 but ja holds 3 entries");
  cut.ia.resize(2);
  EXPECT_EQ(stop_text([&] { getm_sparse_ija(1, 1, cut); }), "getm_sparse_ija: n = 3 needs 4 entries in ia but ia holds 2");
  EXPECT_EQ(getm_sparse_ija(4, 1, cut), 0.0);
  // The empty matrix is sound everywhere.
  const sparse_ija empty;
  assign(d, empty);
  EXPECT_EQ(d.order(), 0);
  EXPECT_EQ(QUADR_IJA(Array1<double>(), empty, Array1<double>()), 0.0);
}
