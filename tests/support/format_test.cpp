#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <sstream>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "mmekit/support/format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

#include "support/test_helpers.hpp"

using namespace mmekit;
using support_test::expect_stop;

namespace {

// ---------------------------------------------------------------------------------------------
// A second, independent route to the decimal digits of a double: exact expansion of m * 2^e
// with a little big-integer in base 10^9, then rounding of the digit string, ties to even.

struct Exact {
  std::string int_part;   // no leading zeros ("0" for a value below 1)
  std::string frac_part;  // every digit of the exact fraction
};

std::string big_to_string(const std::vector<std::uint32_t>& limbs) {  // little-endian base 1e9
  std::string s = std::to_string(limbs.back());
  for (std::size_t i = limbs.size() - 1; i-- > 0;) {
    std::string part = std::to_string(limbs[i]);
    s += std::string(9 - part.size(), '0') + part;
  }
  return s;
}

void big_mul(std::vector<std::uint32_t>& limbs, std::uint32_t k) {
  std::uint64_t carry = 0;
  for (auto& l : limbs) {
    std::uint64_t v = std::uint64_t(l) * k + carry;
    l = static_cast<std::uint32_t>(v % 1000000000u);
    carry = v / 1000000000u;
  }
  while (carry) {
    limbs.push_back(static_cast<std::uint32_t>(carry % 1000000000u));
    carry /= 1000000000u;
  }
}

Exact expand(double v) {
  v = std::fabs(v);
  int k;
  double f = std::frexp(v, &k);
  auto m = static_cast<std::uint64_t>(std::ldexp(f, 53));
  int e = k - 53;
  std::vector<std::uint32_t> limbs{static_cast<std::uint32_t>(m % 1000000000u),
                                   static_cast<std::uint32_t>(m / 1000000000u % 1000000000u),
                                   static_cast<std::uint32_t>(m / 1000000000000000000u)};
  while (limbs.size() > 1 && limbs.back() == 0) limbs.pop_back();
  Exact x;
  if (e >= 0) {
    for (int i = 0; i < e; ++i) big_mul(limbs, 2);
    x.int_part = big_to_string(limbs);
    return x;
  }
  for (int i = 0; i < -e; ++i) big_mul(limbs, 5);
  std::string digits = big_to_string(limbs);
  std::size_t q = static_cast<std::size_t>(-e);
  if (digits.size() <= q) digits = std::string(q - digits.size() + 1, '0') + digits;
  x.int_part = digits.substr(0, digits.size() - q);
  x.frac_part = digits.substr(digits.size() - q);
  x.frac_part.erase(x.frac_part.find_last_not_of('0') + 1);
  std::size_t nz = x.int_part.find_first_not_of('0');
  x.int_part = nz == std::string::npos ? "0" : x.int_part.substr(nz);
  return x;
}

// Adds one unit in the last place of a digit string; returns true on a carry out of the front.
bool increment(std::string& s) {
  for (std::size_t i = s.size(); i-- > 0;) {
    if (s[i] == '9') {
      s[i] = '0';
    } else {
      ++s[i];
      return false;
    }
  }
  return true;
}

// Whether the dropped digits `rest` after kept digit `last` round the kept digits up.
bool rounds_up(char last, const std::string& rest) {
  if (rest.empty() || rest[0] < '5') return false;
  if (rest[0] > '5') return true;
  if (rest.find_first_not_of('0', 1) != std::string::npos) return true;
  return (last - '0') % 2 == 1;  // a tie: to even
}

// The value rounded to d decimals: integer digits and d fraction digits.
std::pair<std::string, std::string> round_fixed(const Exact& x, int d) {
  std::string frac = x.frac_part;
  if (frac.size() < static_cast<std::size_t>(d)) frac.append(static_cast<std::size_t>(d) - frac.size(), '0');
  std::string all = x.int_part + frac.substr(0, static_cast<std::size_t>(d));
  std::string rest = frac.substr(static_cast<std::size_t>(d));
  if (rounds_up(all.back(), rest)) {
    if (increment(all)) all.insert(all.begin(), '1');
  }
  std::string ip = all.substr(0, all.size() - static_cast<std::size_t>(d));
  std::size_t nz = ip.find_first_not_of('0');
  ip = nz == std::string::npos ? "0" : ip.substr(nz);
  return {ip, all.substr(all.size() - static_cast<std::size_t>(d))};
}

// The value (not zero) rounded to n significant digits: the digits and the exponent N with
// 0.d1d2... x 10^N.
std::pair<std::string, int> round_sig(const Exact& x, int n) {
  std::string all = x.int_part + x.frac_part;
  int point = static_cast<int>(x.int_part.size());
  std::size_t first = all.find_first_not_of('0');
  int N = point - static_cast<int>(first);
  std::string digits = all.substr(first);
  if (digits.size() < static_cast<std::size_t>(n)) digits.append(static_cast<std::size_t>(n) - digits.size(), '0');
  std::string kept = digits.substr(0, static_cast<std::size_t>(n));
  if (rounds_up(kept.back(), digits.substr(static_cast<std::size_t>(n)))) {
    if (increment(kept)) {
      kept.pop_back();  // all nines became zeros: one more digit in front
      kept.insert(kept.begin(), '1');
      ++N;
    }
  }
  return {kept, N};
}

std::string right(const std::string& s, int w) {
  if (w == 0) return s;
  if (s.size() > static_cast<std::size_t>(w)) return std::string(static_cast<std::size_t>(w), '*');
  return std::string(static_cast<std::size_t>(w) - s.size(), ' ') + s;
}

std::string expect_f(double v, int w, int d) {
  auto [ip, fp] = round_fixed(expand(v), d);
  std::string sign = std::signbit(v) ? "-" : "";
  std::string s = sign + ip + "." + fp;
  if (ip == "0" && d > 0 && (w == 0 || static_cast<int>(s.size()) > w)) s = sign + "." + fp;
  return right(s, w);
}

std::string two_digit_exponent(int N) {
  std::string m = std::to_string(std::abs(N));
  if (m.size() < 2) m = "0" + m;
  return std::string(N < 0 ? "-" : "+") + m;
}

std::string expect_e(double v, int w, int d) {
  std::string sign = std::signbit(v) ? "-" : "";
  std::string digits(static_cast<std::size_t>(d), '0');
  int N = 0;
  if (v != 0) std::tie(digits, N) = round_sig(expand(v), d);
  std::string s = sign + "0." + digits + "E" + two_digit_exponent(N);
  if (static_cast<int>(s.size()) > w) s = sign + "." + digits + "E" + two_digit_exponent(N);
  return right(s, w);
}

std::string expect_es(double v, int w, int d) {
  std::string sign = std::signbit(v) ? "-" : "";
  std::string digits(static_cast<std::size_t>(d + 1), '0');
  int N = 1;
  if (v != 0) std::tie(digits, N) = round_sig(expand(v), d + 1);
  return right(sign + digits.substr(0, 1) + "." + digits.substr(1) + "E" + two_digit_exponent(N - 1), w);
}

std::string expect_g(double v, int w, int d) {
  if (v == 0) return expect_f(v, w - 4, d - 1) + "    ";
  auto [digits, N] = round_sig(expand(v), d);
  if (N >= 0 && N <= d) return expect_f(v, w - 4, d - N) + "    ";
  return expect_e(v, w, d);
}

double random_value(std::mt19937_64& rng) {
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-40, 40);
  return std::ldexp(mant(rng), ex(rng));
}

}  // namespace

