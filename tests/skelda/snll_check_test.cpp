// The plain left-looking factorisation of the checks: the factor of a structure with a panel-form
// root against the factor it was drawn from and against the blocked kernel, its trace worked by
// hand, and a pivot failure.
#include <gtest/gtest.h>

#include "common/supernodal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/snll_check.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {
namespace {

using test::hand_structure;

void expect_factor_near(const densem& got, const densem& want) {
  for (std::int64_t c = 1; c <= want.order(); ++c)
    for (std::int64_t r = c; r <= want.order(); ++r) EXPECT_NEAR(got(r, c), want(r, c), 1e-10) << r << "," << c;
}

TEST(SnllTestDriver, FactorOfDrawnStructureBothTypesAndKernel) {
  // Columns 1-2 reach 5 and 7, column 3 reaches 4 and 6, column 4 reaches 6; the root 5..7 is
  // wider than the panel of 2, so it is stored in panel form with a padded last block.
  const auto fresh = [] { return hand_structure(7, {1, 3, 4, 5}, {{5, 7}, {4, 6}, {6}, {}}, 2); };
  test::HandFactor h = fresh();
  ASSERT_TRUE(h.layout().panel_form(4));
  const densem l = test::random_factor_on(h, 11);
  const densem a = test::dense_product(l, l);
  for (bool ldl : {false, true}) {
    h = fresh();
    test::store_factor(h, a);
    CaptureOutput quiet;
    ASSERT_EQ(snll_test_driver(h.layout(), h.lnz, ldl, false), 0);
    expect_factor_near(test::read_factor(h), ldl ? test::ldl_of_cholesky(l) : l);
  }
  // The blocked kernel on the same loaded matrix gives the same factor.
  test::HandFactor k = fresh();
  test::store_factor(k, a);
  Array1<std::int32_t> cflag(7, 0);
  SnllOptions opt;
  opt.ldl = true;
  opt.tmp_words = snll_simulate(k.layout(), k.lnz.size(), 0).tmp;
  std::int64_t rank = 0;
  ASSERT_EQ(snll_factor(k.layout(), k.lnz, cflag, opt, default_skelda_blas(), rank), 0);
  expect_factor_near(test::read_factor(k), test::read_factor(h));
}

TEST(SnllTestDriver, TraceWorkedByHandAndPivotFailure) {
  // A = [4 2; 2 5] with one supernode a column: L = [2 0; 1 2].
  test::HandFactor h = hand_structure(2, {1, 2}, {{2}, {}}, 256);
  densem a(2, 0.0);
  a(1, 1) = 4; a(2, 1) = 2; a(1, 2) = 2; a(2, 2) = 5;
  test::store_factor(h, a);
  CaptureOutput cap;
  ASSERT_EQ(snll_test_driver(h.layout(), h.lnz, false, true), 0);
  EXPECT_EQ(cap.text(),
            " SNLL LDL= F\n* LDL conversion is not performed.\nOMP_TEST_VERSION\n"
            " Supernode 1\nbefore\n   4.0000    \n   2.0000    \nintermediate\n   4.0000    \n   2.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n   1.0000    \n"
            " Supernode 2\nbefore\n   5.0000    \n gather SJ,SK= 2 1\nintermediate\n   4.0000    \n"
            "end\nfinal_in_SJ\n   2.0000    \n");
  // A pivot that is not above 0 ends the factorisation with status 8.
  h = hand_structure(2, {1, 2}, {{2}, {}}, 256);
  a(2, 2) = 1;  // 1 - 2*2/4 = 0
  test::store_factor(h, a);
  cap.clear();
  EXPECT_EQ(snll_test_driver(h.layout(), h.lnz, true, false), 8);
  EXPECT_EQ(cap.text(), " SNLL LDL= T\n");
}

}  // namespace
}  // namespace mmekit
