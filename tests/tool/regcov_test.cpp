// The covariate tool: coefficient table, record loop, output formats, dialogue and the program;
// the line splitters, line readers, text file check and command-line helpers it is built on.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/tool/fixed_output.hpp"
#include "mmekit/tool/regcov.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {
namespace {

using test::read_file;
using test::stop_output;
using test::write_file;
using Texts = std::vector<std::string>;

// sqrt(2j + 1) P_j(x) by Bonnet's recursion, scaled by the single-precision root of 2 the tool
// uses in place of the exact one.
double normalised_legendre(int j, double x) {
  long double p0 = 1, p1 = j == 0 ? 1 : x;
  for (int n = 1; n < j; ++n) {
    const long double p2 = ((2 * n + 1) * x * p1 - n * p0) / (n + 1);
    p0 = p1;
    p1 = p2;
  }
  return static_cast<double>(std::sqrt(2.0L * j + 1) * p1 * (1.4142135381698608L / std::sqrt(2.0L)));
}

// The records written by the loop, the same with and without the kept covariate texts.
std::string run_records(const std::vector<RegcovRange>& ranges, const std::string& data) {
  std::string text[2];
  for (bool memo : {false, true}) {
    RegcovRecords loop(ranges, memo);
    std::istringstream in(data);
    std::ostringstream out;
    loop.run(in, out);
    text[memo] = out.str();
  }
  EXPECT_EQ(text[0], text[1]);
  return text[1];
}

TEST(RegcovFunctions, FactorialBinomialScalingPowers) {
  EXPECT_EQ(std::make_tuple(factorial(-3), factorial(1), factorial(5), factorial(20)),
            std::make_tuple(1.0, 1.0, 120.0, 2432902008176640000.0));
  EXPECT_TRUE(std::isinf(factorial(171)));
  EXPECT_EQ(std::make_tuple(binomial(6, 0), binomial(6, 6), binomial(6, 2), binomial(10, 5)),
            std::make_tuple(1.0, 1.0, 15.0, 252.0));
  EXPECT_EQ(std::make_tuple(to_unit_range(150, 200, 100), to_unit_range(100, 200, 100), to_unit_range(200, 200, 100),
                            to_unit_range(125, 200, 100)),
            std::make_tuple(0.0, -1.0, 1.0, -0.5));
  EXPECT_TRUE(std::isnan(to_unit_range(5, 5, 5)));
  // Differences beyond the 32-bit range are exact.
  EXPECT_EQ(std::make_pair(to_unit_range(INT32_MAX, INT32_MAX, INT32_MIN), to_unit_range(INT32_MIN, INT32_MAX, INT32_MIN)),
            std::make_pair(1.0, -1.0));
  EXPECT_EQ(std::make_tuple(power_of_two_i4(0), power_of_two_i4(30), power_of_two_i4(31), power_of_two_i4(32)),
            std::make_tuple(1.0, 1073741824.0, -2147483648.0, 0.0));
  EXPECT_EQ(std::make_tuple(power_extended(0.3, 0), power_extended(std::nan(""), 0), power_extended(-0.5, 3)),
            std::make_tuple(1.0, 1.0, -0.125));
  // 1.1^7 rounded once from long double: x * x^2 * x^4, the order of binary exponentiation.
  const long double p = 1.1, q = p * p;
  EXPECT_EQ(power_extended(1.1, 7), static_cast<double>(p * q * (q * q)));
}

TEST(LegendreTable, CoefficientsAreNormalisedLegendrePolynomials) {
  std::vector<RegcovRange> ranges{{1, 0, 10, 12}, {2, 5, 6, 0}, {3, 0, 1, -4}};
  LegendreTable t(ranges);
  ASSERT_EQ(t.ranges(), 3);
  EXPECT_EQ(t.npoly(2) + t.npoly(3), 0);
  EXPECT_EQ(t.coef(2, 1, 1), 0.0);
  EXPECT_EQ(t.pwr(5, 0, 1) * 10 + t.pwr(5, 2, 1), 51);
  // Against Bonnet's recursion, which tells the single-precision root of 2 from the exact one.
  for (int j = 1; j <= 12; ++j) {
    for (double x : {-1.0, -0.73, -0.2, 0.35, 0.9, 1.0}) {
      double s = 0;
      for (int p = 0; p <= j; ++p) s += t.coef(j, p, 1) * std::pow(x, p);
      EXPECT_NEAR(s, normalised_legendre(j, x), 1e-9 * (1 + std::fabs(s))) << j << " " << x;
    }
  }
  // Order 31 is divided by -2^31 (2^31 does not fit 32 bits), so its sign flips; above that
  // the divisor is 0.
  LegendreTable high(std::vector<RegcovRange>{{1, 0, 40, 33}});
  EXPECT_LT(high.coef(31, 31, 1), 0.0);
  EXPECT_TRUE(std::isinf(high.coef(32, 32, 1)));
  std::vector<double> cov(33);
  high.evaluate(1, 30, 40, 0, cov);  // x = 0.5
  EXPECT_NEAR(cov[29], normalised_legendre(30, 0.5), 1e-6);
  EXPECT_NEAR(cov[30], -normalised_legendre(31, 0.5), 1e-6);
  EXPECT_TRUE(std::isnan(cov[31]) && std::isnan(cov[32]));
}

TEST(LegendreTable, EvaluationIsTheSumOfTheTermsWithTheZeroReplacedInside) {
  LegendreTable t(std::vector<RegcovRange>{{1, 0, 10, 5}});
  std::vector<double> cov(5);
  t.evaluate(1, 5, 10, 0, cov);  // the centre: x = 0
  EXPECT_EQ(std::make_tuple(cov[0], cov[2], cov[4]), std::make_tuple(1.0e-12, 1.0e-12, 1.0e-12));
  // Even orders: the x^2 term gives 0, replaced by 1e-12, then the constant term is added.
  EXPECT_EQ(cov[1], 1.0e-12 + t.coef(2, 0, 1));
  EXPECT_EQ(cov[3], (1.0e-12 + 0.0 * t.coef(4, 2, 1)) + t.coef(4, 0, 1));
}

TEST(FixedOutput, SameBytesAsTheSharedFormatter) {
  auto f05 = [](auto v) {
    std::string s;
    append_f05(s, v);
    return s;
  };
  // Ties to even on the exact binary value: 123456.703125, 0.015625, 0.046875.
  EXPECT_EQ(f05(123456.7f) + f05(0.015625) + f05(0.046875) + f05(1.1f), " 123456.70312 .01562 .04688 1.10000");
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> values{0.0, -0.0, 1e300, -1e300, 1e33, 4.9e-324, 0.000005, 0.000015, inf, -inf, std::nan(""),
                             2147483648.0, -2147483648.0};
  const Format fmt("(1x,f0.5)");
  for (double v : values) {
    ASSERT_EQ(f05(v) + "\n", fmt.write(FormatList(v))) << v;
    const auto f = static_cast<float>(v);
    ASSERT_EQ(f05(f) + "\n", fmt.write(FormatList(f))) << f;
  }
}

TEST(RegcovRecords, ColumnsClampingAndLineRules) {
  const std::vector<RegcovRange> r{{2, 100, 200, 2}};
  EXPECT_EQ(run_records(r, "7 150 3.5\n"), " 7 150 .00000 -1.11803 3.50000\n");
  // Truncation to 150 for the polynomial; the column keeps the r4 digits of 150.9.
  EXPECT_EQ(run_records(r, "7 150.9 3.5\n"), " 7 150.89999 .00000 -1.11803 3.50000\n");
  // Clamping to the limits (sqrt(3) and sqrt(5) at x = -1 and 1); the column keeps its value.
  EXPECT_EQ(run_records(r, "1 50 9\n2 250 9\n3 -7 9\n"),
            " 1 50 -1.73205 2.23607 9\n 2 250 1.73205 2.23607 9\n 3 -7 -1.73205 2.23607 9\n");
  // Non-numeric items are 0, written as integers; a CRLF line end is removed; -0.0 is an integer.
  EXPECT_EQ(run_records(r, "abc 150 x1\r\n-0 150 -0.5\n"), " 0 150 .00000 -1.11803 0\n 0 150 .00000 -1.11803 -.50000\n");
  // Beyond 2^24 digits are lost; beyond 32 bits, fixed notation and the nearest 32-bit integer.
  EXPECT_EQ(run_records(r, "16777217 3000000000\n-2147483648 -3000000000\n1 2147483648\n"),
            " 16777216 3000000000.00000 1.73205 2.23607\n -2147483648 -3000000000.00000 -1.73205 2.23607\n"
            " 1 2147483648.00000 1.73205 2.23607\n");
  // Equal limits give not-a-number; limits the wrong way round clamp to the maximum first.
  EXPECT_EQ(run_records({{1, 100, 100, 2}}, "100 1\n5 2\n"), " 100 NaN NaN 1\n 5 NaN NaN 2\n");
  EXPECT_EQ(run_records({{1, 200, 100, 1}}, "150 1\n"), " 150 1.73205 1\n");
  // Two ranges on one column, and on the last column (the line ends after the first set).
  const std::vector<RegcovRange> same{{3, 0, 10, 1}, {3, 0, 20, 1}};
  EXPECT_EQ(run_records(same, "1 2 5 4\n") + run_records(same, "1 2 5\n"), " 1 2 5 .00000 -.86603 4\n 1 2 5 .00000\n");
  // A position below the previous one writes no column; the rest is written from the last one.
  EXPECT_EQ(run_records({{3, 0, 10, 1}, {1, 0, 10, 1}}, "1 2 5 4\n"), " 1 2 5 .00000 -1.38564 2 5 4\n");
  // No ranges: one-column records write nothing at all, blank lines too; longer ones are copied.
  EXPECT_EQ(run_records({}, "5\n\n1 2.5 3\n"), " 1 2.50000 3\n");
  // No polynomials: the columns are still copied; on a one-column record the line still ends.
  EXPECT_EQ(run_records({{2, 0, 10, 0}}, "1 2 3\n") + run_records({{1, 0, 10, 0}}, "4\n") +
                run_records({{1, 0, 10, -3}}, "4 5\n"),
            " 1 2 3\n 4\n 4 5\n");
  // One-column records with several ranges: each range ends a line.
  EXPECT_EQ(run_records({{1, 0, 10, 1}, {1, 0, 10, 1}}, "5\n"), " 5 .00000\n .00000\n");
  // Lines cut at 255 characters; a last line without a line end; long records copied whole.
  EXPECT_EQ(run_records({}, "7" + std::string(249, ' ') + "123456789\n1 2"), " 7 12345\n 1 2\n");
  std::string line, expect = " 1 -1.38564";
  for (int i = 1; i <= 120; ++i) line += std::to_string(i % 10) + " ";
  for (int i = 2; i <= 120; ++i) expect += " " + std::to_string(i % 10);
  EXPECT_EQ(run_records({{1, 0, 10, 1}}, line + "\n"), expect + "\n");
}

TEST(RegcovRecords, MoreThanAHundredPolynomialsBreakTheLine) {
  const std::string text = run_records({{1, 0, 10, 102}}, "5 1 2\n");
  // 100 values on the first line, then the last two and the rest of the record.
  const std::string first = text.substr(0, text.find('\n'));
  EXPECT_EQ(std::make_pair(std::count(first.begin(), first.end(), ' '), std::count(text.begin(), text.end(), '\n')),
            std::make_pair(std::ptrdiff_t{101}, std::ptrdiff_t{2}));
  // Orders 1 to 4 at x = 0: 1e-12, -sqrt(5) / 2, 1e-12, 9 / 8; from 101 on inf / inf.
  EXPECT_TRUE(text.starts_with(" 5 .00000 -1.11803 .00000 1.12500 ")) << text;
  EXPECT_TRUE(text.ends_with("\n NaN NaN 1 2\n")) << text;
  const std::string hundred = run_records({{1, 0, 10, 100}}, "5 1\n");
  EXPECT_EQ(std::count(hundred.begin(), hundred.end(), '\n'), 1);
  EXPECT_EQ(std::count(hundred.begin(), hundred.end(), ' '), 102);
}

TEST(RegcovRecords, ShortRecordsStopAndKeepWhatWasWritten) {
  RegcovRecords loop({{2, 100, 200, 2}});
  std::istringstream in("7 150 3.5\n\n8 150\n");  // a blank line in the file
  std::ostringstream out;
  EXPECT_EQ(stop_output([&] { loop.run(in, out); }), " *** error : nn < last position\n");
  EXPECT_EQ(out.str() + std::to_string(loop.records()), " 7 150 .00000 -1.11803 3.50000\n1");
  // Any position beyond the record stops; a position no line can reach sizes nothing.
  std::string text;
  for (auto [first, last, message] : {std::tuple{3, 1, " *** error : nn < position\n"},
                                      std::tuple{2147483647, 1, " *** error : nn < position\n"},
                                      std::tuple{1, 2147483647, " *** error : nn < last position\n"}}) {
    RegcovRecords two({{first, 0, 10, 1}, {last, 0, 10, 1}});
    EXPECT_EQ(stop_output([&] { two.record("1 2", text); }), message);
  }
  EXPECT_EQ(text, "");
  EXPECT_EQ(regcov_positions(" 3 1.9 x 7e0"), (std::vector<std::int32_t>{3, 1, 0, 7}));
  EXPECT_EQ(regcov_positions(""), std::vector<std::int32_t>{});
}

TEST(RegcovProgram, DialogueFilesAndRecordCount) {
  write_file("prog_in.txt", "7 150 3.5\n8 120 4\n");
  std::istringstream answers("prog_in.txt\nprog_out.txt   \n2\n100,200\n 2\n");
  CaptureOutput cap;
  regcov(answers);
  EXPECT_EQ(cap.text(),
            " Regcov ver. 2.6\n Name of input file\n Name of output file\n Position for regression\n"
            " 1  th range: min & max;  # polynomials\n # records = 2\n");
  EXPECT_EQ(read_file("prog_out.txt"), " 7 150 .00000 -1.11803 3.50000\n 8 120 -1.03923 .08944 4\n");
  // A missing input file is created empty.
  std::remove("prog_missing.txt");
  std::istringstream none("prog_missing.txt\nprog_out2.txt\n\n");
  cap.clear();
  regcov(none);
  EXPECT_TRUE(cap.text().ends_with(" # records = 0\n"));
  EXPECT_TRUE(test::file_exists("prog_missing.txt") && read_file("prog_missing.txt").empty());
  EXPECT_EQ(read_file("prog_out2.txt"), "");
}

TEST(RegcovProgram, DialogueFailures) {
  write_file("prog_in3.txt", "1 2\n");
  auto fails = [](const std::string& answers) {
    std::istringstream in(answers);
    const std::string text = stop_output([&] { regcov(in); });
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
  };
  const std::string eof = " *** error : end of input while reading the answers\n",
                    three = " *** error : the answer for range 1 must be three integers: min, max, # polynomials\n";
  for (const char* a : {"", "prog_in3.txt\nprog_out3.txt\n", "prog_in3.txt\nprog_out3.txt\n1 2\n1 10 2\n"})
    EXPECT_EQ(fails(a), eof) << a;
  for (const char* a : {"1 abc 2", "1 2.5 2"}) EXPECT_EQ(fails(std::string("prog_in3.txt\nprog_out3.txt\n1\n") + a + "\n"), three);
  EXPECT_EQ(fails("prog_in3.txt\nprog_out3.txt\n2 0\n"), " *** error : position below 1 in the position line\n");
  EXPECT_EQ(fails("prog_in3.txt\nprog_in3.txt\n1\n"), " *** error : input and output are the same file: prog_in3.txt\n");
  EXPECT_EQ(read_file("prog_in3.txt"), "1 2\n");
  EXPECT_EQ(fails("prog_in3.txt\nprog_out3.txt\n1\n0 10 100000\n"), " *** error : too many polynomials\n");
  EXPECT_EQ(fails("prog_in3.txt\nno_such_dir/x.txt\n1\n"), " *** error : cannot open file no_such_dir/x.txt\n");
  std::string many;
  for (int i = 0; i < 101; ++i) many += "1 ";
  EXPECT_EQ(fails("prog_in3.txt\nprog_out3.txt\n" + many + "\n"), " into m: 100 items\n");
}

// Runs the regcov program with `answers` on standard input; returns the exit status and its
// standard output in `output`.
int run_binary(const std::string& answers, std::string& output) {
  write_file("e2e.answers", answers);
  const std::string cmd = std::string(MMEKIT_BINARY_DIR) + "/bin/regcov < e2e.answers > e2e.stdout 2>&1";
  const int status = std::system(cmd.c_str());
  output = read_file("e2e.stdout");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RegcovBinary, ExitStatusOutputAndFiles) {
  // A run exits with 0. A stop (at the blank line) exits with 1 and keeps the lines written
  // before it, more than fill a buffer: the output of the same records without it.
  std::string data, out;
  for (int i = 0; i < 5000; ++i) data += std::to_string(i) + " 150 3.5\n";
  write_file("e2e_in.txt", data);
  write_file("e2e_in2.txt", data + "\n1 150 2\n");
  EXPECT_EQ(run_binary("e2e_in.txt\ne2e_out.txt\n2\n100 200 2\n", out), 0);
  EXPECT_TRUE(out.ends_with(" 1  th range: min & max;  # polynomials\n # records = 5000\n")) << out;
  EXPECT_EQ(run_binary("e2e_in2.txt\ne2e_out2.txt\n2\n100 200 2\n", out), 1);
  EXPECT_TRUE(out.ends_with(" *** error : nn < last position\n")) << out;
  const std::string written = read_file("e2e_out.txt");
  EXPECT_TRUE(written.ends_with("\n 4999 150 .00000 -1.11803 3.50000\n"));
  EXPECT_EQ(read_file("e2e_out2.txt"), written);
}

TEST(Nums2, SplitsAtBlanksOnlyAndDecodesTwelveCharacterFields) {
  std::vector<float> x(5, 9.0f);
  FixedTexts xc(5, 8);
  for (int i = 1; i <= 5; ++i) xc.set(i, "junk");
  std::int32_t m = -7;
  const auto split = [&](const char* line) {
    nums2(line, m, x, xc);
    return std::make_tuple(m, x, xc.to_vector());
  };
  // All blank: nothing, everything cleared; the comma ends the number but not the item.
  EXPECT_EQ(split("      "), std::make_tuple(0, std::vector<float>(5, 0.0f), Texts(5, "")));
  EXPECT_EQ(split(" 1,2 3"), std::make_tuple(2, std::vector<float>{1, 3, 0, 0, 0}, Texts{"1,2", "3", "", "", ""}));
  // 12 characters make a number; texts are cut to the element width; a tab belongs to the item.
  EXPECT_EQ(split("123456789012345 a\tb 'q' -2.5 1.5e2"),
            std::make_tuple(5, std::vector<float>{123456789012.0f, 0, 0, -2.5f, 150}, Texts{"12345678", "a\tb", "'q'", "-2.5", "1.5e2"}));
  // Without xc, with xc only, and counting only.
  nums2("4 5 6", m, std::span<float>(x));
  EXPECT_EQ(std::make_tuple(m, x[2]), std::make_tuple(3, 6.0f));
  nums2("4 5 6 7", m, xc);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(4))), std::make_tuple(4, "7"));
  nums2("  a b  c ", m);
  EXPECT_EQ(m, 3);
}