TEST(Format, ExactExpansionOfTheTestItself) {
  // The reference route must itself be right before it judges anything.
  EXPECT_EQ(expand(0.1).int_part, "0");
  EXPECT_EQ(expand(0.1).frac_part, "1000000000000000055511151231257827021181583404541015625");
  EXPECT_EQ(expand(123456.703125).frac_part, "703125");
  EXPECT_EQ(expand(std::ldexp(1.0, 70)).int_part, "1180591620717411303424");
  EXPECT_EQ(expect_f(0.125, 0, 2), ".12");
  EXPECT_EQ(expect_f(0.375, 0, 2), ".38");
  EXPECT_EQ(expect_f(9.9999996, 6, 5), "******");
  EXPECT_EQ(expect_e(12345.0, 10, 4), "0.1234E+05");
}

TEST(Format, RandomValuesMatchTheExactExpansion) {
  std::mt19937_64 rng(12345);
  for (int n = 0; n < 8000; ++n) {
    double v = random_value(rng);
    float f = static_cast<float>(v);
    ASSERT_EQ(fformat("(f0.5)", v), expect_f(v, 0, 5) + "\n") << v;
    ASSERT_EQ(fformat("(f0.5)", f), expect_f(f, 0, 5) + "\n") << f;
    ASSERT_EQ(fformat("(f12.4)", v), expect_f(v, 12, 4) + "\n") << v;
    ASSERT_EQ(fformat("(f20.12)", v), expect_f(v, 20, 12) + "\n") << v;
    ASSERT_EQ(fformat("(e14.6)", v), expect_e(v, 14, 6) + "\n") << v;
    ASSERT_EQ(fformat("(es13.5)", v), expect_es(v, 13, 5) + "\n") << v;
    ASSERT_EQ(fformat("(g12.5)", v), expect_g(v, 12, 5) + "\n") << v;
    ASSERT_EQ(fformat("(g12.4)", f), expect_g(f, 12, 4) + "\n") << f;
  }
}

