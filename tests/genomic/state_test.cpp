#include "mmekit/genomic/state.hpp"

#include <gtest/gtest.h>

#include "common/stop.hpp"

namespace mmekit {
namespace {

TEST(GenomicState, MatrixRecordDefaultsAndCompactGenotypes) {
  GenomicOptions o;
  const std::int32_t which[] = {1, 9, 3, 9, 0, 0};
  const bool create[] = {true, true, true, true, false, true};
  const char* file[] = {"G", "Gi", "A22", "A22i", "GmA22", "GimA22i"};
  for (std::int32_t m = 1; m <= genomic_matrix_count; ++m) {
    EXPECT_EQ(o.mats(m).which, which[m - 1]) << m;
    EXPECT_EQ(o.mats(m).create, create[m - 1]) << m;
    EXPECT_EQ(o.mats(m).file, file[m - 1]) << m;
    EXPECT_EQ(o.mats(m).storage, "densem");
  }
  EXPECT_EQ(o.mat(gm_GimA22i).description, "Inv. Genomic- A22 Matrix");

  GenotypeMatrix M;
  M.resize(2, 3, false, genotype_missing);
  M.set(2, 3, 2);
  M.set(1, 1, 0);
  EXPECT_EQ(M(2, 3), 2.0);
  EXPECT_EQ(M(1, 2), 5.0);
  EXPECT_EQ(M.codes_row(2)[2], 2);
  EXPECT_EQ(M.reals_row(1), nullptr);
  test::expect_stop([&] { M.set(1, 1, 1.5); }, " GenotypeMatrix: not a genotype code");
  test::expect_stop([&] { M.set(1, 1, -1); }, " GenotypeMatrix: not a genotype code");

  M.resize(1, 2, true);
  M.set(1, 2, 1.25);
  EXPECT_EQ(M(1, 2), 1.25);
  EXPECT_EQ(M.codes_row(1), nullptr);
}

}  // namespace
}  // namespace mmekit
