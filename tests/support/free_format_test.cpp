#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;

namespace {
const double inf = std::numeric_limits<double>::infinity();
}

TEST(FreeFormat, OutputLine) {
  EXPECT_EQ(free_format("Regcov ver. 2.6"), " Regcov ver. 2.6");
  EXPECT_EQ(free_format(3, " th range: min & max;  # polynomials"), " 3  th range: min & max;  # polynomials");
  EXPECT_EQ(free_format(), "");
  EXPECT_EQ(free_format(std::string("ab  "), true, false), " ab   T F");
  EXPECT_EQ(free_format(std::int64_t{-9223372036854775807 - 1}), " -9223372036854775808");
  EXPECT_EQ(free_format(1.0, 0.1, 0.1f, -2.5, -0.0, 0.0f), " 1.0 0.1 0.1 -2.5 -0.0 0.0");
  EXPECT_EQ(free_format(1.0 / 3, 1.0f / 3), " 0.3333333333333333 0.33333334");
  EXPECT_EQ(free_format(1.5e-10, 1e-10, 1e20, 1e300), " 1.5E-10 1.0E-10 1.0E+20 1.0E+300");
  EXPECT_EQ(free_format(123456789012345.0, 1e15, 1e-4, 9.99e-5), " 123456789012345.0 1.0E+15 0.0001 9.99E-05");
  EXPECT_EQ(free_format(16777216.0f, 3e38f), " 16777216.0 3.0E+38");
  EXPECT_EQ(free_format(std::nan(""), inf, -inf), " NaN Infinity -Infinity");
  CaptureOutput cap;
  print_free("# records =", 0);
  EXPECT_EQ(cap.text(), " # records = 0\n");
  // Random reals of doubles and floats read back exactly, with a point in each.
  std::mt19937_64 rng(99);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  for (int n = 0; n < 1000; ++n) {
    const double v = std::ldexp(mant(rng), static_cast<int>(rng() % 601) - 300);
    const auto f = static_cast<float>(std::ldexp(mant(rng), static_cast<int>(rng() % 75) - 37));
    const std::string s = free_format(v), t = free_format(f);
    ASSERT_TRUE(s.find('.') != std::string::npos && t.find('.') != std::string::npos) << s << t;
    ASSERT_EQ(std::make_pair(std::strtod(s.c_str(), nullptr), std::strtof(t.c_str(), nullptr)), std::make_pair(v, f)) << s << t;
  }
}

TEST(FreeFormat, Read) {
  std::istringstream in("1 2\n\n  3 rest of line\n4,5 , 6\n7\n1,,3\n9 / 8\n'it''s' \"two words\" plain,+4\n"
                        "0.1 1d-3 +2 .5 -7.\n1.00000017881393432 1.00000017881393432\n");
  std::int32_t a = 0, b = 0, c = 0;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);  // over lines; the rest of the last is skipped
  EXPECT_EQ(std::make_tuple(a, b, c), std::make_tuple(1, 2, 3));
  std::vector<std::int64_t> v(3);
  Array1<std::int32_t> arr(1, 0);
  ASSERT_EQ(read_free(in, v, arr), ReadStatus::ok);
  EXPECT_EQ(v, (std::vector<std::int64_t>{4, 5, 6}));
  EXPECT_EQ(arr(1), 7);
  a = c = 0, b = -1;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);  // a null value leaves its target
  EXPECT_EQ(std::make_tuple(a, b, c), std::make_tuple(1, -1, 3));
  a = b = c = -1;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);  // the slash ends the read
  EXPECT_EQ(std::make_tuple(a, b, c), std::make_tuple(9, -1, -1));
  std::string s1, s2, s3;
  ASSERT_EQ(read_free(in, s1, s2, s3, a), ReadStatus::ok);
  EXPECT_EQ(std::make_tuple(s1, s2, s3, a), std::make_tuple("it's", "two words", "plain", 4));
  double d1 = 0, d2 = 0, d3 = 0;
  float f1 = 0, f2 = 0;
  ASSERT_EQ(read_free(in, d1, d2, d3, f1, f2), ReadStatus::ok);
  EXPECT_EQ(std::make_tuple(d1, d2, d3, f1, f2), std::make_tuple(0.1, 1e-3, 2.0, 0.5f, -7.0f));
  // Just below the midpoint of two floats, within half a double ulp of it: decoding through
  // double would land on the midpoint and round up to even; the float decoding rounds down.
  float f = 0;
  double d = 0;
  ASSERT_EQ(read_free(in, f, d), ReadStatus::ok);
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  EXPECT_NE(static_cast<float>(d), f);
  EXPECT_EQ(read_free(in, a), ReadStatus::end_of_file);

  std::string s;
  auto read = [](const char* text, auto&... targets) {
    std::istringstream is(text);
    return read_free(is, targets...);
  };
  for (const char* text : {"1 x 3\n", "1.5\n", "'7'\n", "99999999999\n"})
    EXPECT_EQ(read(text, a, b, c), ReadStatus::bad_value) << text;
  EXPECT_EQ(read("'open\n", s), ReadStatus::bad_value);
  EXPECT_EQ(read("+-1\n", d), ReadStatus::bad_value);
  EXPECT_EQ(read("1 2\n", a, b, c), ReadStatus::end_of_file);
  EXPECT_EQ(read("", a), ReadStatus::end_of_file);
}

