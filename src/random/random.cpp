#include "mmekit/random/random.hpp"

#include <string>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

RandomState random_state;

namespace {

constexpr std::int32_t default_seed1 = 1234567890;
constexpr std::int32_t default_seed2 = 123456789;

// The seeds of every stream from stream 1's initial seed, with the package marked ready.
void initialize_defaults() { set_all_seeds(default_seed1, default_seed2); }

void ensure_initialized() {
  if (!random_state.initialized) initialize_defaults();
}

// (p + c * s) mod m for 0 <= p < m, 0 <= c < 32768, 0 < s < m, without leaving 32 bits.
// With q = m / c and r = m mod c, c * s = c * (s mod q) + k * (c * q) with k = s / q, and
// c * q = m - r, so c * s = c * (s mod q) - k * r (mod m). Both products are below 2^31:
// c * (s mod q) < c * q <= m, and k * r < (m / q) * c < 2 c^2 <= 2 * 32767^2.
std::int32_t add_product(std::int32_t p, std::int32_t c, std::int32_t s, std::int32_t m) {
  if (c == 0) return p;
  const std::int32_t q = m / c;
  const std::int32_t k = s / q;
  p -= k * (m - c * q);      // p > -2^31
  if (p > 0) p -= m;         // p <= 0 from here, so the next addition stays below m
  p += c * (s - k * q);
  if (p < 0) {
    p %= m;
    if (p < 0) p += m;
  }
  return p;
}

// p * 32768 mod m for 0 <= p < m and m > 32768, by the same split with q = m / 32768:
// k * r < (m / q) * 32768 <= 65535 * 32767.
std::int32_t times_h(std::int32_t p, std::int32_t m) {
  constexpr std::int32_t h = 32768;
  const std::int32_t qh = m / h;
  const std::int32_t rh = m - h * qh;
  const std::int32_t k = p / qh;
  p = h * (p - k * qh) - k * rh;
  if (p < 0) {
    p %= m;
    if (p < 0) p += m;
  }
  return p;
}

std::string not_initialized(std::string_view routine) {
  return free_format(std::string(" ") + std::string(routine) + " called before random number generator ",
                     " initialized -- abort!");
}

}  // namespace

void reset_random_package() { random_state = RandomState{}; }

std::int32_t MLTMOD(std::int32_t a, std::int32_t s, std::int32_t m) {
  constexpr std::int32_t h = 32768;
  if (!(a > 0 && a < m && s > 0 && s < m)) {
    stop(" A, M, S out of order in MLTMOD - ABORT!\n" + free_format(" A = ", a, " S = ", s, " M = ", m) +
         "\n MLTMOD requires: 0 < A < M; 0 < S < M");
  }
  if (a < h) return add_product(0, a, s, m);
  // a = a1 * h + a0, and when a1 >= h (a >= 2^30) a1 = h + a1'. Horner's scheme:
  // a * s = ((h * s + a1' * s) * h + a0 * s) mod m, each step reduced.
  std::int32_t a1 = a / h;
  const std::int32_t a0 = a - h * a1;
  std::int32_t p = 0;
  if (a1 >= h) {
    a1 -= h;
    p = times_h(s, m);
  }
  p = add_product(p, a1, s, m);
  p = times_h(p, m);
  return add_product(p, a0, s, m);
}

void INITGN(std::int32_t kind) {
  RandomState& st = random_state;
  if (!st.initialized) stop(not_initialized("INITGN"));
  const std::int32_t g = st.current;
  if (kind == -1) {
    st.lg1[g] = st.ig1[g];
    st.lg2[g] = st.ig2[g];
  } else if (kind == 1) {
    st.lg1[g] = MLTMOD(RandomState::a1w, st.lg1[g], RandomState::m1);
    st.lg2[g] = MLTMOD(RandomState::a2w, st.lg2[g], RandomState::m2);
  } else if (kind != 0) {
    stop(free_format(" INITGN called with kind ", kind, " -- legal values are -1, 0 and 1"));
  }
  st.cg1[g] = st.lg1[g];
  st.cg2[g] = st.lg2[g];
}

void set_all_seeds(std::int32_t s1, std::int32_t s2) {
  RandomState& st = random_state;
  st.initialized = true;
  const std::int32_t saved = st.current;
  st.ig1[1] = s1;
  st.ig2[1] = s2;
  st.current = 1;
  INITGN(-1);
  for (std::int32_t g = 2; g <= random_streams; ++g) {
    st.ig1[g] = MLTMOD(RandomState::a1vw, st.ig1[g - 1], RandomState::m1);
    st.ig2[g] = MLTMOD(RandomState::a2vw, st.ig2[g - 1], RandomState::m2);
    st.current = g;
    INITGN(-1);
  }
  st.current = saved;
}