TEST(Format, TiesGoToEven) {
  // Multiples of 1/64 have six decimals at most, so five-decimal rounding meets exact ties.
  std::mt19937_64 rng(7);
  std::uniform_int_distribution<int> k(-640000, 640000);
  int ties = 0;
  for (int n = 0; n < 5000; ++n) {
    double v = k(rng) / 64.0;
    std::string frac = expand(v).frac_part;
    if (frac.size() == 6 && frac[5] == '5') ++ties;
    ASSERT_EQ(fformat("(f0.5)", v), expect_f(v, 0, 5) + "\n") << v;
    ASSERT_EQ(fformat("(g12.5)", v), expect_g(v, 12, 5) + "\n") << v;
    ASSERT_EQ(fformat("(e12.3)", v), expect_e(v, 12, 3) + "\n") << v;
  }
  EXPECT_GT(ties, 1000);
  // Hand cases.
  EXPECT_EQ(fformat("(f0.2,1x,f0.2,1x,f0.0,1x,f0.0)", 0.125, 0.375, 2.5, 3.5), ".12 .38 2. 4.\n");
  EXPECT_EQ(fformat("(f0.5)", 123456.7f), "123456.70312\n");
  EXPECT_EQ(fformat("(es10.3)", 12345.0), " 1.234E+04\n");
  EXPECT_EQ(fformat("(es10.3)", 12355.0), " 1.236E+04\n");
}

TEST(Format, FixedFormOfTheCovariateTool) {
  EXPECT_EQ(fformat("(1x,f0.5)", 0.5), " .50000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", -0.25), " -.25000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", 12.5), " 12.50000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", 1.1f), " 1.10000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", 1.0e-12), " .00000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", -1.0e-12), " -.00000\n");
  EXPECT_EQ(fformat("(1x,f0.5)", std::nan("")), " NaN\n");
  EXPECT_EQ(fformat("(1x,i0)", -150), " -150\n");
  // The worked line: columns, then two covariates.
  Format col_i("(1x,i0)"), col_f("(1x,f0.5)"), covs("(100(1x,f0.5))");
  std::string line = col_i.write_partial(FormatList(7)) + col_i.write_partial(FormatList(150)) +
                     covs.write_partial(FormatList(std::vector<double>{1e-12, -std::sqrt(5.0) / 2})) +
                     col_f.write(FormatList(3.5f));
  EXPECT_EQ(line, " 7 150 .00000 -1.11803 3.50000\n");
  // Over 100 covariates: new lines after each 100 by reversion.
  std::vector<double> many(205, 0.5);
  std::string text = covs.write(FormatList(many));
  std::string hundred;
  for (int i = 0; i < 100; ++i) hundred += " .50000";
  EXPECT_EQ(text, hundred + "\n" + hundred + "\n .50000 .50000 .50000 .50000 .50000\n");
}

