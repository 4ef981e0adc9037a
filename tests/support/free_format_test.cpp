#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;

TEST(FreeFormat, OutputLine) {
  EXPECT_EQ(free_format("Regcov ver. 2.6"), " Regcov ver. 2.6");
  EXPECT_EQ(free_format(3, " th range: min & max;  # polynomials"), " 3  th range: min & max;  # polynomials");
  EXPECT_EQ(free_format("# records =", 12), " # records = 12");
  EXPECT_EQ(free_format(), "");
  EXPECT_EQ(free_format(std::string("ab  "), true, false), " ab   T F");
  EXPECT_EQ(free_format(std::int64_t{-9223372036854775807 - 1}), " -9223372036854775808");
  EXPECT_EQ(free_format(1.0, 0.1, 0.1f, -2.5, -0.0, 0.0f), " 1.0 0.1 0.1 -2.5 -0.0 0.0");
  EXPECT_EQ(free_format(1.0 / 3, 1.0f / 3), " 0.3333333333333333 0.33333334");
  EXPECT_EQ(free_format(1.5e-10, 1e-10, 1e20, 1e300), " 1.5E-10 1.0E-10 1.0E+20 1.0E+300");
  EXPECT_EQ(free_format(123456789012345.0, 1e15, 1e-4, 9.99e-5), " 123456789012345.0 1.0E+15 0.0001 9.99E-05");
  EXPECT_EQ(free_format(16777216.0f, 3e38f), " 16777216.0 3.0E+38");
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(free_format(std::nan(""), inf, -inf), " NaN Infinity -Infinity");
  CaptureOutput cap;
  print_free("# records =", 0);
  EXPECT_EQ(cap.text(), " # records = 0\n");
}

TEST(FreeFormat, RealsReadBackExactly) {
  std::mt19937_64 rng(99);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-300, 300);
  for (int n = 0; n < 20000; ++n) {
    double v = std::ldexp(mant(rng), ex(rng));
    std::string s = free_format(v);
    ASSERT_EQ(s[0], ' ');
    ASSERT_NE(s.find('.'), std::string::npos) << s;
    ASSERT_EQ(std::strtod(s.c_str(), nullptr), v) << s;
    float f = static_cast<float>(std::ldexp(mant(rng), ex(rng) / 8));
    std::string t = free_format(f);
    ASSERT_NE(t.find('.'), std::string::npos) << t;
    ASSERT_EQ(std::strtof(t.c_str(), nullptr), f) << t;
  }
}

TEST(FreeFormat, ReadSpansLinesAndSkipsTheRest) {
  std::istringstream in("1 2\n\n  3 rest of line\n4,5 , 6\n7\n");
  std::int32_t a = 0, b = 0, c = 0;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 2);
  EXPECT_EQ(c, 3);
  std::vector<std::int64_t> v(3);
  ASSERT_EQ(read_free(in, v), ReadStatus::ok);
  EXPECT_EQ(v, (std::vector<std::int64_t>{4, 5, 6}));
  Array1<std::int32_t> arr(1, 7);
  ASSERT_EQ(read_free(in, arr), ReadStatus::ok);
  EXPECT_EQ(arr(1), 7);
  EXPECT_EQ(read_free(in, a), ReadStatus::end_of_file);
}

TEST(FreeFormat, ReadNullValuesSlashAndTexts) {
  std::istringstream in("1,,3\n9 / 8\n'it''s' \"two words\" plain,+4\n");
  std::int32_t a = 0, b = -1, c = 0;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, -1);  // null value: unchanged
  EXPECT_EQ(c, 3);
  a = b = c = -1;
  ASSERT_EQ(read_free(in, a, b, c), ReadStatus::ok);  // the slash ends the read
  EXPECT_EQ(a, 9);
  EXPECT_EQ(b, -1);
  EXPECT_EQ(c, -1);
  std::string s1, s2, s3;
  ASSERT_EQ(read_free(in, s1, s2, s3, a), ReadStatus::ok);
  EXPECT_EQ(s1, "it's");
  EXPECT_EQ(s2, "two words");
  EXPECT_EQ(s3, "plain");
  EXPECT_EQ(a, 4);
}

TEST(FreeFormat, ReadRealsInTheirOwnPrecision) {
  std::istringstream in("0.1 1d-3 +2 .5 -7.\n1.00000017881393432 1.00000017881393432\n");
  double d1 = 0, d2 = 0, d3 = 0;
  float f1 = 0, f2 = 0;
  ASSERT_EQ(read_free(in, d1, d2, d3, f1, f2), ReadStatus::ok);
  EXPECT_EQ(d1, 0.1);
  EXPECT_EQ(d2, 1e-3);
  EXPECT_EQ(d3, 2.0);
  EXPECT_EQ(f1, 0.5f);
  EXPECT_EQ(f2, -7.0f);
  // Just below the midpoint of two floats, within half a double ulp of it: decoding through
  // double would land on the midpoint and round up to even; the float decoding rounds down.
  float f = 0;
  double d = 0;
  ASSERT_EQ(read_free(in, f, d), ReadStatus::ok);
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  EXPECT_NE(static_cast<float>(d), f);
}

