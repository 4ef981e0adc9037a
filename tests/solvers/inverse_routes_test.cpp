// invert_matrix: every route on a small matrix, the messages of the routes and the stops.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/stop.hpp"
#include "dense/test_helpers.hpp"
#include "mmekit/solvers/inverse_routes.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using namespace dense_test;

TEST(InvertMatrix, EveryWorkingRouteInvertsAndReports) {
  const densem a = from_rows({{4, 2, 0}, {2, 2, 1}, {0, 1, 3}});
  // det = 4 (6 - 1) - 2 (6 - 0) = 8; the inverse by cofactors / 8.
  const densem inv = from_rows({{5.0 / 8, -6.0 / 8, 2.0 / 8}, {-6.0 / 8, 12.0 / 8, -4.0 / 8}, {2.0 / 8, -4.0 / 8, 4.0 / 8}});
  // The route's own lines before the wall-time line ("..." ends a line of which only the
  // start is fixed).
  const std::pair<std::int32_t, std::vector<std::string>> routes[] = {
      {1, {}}, {2, {}}, {5, {}},
      {3, {"     Inverse by ginv2 elapsed time:  ...", "    rank:  3"}},
      {4, {" 5 elements in matrix", " Generalised inverse of matrix with order = 3    and rank = 3",
           " no. of negative pivots = 0", " Inversion done", " Rank of matrix                  = 3",
           " Log determinant                 = ...", " No. of non-zero elements        = 6"}},
      {8, {" TORVEX inverse"}},
      {9, {"     Inverse by ginv2 elapsed time:  ..."}}};
  for (const auto& [route, own] : routes) {
    SCOPED_TRACE("route " + std::to_string(route));
    for (std::int32_t msg : {1, 0}) {
      CaptureOutput cap;
      densem g = a;
      inversion_state.rank = -1;
      invert_matrix(g, route, msg);
      EXPECT_LT(max_abs_diff(g, inv), 1e-14);
      EXPECT_EQ(inversion_state.rank, 3);
      std::vector<std::string> want = own;
      if (msg > 0) want.push_back("    Wall time:  ...");
      const std::string text = cap.text();
      std::size_t at = 0;
      for (const std::string& line : want) {
        const bool open = line.size() > 3 && line.compare(line.size() - 3, 3, "...") == 0;
        const std::string fixed = open ? line.substr(0, line.size() - 3) : line + "\n";
        ASSERT_EQ(text.compare(at, fixed.size(), fixed), 0) << text;
        at = open ? text.find('\n', at) + 1 : at + fixed.size();
      }
      EXPECT_EQ(at, text.size()) << text;
    }
  }
}

TEST(InvertMatrix, RankDeficientRoutesAndTolerance) {
  // Row 3 = row 1 + row 2.
  const densem a = from_rows({{4, 2, 6}, {2, 2, 4}, {6, 4, 10}});
  for (std::int32_t route : {1, 2, 3, 4, 8, 9}) {
    SCOPED_TRACE("route " + std::to_string(route));
    CaptureOutput cap;
    densem g = a;
    invert_matrix(g, route, 0);
    EXPECT_EQ(inversion_state.rank, 2);
    EXPECT_LT(max_abs_diff(matmul(matmul(a, g), a), a), 1e-12);
  }
  // The pivot limit of the ginv2 routes is tol_ginv.
  const double keep = inversion_state.tol_ginv;
  inversion_state.tol_ginv = 0.5;
  densem d = from_rows({{1, 0}, {0, 0.4}});
  CaptureOutput cap;
  invert_matrix(d, 9, 0);
  inversion_state.tol_ginv = keep;
  EXPECT_EQ(std::make_pair(inversion_state.rank, d), std::make_pair(1, from_rows({{1, 0}, {0, 0}})));
}

TEST(InvertMatrix, StoppingRoutes) {
  const densem a = from_rows({{2, 0}, {0, 2}});
  for (std::int32_t route : {6, 7, 0, 10, -1}) {
    densem g = a;
    test::expect_stop([&] { invert_matrix(g, route, 1); },
                      route == 6 || route == 7
                          ? " MKL inverse specified but Not linked with library compile with _MYMKL = .TRUE. "
                          : " Wrong option Create Inverse");
    EXPECT_EQ(g, a);
  }
  densem ind = from_rows({{1, 2}, {2, 1}});
  test::expect_stop([&] { invert_matrix(ind, 9); }, " ginv2: Negative pivot: 2 -3.0");
}

TEST(InvertMatrix, RowCompressedUpperForm) {
  // The diagonal first (kept when zero), then the nonzero elements to its right; the lower
  // triangle is not read.
  sparse_ija m;
  densem_to_ija_upper(from_rows({{4, 0, 1}, {9, 0, 2}, {9, 9, 3}}), m);
  EXPECT_EQ(std::make_pair(m.n, m.nel), std::make_pair(3, 5));
  EXPECT_EQ(m.ia.vec(), (std::vector<std::int32_t>{1, 3, 5, 6}));
  EXPECT_EQ(m.ja.vec(), (std::vector<std::int32_t>{1, 3, 2, 3, 3}));
  EXPECT_EQ(m.a.vec(), (std::vector<double>{4, 1, 0, 2, 3}));
}
