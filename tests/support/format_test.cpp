// Formatted output: layouts worked by hand, and the digits of random values against printf's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "common/stop.hpp"
#include "mmekit/support/format.hpp"
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