TEST(Nums2, TooManyItemsIsReportedWithTheCapacityOfTheTexts) {
  std::string line;
  for (int i = 1; i <= 101; ++i) line += std::to_string(i % 10) + " ";
  std::vector<float> x(1000), small(2);
  FixedTexts xc(100, 1), three(3, 4);
  std::int32_t m = 0;
  const std::string head = " Error in nums2 splitting string starting: \n ";
  EXPECT_EQ(stop_output([&] { nums2(line, m, x, xc); }), head + line.substr(0, 80) + "\n into m: 100 items\n");
  // The numbers overflow first, but the texts' capacity is printed; numbers only: their own.
  const std::string padded = "1 2 3" + std::string(75, ' ');
  EXPECT_EQ(stop_output([&] { nums2("1 2 3", m, small, three); }), head + padded + "\n into m: 3 items\n");
  EXPECT_EQ(stop_output([&] { nums2("1 2 3", m, std::span<float>(small)); }), head + padded + "\n into m: 2 items\n");
}

TEST(Nums, DecodesByHandAndKeepsOldItems) {
  std::vector<std::int32_t> x(5, 99);
  FixedTexts xc(5, 20);
  std::int32_t m = 0;
  const auto split = [&](const char* line) {
    nums(line, x, xc, 5, m);
    return std::make_tuple(m, x, xc.to_vector());
  };
  const std::vector<std::int32_t> first{0, 0, 0, 12, 3};
  EXPECT_EQ(split("a1 - --5 12abc 3.7 "), std::make_tuple(5, first, Texts{"a1", "-", "--5", "12abc", "3.7"}));  // no trailing blank
  // One item: the old second to fourth items stay, the fifth is blanked.
  EXPECT_EQ(split("cro "), std::make_tuple(1, first, Texts{"cro", "-", "--5", "12abc", ""}));
  // The last item does not end at a blank; ten characters decode, eleven leave the number.
  EXPECT_EQ(split("7 1234567890 12345678901 -42"),
            std::make_tuple(3, std::vector<std::int32_t>{7, 1234567890, 0, 12, 3}, Texts{"7", "1234567890", "12345678901", "12abc", ""}));

  std::vector<std::int32_t> two(2);
  FixedTexts xc2(2, 4);
  EXPECT_EQ(stop_output([&] { nums("1 2 3 ", two, xc2, 2, m); }),
            " Error in nums splitting string starting: \n 1 2 3 " + std::string(74, ' ') + "\n into m: 2 items\n");
  EXPECT_THROW(nums("1 ", two, xc2, 3, m), std::invalid_argument);
}

