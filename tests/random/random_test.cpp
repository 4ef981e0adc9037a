#include "random/random.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "support/output.hpp"
#include "support/stop.hpp"

using namespace mmekit;

namespace {

constexpr std::int64_t M1 = 2147483563, M2 = 2147483399;

std::int64_t powmod(std::int64_t a, std::int64_t squarings, std::int64_t m) {
  // a^(2^squarings) mod m by repeated squaring in 64 bits.
  for (std::int64_t i = 0; i < squarings; ++i) a = a * a % m;
  return a;
}

// The combined value from the two component seeds, as the generator defines it.
std::int64_t combine(std::int64_t s1, std::int64_t s2) {
  std::int64_t z = s1 - s2;
  if (z < 1) z += M1 - 1;
  return z;
}

// Runs `body`, expects a stop, and returns what was printed.
template <class F>
std::string stop_text(F body) {
  CaptureOutput cap;
  EXPECT_THROW(body(), Stop);
  return cap.text();
}

class Random : public ::testing::Test {
 protected:
  void SetUp() override { reset_random_package(); }
  void TearDown() override { reset_random_package(); }
};

}  // namespace

TEST_F(Random, ConstantsAreTheMultipliersRaisedToTheBlockSizes) {
  EXPECT_EQ(RandomState::a1w, powmod(40014, 30, M1));
  EXPECT_EQ(RandomState::a2w, powmod(40692, 30, M2));
  EXPECT_EQ(RandomState::a1vw, powmod(40014, 50, M1));
  EXPECT_EQ(RandomState::a2vw, powmod(40692, 50, M2));
}

TEST_F(Random, DefaultStreamFollowsTheRecurrence) {
  // The package sets itself up on first use with the default seeds.
  std::int64_t s1 = 1234567890, s2 = 123456789;
  for (int i = 0; i < 1000; ++i) {
    s1 = s1 * 40014 % M1;
    s2 = s2 * 40692 % M2;
    const std::int32_t v = next_int();
    ASSERT_EQ(v, combine(s1, s2)) << "draw " << i + 1;
    ASSERT_GE(v, 1);
    ASSERT_LE(v, 2147483562);
  }
  // The very first draws, worked out from the recurrence in exact arithmetic.
  reset_random_package();
  EXPECT_EQ(next_int(), 695163044);
  EXPECT_EQ(next_int(), 696626468);
  EXPECT_EQ(next_int(), 1059541850);
  std::int32_t c1, c2;
  GETSD(c1, c2);
  EXPECT_EQ(c1, 1234567890LL * 40014 % M1 * 40014 % M1 * 40014 % M1);
  EXPECT_EQ(c2, 123456789LL * 40692 % M2 * 40692 % M2 * 40692 % M2);
}

TEST_F(Random, UniformIsTheIntegerTimesTwoToMinus31) {
  float scale;
  const std::uint32_t bits = 0x30000000u;
  std::memcpy(&scale, &bits, 4);
  EXPECT_EQ(scale, 4.656613E-10f);
  std::int64_t s1 = 1234567890, s2 = 123456789;
  for (int i = 0; i < 200; ++i) {
    s1 = s1 * 40014 % M1;
    s2 = s2 * 40692 % M2;
    const float u = next_uniform();
    ASSERT_EQ(u, static_cast<float>(combine(s1, s2)) * scale);
    ASSERT_GT(u, 0.0f);
    ASSERT_LT(u, 1.0f);
  }
  // The largest integer rounds down to 2^31 - 128 in single precision, so 1.0 cannot occur.
  EXPECT_EQ(static_cast<float>(2147483562) * scale, 1.0f - 0x1p-24f);
}

TEST_F(Random, MltmodAgreesWith64BitProducts) {
  std::mt19937_64 rng(7);
  const std::int32_t moduli[] = {2147483563, 2147483399, 2147483647, 1073741825, 1073741823, 65537,
                                 40000,      32769,      32768,      32767,      1000,       3};
  for (std::int32_t m : moduli) {
    std::uniform_int_distribution<std::int32_t> pick(1, m - 1);
    for (int i = 0; i < 20000; ++i) {
      const std::int32_t a = pick(rng), s = pick(rng);
      ASSERT_EQ(MLTMOD(a, s, m), static_cast<std::int64_t>(a) * s % m) << a << " " << s << " " << m;
    }
    // The corners of the allowed range.
    for (std::int32_t a : {1, m - 1, m / 2, std::min(m - 1, 32767), std::min(m - 1, 32768)}) {
      for (std::int32_t s : {1, m - 1, m / 2 + 1}) {
        if (a < 1 || s < 1) continue;
        ASSERT_EQ(MLTMOD(a, s, m), static_cast<std::int64_t>(a) * s % m) << a << " " << s << " " << m;
      }
    }
  }
  // Multipliers at and above 2^30, where the high part of a is split once more.
  for (std::int32_t a : {1073741824, 1073741825, 2082007225, 2147483562}) {
    for (std::int32_t s : {1, 12345, 1073741823, 2147483562}) {
      EXPECT_EQ(MLTMOD(a, s, 2147483563), static_cast<std::int64_t>(a) * s % 2147483563);
    }
  }
}

