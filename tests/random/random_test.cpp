#include "mmekit/random/random.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/stop.hpp"

using namespace mmekit;
using Seeds = std::pair<std::int32_t, std::int32_t>;

namespace {

constexpr std::int64_t M1 = 2147483563, M2 = 2147483399;

// a^(2^squarings) mod m by repeated squaring in 64 bits.
std::int64_t powmod(std::int64_t a, std::int64_t squarings, std::int64_t m) {
  for (std::int64_t i = 0; i < squarings; ++i) a = a * a % m;
  return a;
}

// The generator's recurrence in 64-bit arithmetic, as the reference for the 32-bit code.
struct Reference {
  std::int64_t s1, s2;
  std::int64_t next() {
    s1 = s1 * 40014 % M1;
    s2 = s2 * 40692 % M2;
    return s1 - s2 < 1 ? s1 - s2 + M1 - 1 : s1 - s2;
  }
};

Seeds seeds() {
  Seeds s;
  GETSD(s.first, s.second);
  return s;
}

Seeds seeds_of(std::int64_t s1, std::int64_t s2) { return {static_cast<std::int32_t>(s1), static_cast<std::int32_t>(s2)}; }

Seeds phrase(const char* p) {
  Seeds s;
  phrase_to_seeds(p, s.first, s.second);
  return s;
}

class Random : public ::testing::Test {
 protected:
  void SetUp() override { reset_random_package(); }
  void TearDown() override { reset_random_package(); }
};

}  // namespace

TEST_F(Random, DefaultStreamFollowsTheRecurrence) {
  // The package sets itself up with the default seeds.
  Reference ref{1234567890, 123456789};
  for (int i = 0; i < 1000; ++i) {
    const std::int32_t v = next_int();
    ASSERT_EQ(v, ref.next()) << "draw " << i + 1;
    ASSERT_TRUE(v >= 1 && v <= 2147483562) << v;
  }
  // Uniforms are the integer times 2^-31, the float with bits 30000000.
  for (int i = 0; i < 200; ++i) {
    const float u = next_uniform();
    ASSERT_EQ(u, static_cast<float>(ref.next()) * std::bit_cast<float>(0x30000000u));
    ASSERT_TRUE(u > 0.0f && u < 1.0f) << u;
  }
}

TEST_F(Random, MltmodAgreesWith64BitProducts) {
  auto check = [](std::int32_t a, std::int32_t s, std::int32_t m) {
    ASSERT_EQ(MLTMOD(a, s, m), static_cast<std::int64_t>(a) * s % m) << a << " " << s << " " << m;
  };
  std::mt19937_64 rng(7);
  for (std::int32_t m : {2147483563, 2147483399, 2147483647, 1073741825, 1073741823, 65537, 40000, 32769, 32768,
                         32767, 1000, 3}) {
    std::uniform_int_distribution<std::int32_t> pick(1, m - 1);
    for (int i = 0; i < 20000; ++i) check(pick(rng), pick(rng), m);
    // The corners of the allowed range, and multipliers at and above 2^30, where the high
    // part of a is split once more.
    for (std::int32_t a : {1, m - 1, m / 2, 32767, 32768, 1073741824, 1073741825, 2082007225})
      for (std::int32_t s : {1, m - 1, m / 2 + 1, 12345, 1073741823})
        if (a < m && s < m) check(a, s, m);
  }
}

TEST_F(Random, StreamsStartAtTheJumpedSeedsAndBlocksReplay) {
  // Stream g + 1 starts 2^50 draws after stream g; blocks are 2^30 draws.
  set_all_seeds(987654321, 55555);
  std::int64_t e1 = 987654321, e2 = 55555;
  const std::int64_t v1 = powmod(40014, 50, M1), v2 = powmod(40692, 50, M2);
  for (std::int32_t g = 1; g <= 32; ++g) {
    if (g > 1) e1 = e1 * v1 % M1, e2 = e2 * v2 % M2;
    SETCGN(g);
    EXPECT_EQ(seeds(), seeds_of(e1, e2)) << g;
    EXPECT_EQ(next_int(), (Reference{e1, e2}.next())) << g;  // the first draw of each stream
  }
  // The current stream is kept across set_all_seeds.
  SETCGN(3);
  set_all_seeds(1234567890, 123456789);
  std::int32_t g;
  get_current_stream(g);
  EXPECT_EQ(g, 3);
  const std::int64_t i1 = random_state.ig1[3], i2 = random_state.ig2[3];
  next_int();
  INITGN(1);
  INITGN(1);
  // Two blocks on: the seed is the initial one times a^(2^30) twice.
  const std::int64_t w1 = powmod(40014, 30, M1), w2 = powmod(40692, 30, M2);
  EXPECT_EQ(seeds(), seeds_of(i1 * w1 % M1 * w1 % M1, i2 * w2 % M2 * w2 % M2));
  std::vector<std::int32_t> first(5), again(5);
  for (auto& v : first) v = next_int();
  INITGN(0);  // back to the start of the second block
  for (auto& v : again) v = next_int();
  EXPECT_EQ(again, first);
  INITGN(-1);  // back to the initial seed
  EXPECT_EQ(seeds(), seeds_of(i1, i2));
  SETCGN(4);  // other streams are untouched by the jumps of stream 3
  EXPECT_EQ(seeds().first, random_state.ig1[4]);
}