TEST(FieldToInt, WrapsAroundInThirtyTwoBits) {
  const std::pair<const char*, std::int32_t> cases[] = {
      {"12abc", 12}, {"-17", -17}, {"-", 0}, {"--5", 0}, {"+5", 0}, {"", 0}, {"2147483647", 2147483647},
      {"2147483648", INT32_MIN}, {"-2147483648", INT32_MIN}, {"4294967297", 1},
      {"9999999999", 1410065407},  // 9999999999 - 2 * 2^32
      {"123456789012345678901234567890", 1312754386}};
  for (const auto& [text, value] : cases) EXPECT_EQ(field_to_int(text), value) << text;
  EXPECT_EQ(ints_to_string(std::vector<std::int32_t>{1, -2, 30, INT32_MIN}), "1 -2 30 -2147483648");
  EXPECT_EQ(ints_to_string({}), "");
}

TEST(ReadItems, CommentsBlankLinesLineLengthAndEndOfFile) {
  std::istringstream in("# a comment\n    # an indented comment\n  7 # text\nab#c d\n     \n  x  -3  \r\nlast");
  std::vector<std::int32_t> x(10);
  FixedTexts xc(10, 20);
  std::int32_t m = 0;
  const auto next = [&](std::istream& unit) {
    read_items(unit, x, xc, m);
    return std::make_tuple(m, x[0], std::string(xc(1)));
  };
  EXPECT_EQ(next(in), std::make_tuple(1, 7, std::string("7")));
  EXPECT_EQ(next(in), std::make_tuple(1, 0, std::string("ab")));
  EXPECT_EQ(std::get<0>(next(in)), 0);  // a blank line is returned, not skipped
  EXPECT_EQ(next(in), std::make_tuple(2, 0, std::string("x")));
  EXPECT_EQ(std::make_tuple(x[1], std::string(xc(2))), std::make_tuple(-3, std::string("-3")));  // no "\r"
  EXPECT_EQ(next(in), std::make_tuple(1, 0, std::string("last")));
  EXPECT_EQ(std::get<0>(next(in)), -1);
  std::istringstream raw("# a b\n"), plain("  # a\n1 2\n");
  read_items(raw, x, xc, m, true);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1))), std::make_tuple(3, std::string("#")));
  std::vector<std::int32_t> counts;
  for (int i = 0; i < 3; ++i) counts.push_back((read_items_plain(plain, x, xc, m), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{2, 2, -1}));

  const std::int32_t saved = text_settings.line_length;
  text_settings.line_length = 5;
  // "1234 " after the cut; "12345" has no blank to end the item; " 1234" is shifted left.
  std::istringstream cut("1234 67\n12345\n 1234\n");
  counts.clear();
  for (int i = 0; i < 3; ++i) counts.push_back((read_items(cut, x, xc, m), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{1, 0, 1}));
  EXPECT_EQ(x[0], 1234);
  text_settings.line_length = saved;

  std::istringstream reals("  1.5 abc 2,5\n# 3\n");
  std::vector<float> r(4);
  read_items_real(reals, m, r, xc);
  EXPECT_EQ(std::make_tuple(m, r), std::make_tuple(3, std::vector<float>{1.5f, 0.0f, 2.0f, 0.0f}));
  counts.clear();
  for (int i = 0; i < 2; ++i) counts.push_back((read_items_real(reals, m, r, xc), m));
  EXPECT_EQ(counts, (std::vector<std::int32_t>{2, -1}));  // no comment handling
}