TEST_F(Random, StreamsStartAtTheJumpedSeeds) {
  set_all_seeds(987654321, 55555);
  std::int64_t e1 = 987654321, e2 = 55555;
  for (std::int32_t g = 1; g <= 32; ++g) {
    if (g > 1) {
      e1 = e1 * RandomState::a1vw % M1;
      e2 = e2 * RandomState::a2vw % M2;
    }
    EXPECT_EQ(random_state.ig1[g], e1);
    EXPECT_EQ(random_state.ig2[g], e2);
    SETCGN(g);
    std::int32_t s1, s2;
    GETSD(s1, s2);
    EXPECT_EQ(s1, e1);
    EXPECT_EQ(s2, e2);
    // The first draw of each stream.
    EXPECT_EQ(next_int(), combine(e1 * 40014 % M1, e2 * 40692 % M2));
  }
  // The current stream is kept across set_all_seeds.
  SETCGN(7);
  set_all_seeds(1, 2);
  std::int32_t g;
  get_current_stream(g);
  EXPECT_EQ(g, 7);
  // Stream 2 starts 2^50 draws after stream 1: a1^(2^50) applied to stream 1's seed.
  EXPECT_EQ(random_state.ig1[2], powmod(40014, 50, M1));
}

TEST_F(Random, BlocksReplay) {
  set_all_seeds(1234567890, 123456789);
  SETCGN(3);
  std::int32_t i1 = random_state.ig1[3], i2 = random_state.ig2[3];
  next_int();
  INITGN(1);
  INITGN(1);
  // Two blocks on: the seed is the initial one times a^(2^30) twice.
  std::int32_t s1, s2;
  GETSD(s1, s2);
  EXPECT_EQ(s1, static_cast<std::int64_t>(i1) * powmod(40014, 30, M1) % M1 * powmod(40014, 30, M1) % M1);
  EXPECT_EQ(s2, static_cast<std::int64_t>(i2) * RandomState::a2w % M2 * RandomState::a2w % M2);
  std::int32_t first[5];
  for (auto& v : first) v = next_int();
  INITGN(0);  // back to the start of the second block
  for (auto v : first) EXPECT_EQ(next_int(), v);
  INITGN(-1);  // back to the initial seed
  GETSD(s1, s2);
  EXPECT_EQ(s1, i1);
  EXPECT_EQ(s2, i2);
  // Other streams are untouched by the jumps of stream 3.
  SETCGN(4);
  GETSD(s1, s2);
  EXPECT_EQ(s1, random_state.ig1[4]);
}

TEST_F(Random, SetsdAntitheticAndRanges) {
  next_int();  // initialises with the defaults
  SETCGN(5);
  SETSD(111, 222);
  std::int32_t s1, s2;
  GETSD(s1, s2);
  EXPECT_EQ(s1, 111);
  EXPECT_EQ(s2, 222);
  const std::int32_t plain = next_int();
  EXPECT_EQ(plain, combine(111LL * 40014 % M1, 222LL * 40692 % M2));
  INITGN(-1);
  set_antithetic(true);
  EXPECT_EQ(next_int(), M1 - plain);
  set_antithetic(false);

  // GENUNF: low = high gives low; values stay in range.
  EXPECT_EQ(GENUNF(2.5f, 2.5f), 2.5f);
  for (int i = 0; i < 1000; ++i) {
    const float v = GENUNF(-3.0f, 5.0f);
    ASSERT_GE(v, -3.0f);
    ASSERT_LE(v, 5.0f);
  }
  // IGNUIN(5, 5) does not draw.
  GETSD(s1, s2);
  EXPECT_EQ(IGNUIN(5, 5), 5);
  std::int32_t t1, t2;
  GETSD(t1, t2);
  EXPECT_EQ(s1, t1);
  EXPECT_EQ(s2, t2);
  // One draw gives low + (next_int() - 1) mod r when the value is under the limit.
  INITGN(0);
  const std::int32_t z = next_int();
  INITGN(0);
  EXPECT_EQ(IGNUIN(-10, 10), -10 + (z - 1) % 21);
  int seen[21] = {};
  for (int i = 0; i < 5000; ++i) {
    const std::int32_t v = IGNUIN(-10, 10);
    ASSERT_GE(v, -10);
    ASSERT_LE(v, 10);
    ++seen[v + 10];
  }
  for (int c : seen) EXPECT_GT(c, 150);
  // The widest range allowed (its limit is 0, so every draw is taken as it is), and the
  // extremes of the integer range.
  INITGN(0);
  const std::int32_t w = next_int();
  INITGN(0);
  EXPECT_EQ(IGNUIN(-1073741824, 1073741737), -1073741824 + (w - 1));
  for (int i = 0; i < 100; ++i) {
    const std::int32_t v = IGNUIN(-1073741824, 1073741737);
    ASSERT_GE(v, -1073741824);
    ASSERT_LE(v, 1073741737);
  }
  EXPECT_EQ(IGNUIN(INT32_MAX, INT32_MAX), INT32_MAX);
}

