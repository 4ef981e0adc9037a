#include "mmekit/tool/fixed_output.hpp"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace mmekit {

namespace {

constexpr char digit_pairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Fallback for magnitudes whose scaled value does not fit 125 bits (above about 1e32): the
// C library prints the exact binary value rounded to nearest, ties to even, as well.
char* put_f05_slow(char* p, double a, bool negative) {
  char buf[400];
  int n = std::snprintf(buf, sizeof buf, "%.5f", a);
  *p++ = ' ';
  if (negative) *p++ = '-';
  std::memcpy(p, buf, static_cast<std::size_t>(n));
  return p + n;
}

char* put_u128(char* p, unsigned __int128 v) {
  constexpr std::uint64_t chunk = 10000000000000000000ull;  // 10^19
  if (v <= UINT64_MAX) return std::to_chars(p, p + 24, static_cast<std::uint64_t>(v)).ptr;
  p = put_u128(p, v / chunk);
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, static_cast<std::uint64_t>(v % chunk));
  std::size_t len = static_cast<std::size_t>(r.ptr - buf);
  std::memset(p, '0', 19 - len);
  std::memcpy(p + 19 - len, buf, len);
  return p + 19;
}

// Quotient and remainder by 10^5, by multiplication (q / 10^5 = (q / 32) / 3125).
inline void split_100000(std::uint64_t q, std::uint64_t& whole, std::uint32_t& frac) {
  const std::uint64_t h = q >> 5;
  whole = static_cast<std::uint64_t>((static_cast<unsigned __int128>(h) * 0xA7C5AC471B478424ull) >> 75);
  frac = static_cast<std::uint32_t>(q - whole * 100000u);
}

// One blank, the sign, the digits of q / 10^5 (none when 0), the point and five decimals.
inline char* put_scaled(char* p, bool negative, std::uint64_t q) {
  std::uint64_t whole;
  std::uint32_t frac;
  split_100000(q, whole, frac);
  *p++ = ' ';
  if (negative) *p++ = '-';
  if (whole != 0) {
    if (whole < 10) {
      *p++ = static_cast<char>('0' + whole);
    } else if (whole < 100) {
      std::memcpy(p, digit_pairs + 2 * whole, 2);
      p += 2;
    } else {
      p = std::to_chars(p, p + 24, whole).ptr;
    }
  }
  // 2 + 1 + 2 digits; the divisions by 1000 and 100 written as the multiplications they are.
  const std::uint32_t hi = static_cast<std::uint32_t>((std::uint64_t{frac} * 274877907u) >> 38);
  const std::uint32_t lo = frac - hi * 1000u;
  const std::uint32_t mid = static_cast<std::uint32_t>((std::uint64_t{lo} * 1374389535u) >> 37);
  p[0] = '.';
  std::memcpy(p + 1, digit_pairs + 2 * hi, 2);
  p[3] = static_cast<char>('0' + mid);
  std::memcpy(p + 4, digit_pairs + 2 * (lo - mid * 100u), 2);
  return p + 6;
}

// Every value the fast path does not take: not finite, very small or large.
[[gnu::noinline]] char* put_f05_general(char* p, double value) {
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
  const bool negative = (bits >> 63) != 0;
  const int biased = static_cast<int>((bits >> 52) & 0x7ff);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
  if (biased == 0x7ff) {
    const char* t = fraction != 0 ? " NaN" : (negative ? " -Infinity" : " Infinity");
    std::size_t n = std::strlen(t);
    std::memcpy(p, t, n);
    return p + n;
  }
  const std::uint64_t mantissa = biased == 0 ? fraction : (fraction | (std::uint64_t{1} << 52));
  const int exponent = biased == 0 ? -1074 : biased - 1075;
  const int shift = exponent + 5;
  const unsigned __int128 scaled = static_cast<unsigned __int128>(mantissa) * 3125u;  // < 2^65
  unsigned __int128 q = 0;
  if (shift >= 0) {
    if (shift > 60) return put_f05_slow(p, std::fabs(value), negative);
    q = scaled << shift;
  } else if (shift > -127) {
    const int s = -shift;
    q = scaled >> s;
    const unsigned __int128 rest = scaled & ((static_cast<unsigned __int128>(1) << s) - 1);
    const unsigned __int128 half = static_cast<unsigned __int128>(1) << (s - 1);
    if (rest > half || (rest == half && (q & 1) != 0)) ++q;
  }  // else below 2^-62: rounds to zero
  if (q <= UINT64_MAX) return put_scaled(p, negative, static_cast<std::uint64_t>(q));
  *p++ = ' ';
  if (negative) *p++ = '-';
  p = put_u128(p, q / 100000u);
  std::uint32_t frac = static_cast<std::uint32_t>(q % 100000u);
  p[0] = '.';
  for (int i = 5; i >= 1; --i) {
    p[i] = static_cast<char>('0' + frac % 10);
    frac /= 10;
  }
  return p + 6;
}

}  // namespace

char* put_f05(char* p, double value) {
  // value = mantissa * 2^exponent; q = value * 10^5 = mantissa * 5^5 * 2^(exponent + 5), rounded
  // to nearest, ties to even, from its exact binary expansion. Fast path for normal numbers
  // with 1 <= -(exponent + 5) <= 63 (magnitudes from about 1.5e-5 to 1.4e14): q fits 64 bits.
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
  const int biased = static_cast<int>((bits >> 52) & 0x7ff);
  const int s = 1075 - 5 - biased;  // -(exponent + 5)
  if (biased == 0 || s < 1 || s > 63) return put_f05_general(p, value);
  const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
  const unsigned __int128 scaled = static_cast<unsigned __int128>(mantissa) * 3125u;
  const std::uint64_t lo = static_cast<std::uint64_t>(scaled);
  const std::uint64_t hi = static_cast<std::uint64_t>(scaled >> 64);  // 0 or 1
  std::uint64_t q = (lo >> s) | (hi << (64 - s));
  const std::uint64_t rest = lo & ((std::uint64_t{1} << s) - 1);
  const std::uint64_t half = std::uint64_t{1} << (s - 1);
  q += (rest > half || (rest == half && (q & 1) != 0)) ? 1 : 0;
  return put_scaled(p, (bits >> 63) != 0, q);
}

char* put_i0(char* p, std::int32_t value) {
  *p++ = ' ';
  return std::to_chars(p, p + 11, value).ptr;
}

void append_f05(std::string& out, double value) {
  char buf[f05_max_chars];
  out.append(buf, put_f05(buf, value));
}

void append_i0(std::string& out, std::int32_t value) {
  char buf[i0_max_chars];
  out.append(buf, put_i0(buf, value));
}

}  // namespace mmekit