TEST(CheckTextFile, ReportsTabsAndOldMacLineEndsOnTheFirstLine) {
  const auto check = [](const char* text, const char* name) {
    std::istringstream in(text);
    return stop_output([&] { check_text_file(in, name); });
  };
  EXPECT_NE(check("1\t2\n3 4\n", "/some/dir/data.txt").find("in file: \"data.txt\""), std::string::npos);
  EXPECT_EQ(check("1 2\r3 4\r", "old.txt"),
            "\n Mac old newline format detected in file: \"old.txt\"\n"
            " Convert it to Unix newline format, e.g. \"flip -u <file>\"\n");
  EXPECT_NE(check("1\t2\r5\n", "both").find("Mac old newline"), std::string::npos);  // reported first
  // A tab on line 2 is not seen, CRLF line ends pass, and the unit is rewound.
  CaptureOutput cap;
  std::istringstream tab2("1 2\n3\t4\n"), dos("1 2\r\n3 4\r\n"), empty("");
  check_text_file(tab2, "ok.txt");
  check_text_file(dos, "dos.txt");
  check_text_file(empty, "empty.txt");
  EXPECT_EQ(cap.text(), "");
  std::string first;
  EXPECT_EQ(std::getline(tab2, first) ? first : "", "1 2");
}

TEST(CommandLine, OptionsAndTheirValues) {
  const char* argv[] = {"prog", "-a", "1.5", "x", "--b", "-c", "  -e  ", "7"};
  set_command_line(8, argv);
  ASSERT_EQ(command_line().size(), 7u);
  std::int32_t m = 0;
  std::vector<double> x(4, 9.0);
  FixedTexts xc(4, 250), one(1, 10);
  get_command_option(" -a ", m, x, xc);  // stops at "--b"
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1)) + std::string(xc(2)), x), std::make_tuple(2, "1.5x", std::vector<double>{1.5, 0, 0, 0}));
  get_command_option("--b", m, xc);  // "-c" does not start with "--"
  EXPECT_EQ(std::make_tuple(m, std::string(xc(2))), std::make_tuple(3, "-e"));
  get_command_option("-e", m);
  EXPECT_EQ(m, 1);
  get_command_option("-z", m, x, xc);
  EXPECT_EQ(std::make_tuple(m, std::string(xc(1))), std::make_tuple(-1, ""));
  get_command_option("--b", m, one);
  EXPECT_EQ(m, 1);  // no more than the texts hold

  std::vector<std::string> valid{"-a", "--b", "-c ", "-e"};
  CaptureOutput cap;
  check_command_options(valid);
  EXPECT_EQ(cap.text(), "");
  valid.pop_back();
  EXPECT_EQ(stop_output([&] { check_command_options(valid); }), " Command argument NOT valid:  -e\n");
  set_command_line(std::vector<std::string>{});

  std::vector<std::string> list;
  for (const std::string& s : {std::string("-a   "), std::string("--long"), std::string(300, 'z')}) append_string(s, list);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[2].size(), 250u);
  list.pop_back();
  print_option_list("Options:   ", list);
  EXPECT_EQ(cap.text(), "    Options: -a --long\n");
}

}  // namespace
}  // namespace mmekit
