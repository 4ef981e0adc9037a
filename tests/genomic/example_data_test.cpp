// The bundled example data set, read by the library's own readers: the simulator's files and
// the readers must agree on every layout detail.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mmekit/genomic/pedigree.hpp"
#include "mmekit/genomic/snp_files.hpp"
#include "mmekit/genomic/state.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {
namespace {

std::vector<std::string> lines_of(const std::string& name) {
  std::ifstream in(name);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(ExampleData, ReadByTheLibrarysReaders) {
  const std::string dir = std::string(MMEKIT_SOURCE_DIR) + "/examples/genomic/";
  genomic.reset();
  genomic.opt.readOrigId = true;
  genomic.opt.SNP_file = dir + "example.snp";
  genomic.opt.xref_file = dir + "example.snp_XrefID";
  genomic.opt.chrinfo = dir + "example.map";
  genomic.opt.chrinfo_names = true;
  CaptureOutput cap;
  GET_PED(dir + "example.ped");
  read_xref_file();
  read_SNP_file();
  read_map_file();

  ASSERT_EQ(genomic.n, 1500);
  ASSERT_EQ(genomic.ngen, 300);
  ASSERT_EQ(genomic.nsnp, 2000);
  EXPECT_TRUE(genomic.ped_chronological);
  EXPECT_EQ(genomic.map(2000, 1), 2000);
  EXPECT_EQ(genomic.map(2000, 2), 5);
  EXPECT_EQ(genomic.snp_names[0], "SNP1");
  EXPECT_NE(cap.text().find("    Column position in file for the first marker:  21"), std::string::npos) << cap.text();

  // Each genotype line: the animal's original identifier, then its markers as read into M.
  const std::vector<std::string> snp = lines_of(genomic.opt.SNP_file);
  ASSERT_EQ(snp.size(), 300u);
  for (std::int32_t i = 1; i <= 300; ++i) {
    const std::string& line = snp[static_cast<std::size_t>(i - 1)];
    std::istringstream id(line);
    std::string word;
    id >> word;
    EXPECT_EQ(genomic.origId(genomic.genId(i)).substr(0, word.size()), word) << i;
    for (std::int32_t j = 1; j <= 2000; ++j)
      ASSERT_EQ(genomic.M(i, j), line[static_cast<std::size_t>(20 + j - 1)] - '0') << i << " " << j;
  }

  genomic.reset();
}

}  // namespace
}  // namespace mmekit