TEST_F(Random, PhraseToSeeds) {
  std::int32_t s1, s2;
  // "a": c = 1, v = 63, 62, 61, 60, 59.
  // s1 = 1234567890 + 63 -> mod 2^30 = 160826129; + 64*62, + 4096*61, + 262144*60, + 16777216*59
  // = 1166664337 -> mod 2^30 = 92922513. s2 takes v in reverse order.
  phrase_to_seeds("a", s1, s2);
  EXPECT_EQ(s1, 92922513);
  EXPECT_EQ(s2, (((((123456789 + 59) % (1 << 30) + 64 * 60) % (1 << 30) + 4096 * 61) % (1 << 30) +
                   262144 * 62) % (1 << 30) + 16777216LL * 63) % (1 << 30));
  // Values from a separate script of the same steps in unbounded arithmetic.
  phrase_to_seeds("abc", s1, s2);
  EXPECT_EQ(s1, 8241812);
  EXPECT_EQ(s2, 190815113);
  std::int32_t t1, t2;
  phrase_to_seeds("abc   ", t1, t2);
  EXPECT_EQ(t1, s1);
  EXPECT_EQ(t2, s2);
  phrase_to_seeds("Hello World", s1, s2);
  EXPECT_EQ(s1, 61544950);
  EXPECT_EQ(s2, 785182411);
  // A blank phrase gives the defaults.
  phrase_to_seeds("   ", s1, s2);
  EXPECT_EQ(s1, 1234567890);
  EXPECT_EQ(s2, 123456789);
  phrase_to_seeds("", s1, s2);
  EXPECT_EQ(s1, 1234567890);
  // A character outside the table counts as 63, as do place 63 ("!") and place 64 ("@", 0 mod 64).
  phrase_to_seeds("~", s1, s2);
  EXPECT_EQ(s1, 75878992);
  EXPECT_EQ(s2, 106142735);
  for (const char* p : {"!", "@", "\t"}) {
    phrase_to_seeds(p, t1, t2);
    EXPECT_EQ(t1, s1) << p;
    EXPECT_EQ(t2, s2) << p;
  }
  // Place 65 ("#") wraps to 1, the same as "a".
  phrase_to_seeds("#", s1, s2);
  phrase_to_seeds("a", t1, t2);
  EXPECT_EQ(s1, t1);
  EXPECT_EQ(s2, t2);
}

TEST_F(Random, FailureMessages) {
  EXPECT_EQ(stop_text([] { SETCGN(33); }),
            "  Generator number out of range in SETCGN: 33  Legal range is 1 to  32  -- ABORT!\n");
  EXPECT_EQ(stop_text([] { SETCGN(0); }),
            "  Generator number out of range in SETCGN: 0  Legal range is 1 to  32  -- ABORT!\n");
  EXPECT_EQ(stop_text([] { INITGN(0); }),
            "  INITGN called before random number generator   initialized -- abort!\n");
  EXPECT_EQ(stop_text([] { SETSD(1, 2); }),
            "  SETSD called before random number generator   initialized -- abort!\n");
  std::int32_t a, b;
  EXPECT_EQ(stop_text([&] { GETSD(a, b); }),
            "  GETSD called before random number generator   initialized -- abort!\n");
  const std::string mlt =
      " A, M, S out of order in MLTMOD - ABORT!\n  A =  5  S =  0  M =  7\n"
      " MLTMOD requires: 0 < A < M; 0 < S < M\n";
  EXPECT_EQ(stop_text([] { MLTMOD(5, 0, 7); }), mlt);
  EXPECT_NE(stop_text([] { MLTMOD(7, 1, 7); }).find(" A, M, S out of order in MLTMOD - ABORT!"), std::string::npos);
  EXPECT_NE(stop_text([] { MLTMOD(1, 9, 7); }).find(" MLTMOD requires: 0 < A < M; 0 < S < M"), std::string::npos);
  EXPECT_NE(stop_text([] { MLTMOD(0, 1, 7); }).find(" A =  0  S =  1  M =  7"), std::string::npos);
  EXPECT_EQ(stop_text([] { GENUNF(2.0f, 1.5f); }),
            " LOW > HIGH in GENUNF: LOW  2.0  HIGH:  1.5 Abort\nLOW > High in GENUNF - Abort\n");
  EXPECT_EQ(stop_text([] { IGNUIN(3, 2); }), "LOW > HIGH in IGNUIN\n  LOW:  3  HIGH:  2\n Abort on Fatal ERROR\n");
  EXPECT_EQ(stop_text([] { IGNUIN(-1073741824, 1073741738); }),
            " ( HIGH - LOW ) > 2,147,483,561 in IGNUIN\n  LOW:  -1073741824  HIGH:  1073741738\n"
            " Abort on Fatal ERROR\n");
  EXPECT_NE(stop_text([] { IGNUIN(INT32_MIN, INT32_MAX); }).find(" ( HIGH - LOW ) > 2,147,483,561 in IGNUIN"),
            std::string::npos);
  // INITGN accepts only -1, 0 and 1.
  next_int();
  EXPECT_NE(stop_text([] { INITGN(2); }).find("INITGN"), std::string::npos);
}