TEST_F(Random, SetsdAntitheticAndRanges) {
  next_int();  // initialises with the defaults
  SETCGN(5);
  SETSD(111, 222);
  EXPECT_EQ(seeds(), Seeds(111, 222));
  const std::int32_t plain = next_int();
  EXPECT_EQ(plain, (Reference{111, 222}.next()));
  INITGN(-1);
  set_antithetic(true);
  EXPECT_EQ(next_int(), M1 - plain);
  set_antithetic(false);
  EXPECT_EQ(GENUNF(2.5f, 2.5f), 2.5f);
  for (int i = 0; i < 1000; ++i) {
    const float v = GENUNF(-3.0f, 5.0f);
    ASSERT_TRUE(v >= -3.0f && v <= 5.0f) << v;
  }
  // IGNUIN(5, 5) does not draw.
  const Seeds before = seeds();
  EXPECT_EQ(std::make_pair(IGNUIN(5, 5), IGNUIN(INT32_MAX, INT32_MAX)), std::make_pair(5, INT32_MAX));
  EXPECT_EQ(seeds(), before);
  // One draw gives low + (next_int() - 1) mod r when the value is under the limit; the widest
  // range allowed has limit 0, so there every draw is taken as it is.
  for (auto [low, high] : {std::pair{-10, 10}, std::pair{-1073741824, 1073741737}}) {
    INITGN(0);
    const std::int64_t z = next_int();
    INITGN(0);
    EXPECT_EQ(IGNUIN(low, high), low + (z - 1) % (static_cast<std::int64_t>(high) - low + 1));
  }
  // Every value of a small range is drawn, about equally often, and no other.
  int seen[21] = {};
  for (int i = 0; i < 5000; ++i) {
    const std::int32_t v = IGNUIN(-10, 10);
    ASSERT_TRUE(v >= -10 && v <= 10) << v;
    ++seen[v + 10];
  }
  for (int c : seen) EXPECT_GT(c, 150);
}

TEST_F(Random, PhraseToSeeds) {
  // Values from a separate script of the steps in unbounded arithmetic. A blank phrase gives
  // the defaults; a character outside the table counts as 63.
  EXPECT_EQ(phrase("abc"), Seeds(8241812, 190815113));
  EXPECT_EQ(phrase("Hello World"), Seeds(61544950, 785182411));
  EXPECT_EQ(phrase("~"), Seeds(75878992, 106142735));
  EXPECT_EQ(phrase("   "), Seeds(1234567890, 123456789));
  // Trailing blanks do not count; place 63 ("!") and place 64 ("@", 0 mod 64) count as 63;
  // place 65 ("#") wraps to 1.
  for (auto [p, q] : {std::pair{"abc   ", "abc"}, {"", "   "}, {"!", "~"}, {"@", "~"}, {"\t", "~"}, {"#", "a"}})
    EXPECT_EQ(phrase(p), phrase(q)) << p;
}

TEST_F(Random, FailureMessages) {
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { SETCGN(33); }, "  Generator number out of range in SETCGN: 33  Legal range is 1 to  32  -- ABORT!\n"},
      {[] { SETCGN(0); }, "  Generator number out of range in SETCGN: 0  Legal range is 1 to  32  -- ABORT!\n"},
      {[] { INITGN(0); }, "  INITGN called before random number generator   initialized -- abort!\n"},
      {[] { SETSD(1, 2); }, "  SETSD called before random number generator   initialized -- abort!\n"},
      {[] { seeds(); }, "  GETSD called before random number generator   initialized -- abort!\n"},
      {[] { next_int(), INITGN(2); }, "  INITGN called with kind  2  -- legal values are -1, 0 and 1\n"},
      {[] { MLTMOD(5, 0, 7); },
       " A, M, S out of order in MLTMOD - ABORT!\n  A =  5  S =  0  M =  7\n MLTMOD requires: 0 < A < M; 0 < S < M\n"},
      {[] { GENUNF(2.0f, 1.5f); }, " LOW > HIGH in GENUNF: LOW  2.0  HIGH:  1.5 Abort\nLOW > High in GENUNF - Abort\n"},
      {[] { IGNUIN(3, 2); }, "LOW > HIGH in IGNUIN\n  LOW:  3  HIGH:  2\n Abort on Fatal ERROR\n"},
      {[] { IGNUIN(-1073741824, 1073741738); },
       " ( HIGH - LOW ) > 2,147,483,561 in IGNUIN\n  LOW:  -1073741824  HIGH:  1073741738\n Abort on Fatal ERROR\n"},
      {[] { IGNUIN(INT32_MIN, INT32_MAX); },
       " ( HIGH - LOW ) > 2,147,483,561 in IGNUIN\n  LOW:  -2147483648  HIGH:  2147483647\n Abort on Fatal ERROR\n"},
  };
  for (const auto& [body, message] : cases) EXPECT_EQ(test::stop_output(body), message);
  // Each side of the order A, S, M is checked.
  for (auto [a, s] : {std::pair{7, 1}, std::pair{1, 9}, std::pair{0, 1}})
    EXPECT_NE(test::stop_output([a = a, s = s] { MLTMOD(a, s, 7); }).find(" MLTMOD requires"), std::string::npos) << a << s;
}