TEST(Format, FixedWidthFields) {
  EXPECT_EQ(fformat("(f7.2)", 1.5), "   1.50\n");
  EXPECT_EQ(fformat("(f4.2,f3.2)", 0.5, 0.5), "0.50.50\n");
  EXPECT_EQ(fformat("(f3.2)", -0.5), "***\n");
  EXPECT_EQ(fformat("(f7.5,1x,f6.5)", 0.5, 0.5), "0.50000 .50000\n");
  EXPECT_EQ(fformat("(f5.2)", 123.456), "*****\n");
  EXPECT_EQ(fformat("(f5.0)", 3.7), "   4.\n");
  EXPECT_EQ(fformat("(f3.0)", 0.3), " 0.\n");
  EXPECT_EQ(fformat("(f10.4)", 1e20), "**********\n");
  EXPECT_EQ(fformat("(4i10,f20.12)", 1, -2, 3, 4, 0.1),
            "         1        -2         3         4      0.100000000000\n");
  EXPECT_EQ(fformat("(100(f7.2,x))", 1.5, -2.25), "   1.50   -2.25\n");
}

TEST(Format, NonFiniteValues) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(fformat("(f10.3)", nan), "       NaN\n");
  EXPECT_EQ(fformat("(f2.1)", nan), "**\n");
  EXPECT_EQ(fformat("(f10.3)", inf), "  Infinity\n");
  EXPECT_EQ(fformat("(f10.3)", -inf), " -Infinity\n");
  EXPECT_EQ(fformat("(f5.1)", inf), "  Inf\n");
  EXPECT_EQ(fformat("(f5.1)", -inf), " -Inf\n");
  EXPECT_EQ(fformat("(f3.1)", -inf), "***\n");
  EXPECT_EQ(fformat("(f0.5,1x,f0.5)", inf, -inf), "Infinity -Infinity\n");
  EXPECT_EQ(fformat("(g12.5)", nan), "         NaN\n");
  EXPECT_EQ(fformat("(e12.4)", -inf), "   -Infinity\n");
}

TEST(Format, ExponentForms) {
  EXPECT_EQ(fformat("(e9.3)", 1.0), "0.100E+01\n");
  EXPECT_EQ(fformat("(e8.3)", 1.0), ".100E+01\n");
  EXPECT_EQ(fformat("(e7.3)", 1.0), "*******\n");
  EXPECT_EQ(fformat("(e12.4)", 0.0), "  0.0000E+00\n");
  EXPECT_EQ(fformat("(e12.4)", -0.00123456), " -0.1235E-02\n");
  EXPECT_EQ(fformat("(e12.4)", 1e200), "  0.1000+201\n");
  EXPECT_EQ(fformat("(e12.4e3)", 1.5), " 0.1500E+001\n");
  EXPECT_EQ(fformat("(e12.4e1)", 1e20), "************\n");
  EXPECT_EQ(fformat("(es12.4)", -1234.5), " -1.2345E+03\n");
  EXPECT_EQ(fformat("(es10.3)", 0.0), " 0.000E+00\n");
}

