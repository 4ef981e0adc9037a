// invert_matrix: every route on a small matrix, the messages of the routes and the stops.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "mmekit/solvers/inverse_routes.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

#include "dense/test_helpers.hpp"

using namespace mmekit;
using namespace dense_test;

namespace {

bool starts_with(const std::string& s, const std::string& p) { return s.rfind(p, 0) == 0; }

// Lines of a text.
std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    out.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return out;
}

}  // namespace

TEST(InvertMatrix, EveryWorkingRouteInvertsAndReports) {
  const densem a = from_rows({{4, 2, 0}, {2, 2, 1}, {0, 1, 3}});
  // det = 4 (6 - 1) - 2 (6 - 0) = 8; inverse by cofactors / 8.
  const densem inv = from_rows({{5.0 / 8, -6.0 / 8, 2.0 / 8}, {-6.0 / 8, 12.0 / 8, -4.0 / 8}, {2.0 / 8, -4.0 / 8, 4.0 / 8}});
  for (std::int32_t route : {1, 2, 3, 4, 5, 8, 9}) {
    SCOPED_TRACE("route " + std::to_string(route));
    CaptureOutput cap;
    densem g = a;
    inversion_state.rank = -1;
    invert_matrix(g, route, 1);
    EXPECT_LT(max_abs_diff(g, inv), 1e-14);
    EXPECT_EQ(inversion_state.rank, 3);
    const auto out = lines(cap.text());
    ASSERT_FALSE(out.empty());
    EXPECT_TRUE(starts_with(out.back(), "    Wall time:  ")) << out.back();
    if (route == 3) {
      ASSERT_EQ(out.size(), 3u);
      EXPECT_TRUE(starts_with(out[0], "     Inverse by ginv2 elapsed time:  "));
      EXPECT_EQ(out[1], "    rank:  3");
    }
    if (route == 9) {
      ASSERT_EQ(out.size(), 2u);
      EXPECT_TRUE(starts_with(out[0], "     Inverse by ginv2 elapsed time:  "));
    }
    if (route == 8) {
      EXPECT_EQ(out[0], " TORVEX inverse");
    }
    if (route == 4) {
      EXPECT_EQ(out[0], " 5 elements in matrix");
      EXPECT_EQ(out[out.size() - 2], " No. of non-zero elements        = 6");
    }
    if (route == 1 || route == 2 || route == 5) {
      EXPECT_EQ(out.size(), 1u);
    }
    // Message level 0: no time line.
    CaptureOutput quiet;
    densem h = a;
    invert_matrix(h, route, 0);
    EXPECT_LT(max_abs_diff(h, inv), 1e-14);
    for (const auto& l : lines(quiet.text())) EXPECT_FALSE(starts_with(l, "    Wall time:")) << l;
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
    EXPECT_LT(max_abs_diff(product(product(a, g), a), a), 1e-12);
    if (route != 8) {
      EXPECT_EQ(g, from_rows({{0.5, -0.5, 0}, {-0.5, 1, 0}, {0, 0, 0}}));
    }
  }
  // The pivot limit of the ginv2 routes is tol_ginv.
  const double keep = inversion_state.tol_ginv;
  inversion_state.tol_ginv = 0.5;
  densem d = from_rows({{1, 0}, {0, 0.4}});
  {
    CaptureOutput cap;
    invert_matrix(d, 9, 0);
  }
  inversion_state.tol_ginv = keep;
  EXPECT_EQ(inversion_state.rank, 1);
  EXPECT_EQ(d, from_rows({{1, 0}, {0, 0}}));
}

TEST(InvertMatrix, StoppingRoutes) {
  const densem a = from_rows({{2, 0}, {0, 2}});
  for (std::int32_t route : {6, 7, 0, 10, -1}) {
    CaptureOutput cap;
    densem g = a;
    std::string what;
    try {
      invert_matrix(g, route, 1);
    } catch (const Stop& e) {
      what = e.what();
    }
    const std::string expect = route == 6 || route == 7
                                   ? " MKL inverse specified but Not linked with library compile with _MYMKL = .TRUE. "
                                   : " Wrong option Create Inverse";
    EXPECT_EQ(what, expect) << route;
    EXPECT_EQ(cap.text(), expect + "\n");
    EXPECT_EQ(g, a);
  }
  // A negative pivot stops the ginv2 routes.
  CaptureOutput cap;
  densem ind = from_rows({{1, 2}, {2, 1}});
  try {
    invert_matrix(ind, 9);
    ADD_FAILURE();
  } catch (const Stop& e) {
    EXPECT_EQ(std::string(e.what()), " ginv2: Negative pivot: 2 -3.0");
  }
}

TEST(InvertMatrix, RowCompressedUpperForm) {
  const densem a = from_rows({{4, 0, 1}, {0, 0, 2}, {1, 2, 3}});
  sparse_ija m;
  densem_to_ija_upper(a, m);
  EXPECT_EQ(m.n, 3);
  EXPECT_EQ(m.nel, 5);
  const std::int32_t ia[] = {1, 3, 5, 6}, ja[] = {1, 3, 2, 3, 3};
  const double v[] = {4, 1, 0, 2, 3};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(m.ia(i + 1), ia[i]);
  for (int k = 0; k < 5; ++k) {
    EXPECT_EQ(m.ja(k + 1), ja[k]);
    EXPECT_EQ(m.a(k + 1), v[k]);
  }
}