TEST(FreeFormat, ReadErrors) {
  std::int32_t a = 0, b = 0, c = 0;
  {
    std::istringstream in("1 x 3\n");
    EXPECT_EQ(read_free(in, a, b, c), ReadStatus::bad_value);
  }
  {
    std::istringstream in("1.5\n");
    EXPECT_EQ(read_free(in, a), ReadStatus::bad_value);  // not an integer
  }
  {
    std::istringstream in("'7'\n");
    EXPECT_EQ(read_free(in, a), ReadStatus::bad_value);  // a text where a number belongs
  }
  {
    std::istringstream in("'open\n");
    std::string s;
    EXPECT_EQ(read_free(in, s), ReadStatus::bad_value);
  }
  {
    std::istringstream in("99999999999\n");
    EXPECT_EQ(read_free(in, a), ReadStatus::bad_value);  // beyond i4
  }
  {
    std::istringstream in("+-1\n");
    double d;
    EXPECT_EQ(read_free(in, d), ReadStatus::bad_value);
  }
  {
    std::istringstream in("1 2\n");
    EXPECT_EQ(read_free(in, a, b, c), ReadStatus::end_of_file);
  }
  {
    std::istringstream in("");
    EXPECT_EQ(read_free(in, a), ReadStatus::end_of_file);
  }
}

TEST(FixedRead, TheF12Rule) {
  double d = -1;
  float f = -1;
  auto ok = [&](std::string_view s, int w = 12) { return read_fixed(s, d, w); };
  EXPECT_TRUE(ok("12.5"));
  EXPECT_EQ(d, 12.5);
  EXPECT_TRUE(ok("  1 2 "));
  EXPECT_EQ(d, 12.0);
  EXPECT_TRUE(ok("12,7"));
  EXPECT_EQ(d, 12.0);
  EXPECT_TRUE(ok("1234567890123"));
  EXPECT_EQ(d, 123456789012.0);
  EXPECT_TRUE(ok("123456", 3));
  EXPECT_EQ(d, 123.0);
  EXPECT_TRUE(ok("1e3"));
  EXPECT_EQ(d, 1000.0);
  EXPECT_TRUE(ok("1D3"));
  EXPECT_EQ(d, 1000.0);
  EXPECT_TRUE(ok("1.5d-2"));
  EXPECT_EQ(d, 0.015);
  EXPECT_TRUE(ok("1+3"));
  EXPECT_EQ(d, 1000.0);
  EXPECT_TRUE(ok("1-3"));
  EXPECT_EQ(d, 0.001);
  EXPECT_TRUE(ok("-3"));
  EXPECT_EQ(d, -3.0);
  EXPECT_TRUE(ok("+.5"));
  EXPECT_EQ(d, 0.5);
  EXPECT_TRUE(ok("5."));
  EXPECT_EQ(d, 5.0);
  EXPECT_TRUE(ok("   "));
  EXPECT_EQ(d, 0.0);
  EXPECT_TRUE(ok("nan"));
  EXPECT_TRUE(std::isnan(d));
  EXPECT_TRUE(ok("-Infinity"));
  EXPECT_EQ(d, -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(ok("1e999"));
  EXPECT_EQ(d, std::numeric_limits<double>::infinity());
  EXPECT_TRUE(ok("-1e-999"));
  EXPECT_EQ(d, 0.0);
  EXPECT_TRUE(std::signbit(d));
  EXPECT_TRUE(read_fixed("1e39", f));
  EXPECT_EQ(f, std::numeric_limits<float>::infinity());
  EXPECT_TRUE(read_fixed("0.0001e-45", f));
  EXPECT_EQ(f, 0.0f);
  for (const char* bad : {"abc", "1e", "1.2.3", "--1", ".", "-", "1x", "e5", "1e+", "12a4"}) {
    d = 7;
    EXPECT_FALSE(ok(bad)) << bad;
    EXPECT_EQ(d, 0.0) << bad;
  }
}

TEST(FixedRead, FloatsAreRoundedOnceFromTheDecimalText) {
  float f = 0;
  // 1 + 2^-24 + a little: above the midpoint between 1 and the next float, though within half
  // a double ulp of it. Through double it would tie and round to even (1.0f).
  ASSERT_TRUE(read_fixed("1.00000005960464478", f, 20));
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  EXPECT_EQ(static_cast<float>(std::strtod("1.00000005960464478", nullptr)), 1.0f);
  // Just below the midpoint 1 + 3 * 2^-24: the float below it, not the even one above.
  ASSERT_TRUE(read_fixed("1.00000017881393432", f, 20));
  EXPECT_EQ(f, 1.0f + std::ldexp(1.0f, -23));
  EXPECT_EQ(static_cast<float>(std::strtod("1.00000017881393432", nullptr)), 1.0f + std::ldexp(1.0f, -22));
  // Ordinary values agree with the float reading of the text.
  ASSERT_TRUE(read_fixed("123456.7", f));
  EXPECT_EQ(f, 123456.7f);
  ASSERT_TRUE(read_fixed("16777217", f));
  EXPECT_EQ(f, 16777216.0f);
}