TEST(Format, GeneralForm) {
  EXPECT_EQ(fformat("(20g12.5)", 1.0, -2.5, 123456.7, 0.0, 1e-3),
            std::string("  1.0000    ") + " -2.5000    " + " 0.12346E+06" + "  0.0000    " + " 0.10000E-02\n");
  EXPECT_EQ(fformat("(g12.5)", 99999.5), " 0.10000E+06\n");
  EXPECT_EQ(fformat("(g12.5)", 99999.4), "  99999.    \n");
  EXPECT_EQ(fformat("(g12.5)", 0.099999), " 0.99999E-01\n");
  EXPECT_EQ(fformat("(g12.5)", 0.0999999), " 0.10000    \n");
  EXPECT_EQ(fformat("(g0.4,1x)", 3.14159), "3.142\n");
  EXPECT_EQ(fformat("(g0.4,1x)", 3.14159, 2.0), "3.142\n2.000\n");  // no group: a line each
  EXPECT_EQ(fformat("(g0.4)", 0.5), "0.5000\n");
  EXPECT_EQ(fformat("(g0.4)", 1234567.0), "0.1235E+07\n");
  EXPECT_EQ(fformat("(g0)", 1.5), "1.5000000000000000\n");
  EXPECT_EQ(fformat("(g0.3,1x,g0.1,1x,g0.3,1x,g0.3)", 0.0, 0.0, -0.25, 99.94), "0.00 0. -0.250 99.9\n");
  EXPECT_EQ(fformat("(g9.1,g10.3,g9.3,g8.3)", 0.0, -0.25, -0.25, -0.25),
            std::string("   0.    ") + "-0.250    " + "-.250    " + "********\n");
  EXPECT_EQ(fformat("(g0)", 1.5f), "1.50000000\n");
  // G takes integers, texts and logicals too.
  EXPECT_EQ(fformat("(g5,g0,g4,g3)", 42, 7, "ab", true), "   427  ab  T\n");
  // The matrix rows: ten to a line, and the slash ends each row with an empty line.
  std::vector<double> row(12, 1.0);
  std::string ten;
  for (int i = 0; i < 10; ++i) ten += "   1.000    ";
  EXPECT_EQ(fformat("(10g12.4/)", row), ten + "\n\n   1.000       1.000    \n");
  row.resize(10);
  EXPECT_EQ(fformat("(10g12.4/)", row), ten + "\n\n");
  EXPECT_EQ(fformat("(10g12.4/)", 1.0), "   1.000    \n");
}