TEST(FixedRead, TheF12Rule) {
  const std::tuple<const char*, int, double> good[] = {
      {"12.5", 12, 12.5}, {"  1 2 ", 12, 12.0}, {"12,7", 12, 12.0}, {"1234567890123", 12, 123456789012.0},
      {"123456", 3, 123.0}, {"1e3", 12, 1000.0}, {"1D3", 12, 1000.0}, {"1.5d-2", 12, 0.015}, {"1+3", 12, 1000.0},
      {"1-3", 12, 0.001}, {"-3", 12, -3.0}, {"+.5", 12, 0.5}, {"5.", 12, 5.0}, {"   ", 12, 0.0},
      {"-Infinity", 12, -inf}, {"1e999", 12, inf}, {"-1e-999", 12, -0.0}};
  for (const auto& [text, width, want] : good) {
    double d = 7;
    EXPECT_TRUE(read_fixed(text, d, width)) << text;
    EXPECT_EQ(d, want) << text;
    EXPECT_EQ(std::signbit(d), std::signbit(want)) << text;
  }
  double d = 0;
  EXPECT_TRUE(read_fixed("nan", d) && std::isnan(d));
  for (const char* bad : {"abc", "1e", "1.2.3", "--1", ".", "-", "1x", "e5", "1e+", "12a4"}) {
    d = 7;
    EXPECT_FALSE(read_fixed(bad, d)) << bad;
    EXPECT_EQ(d, 0.0) << bad;
  }
  // Floats are rounded once from the decimal text. 1 + 2^-24 + a little is above the midpoint
  // between 1 and the next float, though within half a double ulp of it: through double it
  // would tie and round to even (1.0f). Just below the midpoint 1 + 3 * 2^-24, the float below.
  float f = 0;
  EXPECT_EQ(static_cast<float>(std::strtod("1.00000005960464478", nullptr)), 1.0f);
  ASSERT_TRUE(read_fixed("1.00000005960464478", f, 20));
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  ASSERT_TRUE(read_fixed("1.00000017881393432", f, 20));
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  const std::pair<const char*, float> floats[] = {
      {"123456.7", 123456.7f}, {"16777217", 16777216.0f}, {"1e39", std::numeric_limits<float>::infinity()}, {"0.0001e-45", 0.0f}};
  for (const auto& [text, want] : floats) {
    EXPECT_TRUE(read_fixed(text, f)) << text;
    EXPECT_EQ(f, want) << text;
  }
}