void SETSD(std::int32_t s1, std::int32_t s2) {
  RandomState& st = random_state;
  if (!st.initialized) stop(not_initialized("SETSD"));
  st.ig1[st.current] = s1;
  st.ig2[st.current] = s2;
  INITGN(-1);
}

void GETSD(std::int32_t& s1, std::int32_t& s2) {
  const RandomState& st = random_state;
  if (!st.initialized) stop(not_initialized("GETSD"));
  s1 = st.cg1[st.current];
  s2 = st.cg2[st.current];
}

void SETCGN(std::int32_t g) {
  if (g < 1 || g > random_streams) {
    stop(free_format(" Generator number out of range in SETCGN:", g, " Legal range is 1 to ", random_streams,
                     " -- ABORT!"));
  }
  random_state.current = g;
}

void get_current_stream(std::int32_t& g) { g = random_state.current; }

void set_antithetic(bool flag) { random_state.anti[random_state.current] = flag; }

std::int32_t next_int() {
  ensure_initialized();
  RandomState& st = random_state;
  const std::int32_t g = st.current;
  std::int32_t s1 = st.cg1[g];
  std::int32_t k = s1 / 53668;
  s1 = RandomState::a1 * (s1 - k * 53668) - k * 12211;
  if (s1 < 0) s1 += RandomState::m1;
  std::int32_t s2 = st.cg2[g];
  k = s2 / 52774;
  s2 = RandomState::a2 * (s2 - k * 52774) - k * 3791;
  if (s2 < 0) s2 += RandomState::m2;
  st.cg1[g] = s1;
  st.cg2[g] = s2;
  std::int32_t z = s1 - s2;
  if (z < 1) z += RandomState::m1 - 1;
  if (st.anti[g]) z = RandomState::m1 - z;
  return z;
}

float next_uniform() {
  constexpr float scale = 0x1p-31f;  // 4.656613E-10, bits 30000000
  return static_cast<float>(next_int()) * scale;
}

float GENUNF(float low, float high) {
  if (low > high) {
    stop(free_format("LOW > HIGH in GENUNF: LOW ", low, " HIGH: ", high, "Abort") +
         "\nLOW > High in GENUNF - Abort");
  }
  return low + (high - low) * next_uniform();
}

std::int32_t IGNUIN(std::int32_t low, std::int32_t high) {
  constexpr std::int32_t maxnum = 2147483561;
  const std::string tail = "\n" + free_format(" LOW: ", low, " HIGH: ", high) + "\n Abort on Fatal ERROR";
  if (low > high) stop("LOW > HIGH in IGNUIN" + tail);
  if (static_cast<std::int64_t>(high) - low > maxnum) stop(" ( HIGH - LOW ) > 2,147,483,561 in IGNUIN" + tail);
  if (low == high) return low;
  const std::int32_t r = high - low + 1;
  const std::int32_t limit = r * (maxnum / r);
  // For the widest range (r = 2147483562) the limit is 0 and every draw would be refused;
  // there every value 0..2147483561 is already uniform over the range, so all are accepted.
  if (limit == 0) return low + (next_int() - 1);
  std::int32_t v;
  do {
    v = next_int() - 1;
  } while (v > limit);
  return low + v % r;
}

void phrase_to_seeds(std::string_view phrase, std::int32_t& s1, std::int32_t& s2) {
  static constexpr std::string_view table =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&*()_+[];:'\"<>?,./";
  static_assert(table.size() == 86);
  static constexpr std::int32_t shift[5] = {1, 64, 4096, 262144, 16777216};
  constexpr std::int32_t twop30 = 1073741824;
  s1 = 1234567890;
  s2 = 123456789;
  std::size_t len = phrase.size();
  while (len > 0 && phrase[len - 1] == ' ') --len;
  for (std::size_t i = 0; i < len; ++i) {
    const std::size_t at = table.find(phrase[i]);
    std::int32_t c = at == std::string_view::npos ? 0 : static_cast<std::int32_t>(at) + 1;
    c %= 64;
    if (c == 0) c = 63;
    std::int32_t v[6];
    for (std::int32_t j = 1; j <= 5; ++j) {
      v[j] = c - j;
      if (v[j] < 1) v[j] += 63;
    }
    // s1, s2 < 2^31 on entry and < 2^30 after the first step; shift * v <= 2^24 * 62.
    for (std::int32_t j = 1; j <= 5; ++j) {
      s1 = (s1 % twop30 + shift[j - 1] * v[j]) % twop30;
      s2 = (s2 % twop30 + shift[j - 1] * v[6 - j]) % twop30;
    }
  }
}

}  // namespace mmekit
