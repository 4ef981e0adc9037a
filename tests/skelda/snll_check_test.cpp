// The plain left-looking factorisation of the checks: the factor of a structure with a panel-form
// root against the factor it was drawn from, its trace worked by hand, a pivot failure; and the
// work that the multifrontal kernel reports held after a failure.
#include <gtest/gtest.h>

#include "common/supernodal.hpp"
#include "mmekit/skelda/multifrontal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/snll_check.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {
namespace {

using test::hand_structure;

void expect_factor_near(const densem& got, const densem& want) {
  for (std::int64_t c = 1; c <= want.order(); ++c)
    for (std::int64_t r = c; r <= want.order(); ++r) EXPECT_NEAR(got(r, c), want(r, c), 1e-10) << r << "," << c;
}

TEST(SnllTestDriver, FactorOfDrawnStructureBothTypes) {
  // Columns 1-2 reach 5 and 7, column 3 reaches 4 and 6, column 4 reaches 6; the root 5..7 is
  // wider than the panel of 2, so it is stored in panel form with a padded last block.
  const auto fresh = [] { hand_structure(7, {1, 3, 4, 5}, {{5, 7}, {4, 6}, {6}, {}}, 2); };
  fresh();
  ASSERT_TRUE(skelda_layout().panel_form(4));
  const densem l = test::random_factor(11);
  const densem a = test::gram(l);
  CaptureOutput quiet;
  for (bool ldl : {false, true}) {
    fresh();
    test::store_factor(a, 1);
    ASSERT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, ldl, false), 0);
    expect_factor_near(test::read_factor(skelda_layout(), *skelda_state.lnz), ldl ? test::ldl_of_cholesky(l) : l);
  }
}

TEST(SnllTestDriver, TraceWorkedByHandAndPivotFailure) {
  // A = [4 2; 2 5] with one supernode a column: L = [2 0; 1 2].
  densem a(2, 0.0);
  a(1, 1) = 4; a(2, 1) = 2; a(1, 2) = 2; a(2, 2) = 5;
  hand_structure(2, {1, 2}, {{2}, {}}, 256);
  test::store_factor(a, 1);
  CaptureOutput cap;
  ASSERT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, false, true), 0);
  EXPECT_EQ(cap.text(),
            " SNLL LDL= F\n* LDL conversion is not performed.\nOMP_TEST_VERSION\n"
            " Supernode 1\nbefore\n   4.0000    \n   2.0000    \nintermediate\n   4.0000    \n   2.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n   1.0000    \n"
            " Supernode 2\nbefore\n   5.0000    \n gather SJ,SK= 2 1\nintermediate\n   4.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n");
  // A pivot that is not above 0 ends the factorisation with status 8.
  a(2, 2) = 1;  // 1 - 2*2/4 = 0
  hand_structure(2, {1, 2}, {{2}, {}}, 256);
  test::store_factor(a, 1);
  cap.clear();
  EXPECT_EQ(snll_test_driver(skelda_layout(), *skelda_state.lnz, true, false), 8);
  EXPECT_EQ(cap.text(), " SNLL LDL= T\n");
}

TEST(Multifrontal, FailureReportsTheWorkItHolds) {
  // Columns 1 and 2 both reach column 3. Column 2's pivot is 0: when it fails, the update of
  // column 1 waits on the stack, and column 2 holds its map and its diagonal values.
  densem a(3, 0.0);
  a(1, 1) = 4; a(3, 1) = a(1, 3) = 2; a(3, 3) = 5;  // a(2, 2) = 0
  hand_structure(3, {1, 2, 3}, {{3}, {3}, {}}, 256);
  test::store_factor(a, 1);
  Array1<std::int32_t> snparent(3, 0);
  snparent(1) = snparent(2) = 3;
  std::int64_t rank = 0;
  CaptureOutput cap;
  EXPECT_EQ(supernodal_sx2_mf_omp_v1(skelda_layout(), snparent, *skelda_state.lnz, *skelda_state.cflag, {},
                                     default_skelda_blas(), rank, 0),
            8);
  EXPECT_EQ(cap.text(),
            "ERROR: Not deallocated DIAG\nERROR: Not deallocated C\nERROR: Not deallocated UIDX\n"
            "ERROR: Not deallocated EXTD\n");
  // With column 2 sound, the factorisation ends with nothing held.
  a(2, 2) = 1;
  a(3, 2) = a(2, 3) = 1;
  hand_structure(3, {1, 2, 3}, {{3}, {3}, {}}, 256);
  test::store_factor(a, 1);
  cap.clear();
  EXPECT_EQ(supernodal_sx2_mf_omp_v1(skelda_layout(), snparent, *skelda_state.lnz, *skelda_state.cflag, {},
                                     default_skelda_blas(), rank, 0),
            0);
  EXPECT_EQ(cap.text(), "");
  EXPECT_EQ(rank, 3);
}

}  // namespace
}  // namespace mmekit
