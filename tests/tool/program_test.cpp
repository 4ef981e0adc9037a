// The regcov program end to end: answers on standard input, exit status, files and output.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "common/files.hpp"

namespace {

using mmekit::test::read_file;
using mmekit::test::write_file;

// Runs regcov with `answers` on standard input; returns the exit status, stdout in `output`.
int run(const std::string& answers, std::string& output) {
  write_file("e2e.answers", answers);
  const std::string cmd = std::string(MMEKIT_BINARY_DIR) + "/bin/regcov < e2e.answers > e2e.stdout 2>&1";
  const int status = std::system(cmd.c_str());
  output = read_file("e2e.stdout");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RegcovBinary, ExitStatusOutputAndFiles) {
  write_file("e2e_in.txt", "7 150 3.5\n12 180 22.25\n");
  std::string out;
  EXPECT_EQ(run("e2e_in.txt\ne2e_out.txt\n2\n100 200 2\n", out), 0);
  EXPECT_EQ(out, " Regcov ver. 2.6\n Name of input file\n Name of output file\n Position for regression\n"
                 " 1  th range: min & max;  # polynomials\n # records = 2\n");
  EXPECT_EQ(read_file("e2e_out.txt"), " 7 150 .00000 -1.11803 3.50000\n 12 180 1.03923 .08944 22.25000\n");
  // A stop keeps the lines written before it (more than fill a buffer) and exits with 1.
  std::string data;
  for (int i = 0; i < 5000; ++i) data += std::to_string(i) + " 150 3.5\n";
  write_file("e2e_in2.txt", data + "\n1 150 2\n");
  EXPECT_EQ(run("e2e_in2.txt\ne2e_out2.txt\n2\n100 200 2\n", out), 1);
  EXPECT_TRUE(out.ends_with(" *** error : nn < last position\n")) << out;
  const std::string written = read_file("e2e_out2.txt");
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 5000);
  EXPECT_TRUE(written.ends_with("\n 4999 150 .00000 -1.11803 3.50000\n"));
  EXPECT_EQ(run("", out), 1);
  EXPECT_TRUE(out.ends_with(" *** error : end of input while reading the answers\n")) << out;
}

}  // namespace
