// Formatted output: layouts worked by hand, and the digits of random values against printf's;
// list-directed output and reading.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "common/stop.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using mmekit::test::expect_stop;

namespace {

// printf rounds the exact binary value to nearest, ties to even: the digits the layouts need.
std::string c_digits(const char* spec, int digits, double v) {
  char buf[400];
  std::snprintf(buf, sizeof buf, spec, digits, std::fabs(v));
  return buf;
}

std::string sign(double v) { return std::signbit(v) ? "-" : ""; }

std::string right(const std::string& s, int w) {
  if (w == 0) return s;
  const auto width = static_cast<std::size_t>(w);
  return s.size() > width ? std::string(width, '*') : std::string(width - s.size(), ' ') + s;
}

std::string expect_f(double v, int w, int d) {
  std::string s = c_digits("%#.*f", d, v);  // "0.xx" or "12.", the point always there
  if (d > 0 && s[0] == '0' && (w == 0 || static_cast<int>(s.size() + sign(v).size()) > w)) s.erase(0, 1);
  return right(sign(v) + s, w);
}

std::string expect_es(double v, int w, int d) { return right(sign(v) + c_digits("%.*E", d, v), w); }

}  // namespace

TEST(Format, RandomValuesMatchTheCorrectlyRoundedDigits) {
  std::mt19937_64 rng(12345);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-40, 40);
  for (int n = 0; n < 8000; ++n) {
    const double v = std::ldexp(mant(rng), ex(rng));
    const float f = static_cast<float>(v);
    ASSERT_EQ(fformat("(f0.5)", v), expect_f(v, 0, 5) + "\n") << v;
    ASSERT_EQ(fformat("(f0.5)", f), expect_f(f, 0, 5) + "\n") << f;
    ASSERT_EQ(fformat("(f12.4)", v), expect_f(v, 12, 4) + "\n") << v;
    ASSERT_EQ(fformat("(f20.12)", v), expect_f(v, 20, 12) + "\n") << v;
    ASSERT_EQ(fformat("(es13.5)", v), expect_es(v, 13, 5) + "\n") << v;
    ASSERT_EQ(fformat("(es12.4)", f), expect_es(f, 12, 4) + "\n") << f;
  }
  // Multiples of 1/64 have six decimals at most, so five-decimal rounding meets exact ties.
  std::uniform_int_distribution<int> k(-640000, 640000);
  for (int n = 0; n < 5000; ++n) {
    const double v = k(rng) / 64.0;
    ASSERT_EQ(fformat("(f0.5)", v), expect_f(v, 0, 5) + "\n") << v;
    ASSERT_EQ(fformat("(es12.2)", v), expect_es(v, 12, 2) + "\n") << v;
  }
  // Ties by hand, and the float of the layout's own example (123456.703125).
  EXPECT_EQ(fformat("(f0.2,1x,f0.2,1x,f0.0,1x,f0.0)", 0.125, 0.375, 2.5, 3.5), ".12 .38 2. 4.\n");
  EXPECT_EQ(fformat("(f0.5,es10.3,es10.3)", 123456.7f, 12345.0, 12355.0), "123456.70312 1.234E+04 1.236E+04\n");
}