TEST(Format, IntegersTextsAndLogicals) {
  EXPECT_EQ(fformat("(i5.3)", 7), "  007\n");
  EXPECT_EQ(fformat("(i3)", -12), "-12\n");
  EXPECT_EQ(fformat("(i2)", -12), "**\n");
  EXPECT_EQ(fformat("(i3)", 1000), "***\n");
  EXPECT_EQ(fformat("(i4.0,i0)", 0, 0), "    0\n");
  EXPECT_EQ(fformat("(i0)", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808\n");
  EXPECT_EQ(fformat("(30I3)", std::vector<int>{1, 22, 333, 4444}), "  1 22333***\n");
  EXPECT_EQ(fformat("(8i10)", std::int64_t{1} << 40, 123456), "**********    123456\n");
  EXPECT_EQ(fformat("(6i12)", -5), "          -5\n");
  EXPECT_EQ(fformat("(a5,a2,a)", "ab", "abcd", std::string("xyz ")), "   ababxyz \n");
  EXPECT_EQ(fformat("(l3,l1)", true, false), "  TF\n");
  Array1<std::int32_t> arr(0, 2, 9);
  EXPECT_EQ(fformat("(3i2)", arr), " 9 9 9\n");
}

TEST(Format, LiteralsAndPositions) {
  std::string got = fformat("(' Parameter file:',t30,a)", "model.par");
  EXPECT_EQ(got, " Parameter file:" + std::string(13, ' ') + "model.par\n");
  EXPECT_EQ(fformat("(' Value of Missing Trait/Observation',t40,i8)", 0),
            " Value of Missing Trait/Observation" + std::string(4, ' ') + "       0\n");
  EXPECT_EQ(fformat("(i2,2x,a19, 2i3,t75,i10,t90,20i3)", 1, "cross-classified", 2, 3, 10),
            " 1     cross-classified  2  3" + std::string(45, ' ') + "        10\n");
  EXPECT_EQ(fformat("(a,t2,a)", "abc", "X"), "aXc\n");
  EXPECT_EQ(fformat("(a,tl2,a)", "abcd", "XY"), "abXY\n");
  EXPECT_EQ(fformat("(a,tl9,a)", "abcd", "X"), "Xbcd\n");
  EXPECT_EQ(fformat("(a,tr2,a,3x,a)", "ab", "c", "d"), "ab  c   d\n");
  EXPECT_EQ(fformat("(a,t10)", "ab"), "ab\n");
  EXPECT_EQ(fformat("(a,5x)", "ab"), "ab\n");
  EXPECT_EQ(fformat("('it''s',1x,\"say \"\"hi\"\"\",a)", "!"), "it's say \"hi\"!\n");
  EXPECT_EQ(fformat("(a,i0,a,i6,a,f10.4)", "n=", 5, " m=", 12, " x=", 3.14159),
            "n=5 m=    12 x=    3.1416\n");
  EXPECT_EQ(fformat("( 2 I 3 , ' a b ' )", 1, 2), "  1  2 a b \n");
}

TEST(Format, RecordsGroupsAndReversion) {
  EXPECT_EQ(fformat("(i1/i1)", 1, 2), "1\n2\n");
  EXPECT_EQ(fformat("(i1,2/i1)", 1, 2), "1\n\n2\n");
  EXPECT_EQ(fformat("(2(i0,x),f0.12)", 1, 2, 0.1), "1 2 .100000000000\n");
  EXPECT_EQ(fformat("(2(i0,x),f0.12)", 1, 2, 0.5, 3, 4, 0.25),
            "1 2 .500000000000\n3 4 .250000000000\n");
  EXPECT_EQ(fformat("(i1,(i1,(i1)))", 1, 2, 3, 4, 5), "123\n45\n");
  EXPECT_EQ(fformat("(i1,2(1x,i1))", 1, 2, 3, 4, 5, 6), "1 2 3\n 4 5\n 6\n");
  EXPECT_EQ(fformat("(2(i1,2(a)))", 1, "a", "b", 2, "c", "d", 3), "1ab2cd\n3\n");
  EXPECT_EQ(fformat("(i2)", 1, 2, 3), " 1\n 2\n 3\n");
  // A write with no items writes the literals before the first data descriptor only.
  EXPECT_EQ(fformat("(' hello',i5,' never')"), " hello\n");
  EXPECT_EQ(fformat("(i5)"), "\n");
  EXPECT_EQ(fformat("(' R',:,' never',i2)"), " R\n");
  EXPECT_EQ(fformat("(i2,' units')", 3), " 3 units\n");
  // A parsed format serves many writes, and can be copied and moved.
  Format f("(1x,i0)");
  Format g = f;
  Format h = std::move(f);
  EXPECT_EQ(g.write(FormatList(1)) + h.write(FormatList(2)), " 1\n 2\n");
  EXPECT_EQ(h.write_partial(FormatList(3)), " 3");
  g = h;
  EXPECT_EQ(g.write(FormatList()), "\n");
}

TEST(Format, MalformedTextsAndWrongItemsStop) {
  expect_stop([] { Format("(i5"); }, " invalid format (i5: a ')' is missing");
  expect_stop([] { Format("i5)"); }, " invalid format i5): it does not start with '('");
  expect_stop([] { Format("(i5))"); }, " invalid format (i5)): text after the closing ')'");
  expect_stop([] { Format("(q5)"); }, " invalid format (q5): unknown edit descriptor 'q'");
  expect_stop([] { Format("(f5)"); }, " invalid format (f5): F needs a number of decimals");
  expect_stop([] { Format("(f.5)"); }, " invalid format (f.5): a number is missing after F");
  expect_stop([] { Format("(i)"); }, " invalid format (i): a number is missing after I");
  expect_stop([] { Format("(e10)"); }, " invalid format (e10): E and ES need a number of digits");
  expect_stop([] { Format("(e10.0)"); }, " invalid format (e10.0): E needs at least one digit");
  expect_stop([] { Format("(5'x')"); }, " invalid format (5'x'): a repeat count before a literal");
  expect_stop([] { Format("('x)"); }, " invalid format ('x): a literal is not closed");
  expect_stop([] { Format("(0i5)"); }, " invalid format (0i5): a repeat count of zero");
  expect_stop([] { Format("(t0,i5)"); }, " invalid format (t0,i5): T0 is not a column");
  expect_stop([] { Format("(2t5)"); }, " invalid format (2t5): a count before T");
  expect_stop([] { Format("(i999999)"); }, " invalid format (i999999): a number is too large");
  expect_stop([] { Format("(a0)"); }, " invalid format (a0): A0 is not a width");
  expect_stop([] { Format("(l0)"); }, " invalid format (l0): L0 is not a width");
  expect_stop([] { Format("(e9.3e0)"); }, " invalid format (e9.3e0): an exponent width of zero");
  expect_stop([] { Format("(2:)"); }, " invalid format (2:): a repeat count before ':'");
  expect_stop([] { Format(std::string(40, '(') + std::string(40, ')')); },
              " invalid format " + std::string(40, '(') + std::string(40, ')') + ": groups nested too deeply");
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

TEST(Format, FwriteWritesToAStream) {
  std::ostringstream os;
  fwrite(os, "(a,i3)", "n", 5);
  EXPECT_EQ(os.str(), "n  5\n");
}

TEST(Format, RandomFormatsEitherWorkOrStop) {
  // Formats put together from random pieces, many of them malformed, with random items: each
  // either writes or stops with a message; nothing else may happen (the sanitizers watch).
  const char* pieces[] = {"i3", "i0", "I5.2", "f0.5", "f8.3", "F4.1", "e10.3", "es9.2", "E12.4e3",
                          "g12.5", "g0", "g0.4", "a", "a3", "l2", "x", "2x", "t5", "tl2", "tr3",
                          "/", ":", "'ab'", "\"q\"", "(", ")", ",", "3", "2(", " ", "q", ".", "'"};
  std::mt19937_64 rng(2024);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
  std::uniform_int_distribution<int> len(0, 10), kind(0, 4), nitems(0, 12);
  int parsed = 0, written = 0, stopped = 0;
  for (int n = 0; n < 4000; ++n) {
    std::string text = "(";
    for (int k = len(rng); k > 0; --k) text += pieces[pick(rng)];
    text += ")";
    FormatList items;
    std::vector<std::string> texts;
    texts.reserve(16);
    for (int k = nitems(rng); k > 0; --k) {
      switch (kind(rng)) {
        case 0: items.add(static_cast<int>(rng() % 2001) - 1000); break;
        case 1: items.add(std::ldexp(static_cast<double>(rng() % 100000) - 50000, static_cast<int>(rng() % 40) - 20)); break;
        case 2: items.add(static_cast<float>(rng() % 1000) / 7.0f); break;
        case 3: texts.push_back(std::string(rng() % 6, 'z')); items.add(texts.back()); break;
        default: items.add(rng() % 2 == 0); break;
      }
    }
    CaptureOutput cap;
    try {
      Format f(text);
      ++parsed;
      std::string full = f.write(items);
      std::string partial = f.write_partial(items);
      ASSERT_EQ(full, partial + "\n") << text;
      ++written;
    } catch (const Stop& e) {
      ASSERT_EQ(cap.text(), std::string(e.what()) + "\n");
      ++stopped;
    }
  }
  EXPECT_GT(parsed, 500);
  EXPECT_GT(written, 100);
  EXPECT_GT(stopped, 500);
}