TEST(Format, HandWorkedLayouts) {
  const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
  // F: the zero before the point when there is room (always with d = 0); a sign that does not fit.
  EXPECT_EQ(fformat("(f4.2,f3.2,f3.2,f5.0,f3.0)", 0.5, 0.5, -0.5, 3.7, 0.3), "0.50.50***   4. 0.\n");
  // Not-a-number and infinities, shortened or starred when the width is small.
  EXPECT_EQ(fformat("(f10.3,f2.1,f10.3,f5.1,f5.1,f3.1)", nan, nan, -inf, inf, -inf, -inf),
            "       NaN** -Infinity  Inf -Inf***\n");
  EXPECT_EQ(fformat("(f0.5,1x,f0.5,g12.5,e12.4)", inf, -inf, nan, -inf), "Infinity -Infinity         NaN   -Infinity\n");
  // E, ES: the zero before the point goes first, then stars; a three-digit exponent loses the letter;
  // rounding up to the next power of ten raises the exponent.
  EXPECT_EQ(fformat("(e9.3,e8.3,e7.3,e10.3)", 1.0, 1.0, 1.0, -9.9996), "0.100E+01.100E+01*******-0.100E+02\n");
  EXPECT_EQ(fformat("(e12.4,e12.4,e12.4)", 0.0, -0.00123456, 1e200), "  0.0000E+00 -0.1235E-02  0.1000+201\n");
  EXPECT_EQ(fformat("(e12.4e3,e12.4e1,es12.4,es10.3)", 1.5, 1e20, -1234.5, 0.0),
            " 0.1500E+001************ -1.2345E+03 0.000E+00\n");
  // G: F form and four blanks inside [0.1, 10**d) after rounding, else E form; zero with d - 1
  // decimals; G0 in the least width, 9 or 17 digits.
  EXPECT_EQ(fformat("(20g12.5)", 1.0, -2.5, 123456.7, 0.0, 1e-3),
            "  1.0000     -2.5000     0.12346E+06  0.0000     0.10000E-02\n");
  EXPECT_EQ(fformat("(4g12.5)", 99999.5, 99999.4, 0.099999, 0.0999999),
            " 0.10000E+06  99999.     0.99999E-01 0.10000    \n");
  EXPECT_EQ(fformat("(g0.4,1x,g0.4,1x,g0.4)", 3.14159, 0.5, 1234567.0), "3.142 0.5000 0.1235E+07\n");
  EXPECT_EQ(fformat("(g0,1x,g0)", 1.5, 1.5f), "1.5000000000000000 1.50000000\n");
  EXPECT_EQ(fformat("(g0.3,1x,g0.1,1x,g0.3,1x,g0.3)", 0.0, 0.0, -0.25, 99.94), "0.00 0. -0.250 99.9\n");
  EXPECT_EQ(fformat("(g9.1,g10.3,g9.3,g8.3)", 0.0, -0.25, -0.25, -0.25), "   0.    -0.250    -.250    ********\n");
  EXPECT_EQ(fformat("(g5,g0,g4,g3)", 42, 7, "ab", true), "   427  ab  T\n");
  // I, A and L.
  EXPECT_EQ(fformat("(i5.3,i3,i2,i3,i4.0,i0)", 7, -12, -12, 1000, 0, 0), "  007-12*****    0\n");
  EXPECT_EQ(fformat("(i0)", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808\n");
  EXPECT_EQ(fformat("(30I3)", std::vector<int>{1, 22, 333, 4444}), "  1 22333***\n");
  EXPECT_EQ(fformat("(a5,a2,a,l3,l1)", "ab", "abcd", std::string("xyz "), true, false), "   ababxyz   TF\n");
  EXPECT_EQ(fformat("(3i2)", Array1<std::int32_t>(0, 2, 9)), " 9 9 9\n");
  std::ostringstream os;
  fwrite(os, "(a,i3)", "n", 5);
  EXPECT_EQ(os.str(), "n  5\n");
}

TEST(Format, LiteralsPositionsGroupsAndReversion) {
  EXPECT_EQ(fformat("(' Parameter file:',t30,a)", "model.par"), " Parameter file:" + std::string(13, ' ') + "model.par\n");
  EXPECT_EQ(fformat("(i2,2x,a19, 2i3,t75,i10,t90,20i3)", 1, "cross-classified", 2, 3, 10),
            " 1     cross-classified  2  3" + std::string(45, ' ') + "        10\n");
  EXPECT_EQ(fformat("(a,t2,a)", "abc", "X"), "aXc\n");
  EXPECT_EQ(fformat("(a,tl2,a)", "abcd", "XY"), "abXY\n");
  EXPECT_EQ(fformat("(a,tl9,a)", "abcd", "X"), "Xbcd\n");
  EXPECT_EQ(fformat("(a,tr2,a,3x,a)", "ab", "c", "d"), "ab  c   d\n");
  EXPECT_EQ(fformat("(a,t10)", "ab") + fformat("(a,5x)", "ab"), "ab\nab\n");
  EXPECT_EQ(fformat("('it''s',1x,\"say \"\"hi\"\"\",a)", "!"), "it's say \"hi\"!\n");
  EXPECT_EQ(fformat("( 2 I 3 , ' a b ' )", 1, 2), "  1  2 a b \n");
  // Slashes, groups, and reversion to the last top-level group with its count.
  EXPECT_EQ(fformat("(i1,2/i1)", 1, 2), "1\n\n2\n");
  EXPECT_EQ(fformat("(2(i0,x),f0.12)", 1, 2, 0.5, 3, 4, 0.25), "1 2 .500000000000\n3 4 .250000000000\n");
  EXPECT_EQ(fformat("(i1,(i1,(i1)))", 1, 2, 3, 4, 5), "123\n45\n");
  EXPECT_EQ(fformat("(i1,2(1x,i1))", 1, 2, 3, 4, 5, 6), "1 2 3\n 4 5\n 6\n");
  EXPECT_EQ(fformat("(2(i1,2(a)))", 1, "a", "b", 2, "c", "d", 3), "1ab2cd\n3\n");
  EXPECT_EQ(fformat("(i2)", 1, 2, 3), " 1\n 2\n 3\n");
  EXPECT_EQ(fformat("(g0.4,1x)", 3.14159, 2.0), "3.142\n2.000\n");
  std::vector<double> row(12, 1.0);
  std::string ten;
  for (int i = 0; i < 10; ++i) ten += "   1.000    ";
  EXPECT_EQ(fformat("(10g12.4/)", row), ten + "\n\n   1.000       1.000    \n");
  row.resize(10);
  EXPECT_EQ(fformat("(10g12.4/)", row), ten + "\n\n");
  // A write ends at the first data descriptor or ':' met with no items left.
  EXPECT_EQ(fformat("(' hello',i5,' never')") + fformat("(i5)") + fformat("(' R',:,' never',i2)"), " hello\n\n R\n");
  EXPECT_EQ(fformat("(i2,' units')", 3), " 3 units\n");
  // A parsed format serves many writes, copied and moved; a partial write leaves its line open.
  Format f("(1x,i0)"), real("(1x,f0.5)"), covs("(100(1x,f0.5))");
  Format g = f;
  Format h = std::move(f);
  EXPECT_EQ(g.write(FormatList(1)) + h.write(FormatList(2)), " 1\n 2\n");
  g = h;
  EXPECT_EQ(g.write(FormatList()), "\n");
  EXPECT_EQ(h.write_partial(FormatList(7)) + covs.write_partial(FormatList(std::vector<double>{1e-12, -std::sqrt(5.0) / 2})) +
                real.write(FormatList(3.5f)),
            " 7 .00000 -1.11803 3.50000\n");
}

TEST(Format, MalformedTextsAndWrongItemsStop) {
  const std::pair<std::string, std::string> parse[] = {
      {"(i5", "a ')' is missing"}, {"i5)", "it does not start with '('"}, {"(i5))", "text after the closing ')'"},
      {"(q5)", "unknown edit descriptor 'q'"}, {"(f5)", "F needs a number of decimals"},
      {"(f.5)", "a number is missing after F"}, {"(i)", "a number is missing after I"},
      {"(e10)", "E and ES need a number of digits"}, {"(e10.0)", "E needs at least one digit"},
      {"(5'x')", "a repeat count before a literal"}, {"('x)", "a literal is not closed"},
      {"(0i5)", "a repeat count of zero"}, {"(t0,i5)", "T0 is not a column"}, {"(2t5)", "a count before T"},
      {"(i999999)", "a number is too large"}, {"(a0)", "A0 is not a width"}, {"(l0)", "L0 is not a width"},
      {"(e9.3e0)", "an exponent width of zero"}, {"(2:)", "a repeat count before ':'"},
      {std::string(40, '(') + std::string(40, ')'), "groups nested too deeply"}};
  for (const auto& [text, reason] : parse) expect_stop([&] { Format{text}; }, " invalid format " + text + ": " + reason);
  expect_stop([] { fformat("('x')", 1); }, " format ('x'): items to write but no edit descriptor for them");
  expect_stop([] { fformat("(i1,('x'))", 1, 2); },
              " format (i1,('x')): items remain but the format has no edit descriptor to repeat");
  expect_stop([] { fformat("(i5)", 1.5); }, " format (i5): item 1 is a real, which I cannot write");
  expect_stop([] { fformat("(i1,f5.1)", 1, 2); }, " format (i1,f5.1): item 2 is an integer, which F cannot write");
  expect_stop([] { fformat("(e9.2)", "x"); }, " format (e9.2): item 1 is a text, which E cannot write");
  expect_stop([] { fformat("(es9.2)", true); }, " format (es9.2): item 1 is a logical, which ES cannot write");
  expect_stop([] { fformat("(a)", 1); }, " format (a): item 1 is an integer, which A cannot write");
  expect_stop([] { fformat("(l2)", 1.0f); }, " format (l2): item 1 is a real, which L cannot write");
}

// List-directed output and reading, and the fixed-width reading of reals.
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
