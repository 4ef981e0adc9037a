#include "tool/fixed_output.hpp"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace mmekit {

namespace {

// Fallback for magnitudes whose scaled value does not fit 127 bits (above about 1e33): the
// C library prints the exact binary value rounded to nearest, ties to even, as well.
void append_f05_slow(std::string& out, double a, bool negative) {
  char buf[400];
  int n = std::snprintf(buf, sizeof buf, "%.5f", a);
  out.push_back(' ');
  if (negative) out.push_back('-');
  out.append(buf, static_cast<std::size_t>(n));
}

void append_u128(std::string& out, unsigned __int128 v) {
  constexpr std::uint64_t chunk = 10000000000000000000ull;  // 10^19
  if (v <= UINT64_MAX) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, static_cast<std::uint64_t>(v));
    out.append(buf, r.ptr);
    return;
  }
  append_u128(out, v / chunk);
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, static_cast<std::uint64_t>(v % chunk));
  std::size_t len = static_cast<std::size_t>(r.ptr - buf);
  out.append(19 - len, '0');
  out.append(buf, len);
}

}  // namespace

void append_f05(std::string& out, double value) {
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
  const bool negative = (bits >> 63) != 0;
  const int biased = static_cast<int>((bits >> 52) & 0x7ff);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
  if (biased == 0x7ff) {
    out.append(fraction != 0 ? " NaN" : (negative ? " -Infinity" : " Infinity"));
    return;
  }
  // value = mantissa * 2^exponent; q = value * 10^5 = mantissa * 5^5 * 2^(exponent + 5).
  const std::uint64_t mantissa = biased == 0 ? fraction : (fraction | (std::uint64_t{1} << 52));
  const int exponent = biased == 0 ? -1074 : biased - 1075;
  const unsigned __int128 scaled = static_cast<unsigned __int128>(mantissa) * 3125u;  // < 2^65
  const int shift = exponent + 5;
  unsigned __int128 q;
  if (shift >= 0) {
    if (shift > 60) {  // beyond 2^125: let the C library do it
      append_f05_slow(out, std::fabs(value), negative);
      return;
    }
    q = scaled << shift;
  } else {
    const int s = -shift;
    if (s >= 127) {
      q = 0;  // below 2^-62: rounds to zero
    } else {
      q = scaled >> s;
      const unsigned __int128 rest = scaled & ((static_cast<unsigned __int128>(1) << s) - 1);
      const unsigned __int128 half = static_cast<unsigned __int128>(1) << (s - 1);
      if (rest > half || (rest == half && (q & 1) != 0)) ++q;
    }
  }
  char frac[5];
  std::uint64_t f;
  unsigned __int128 whole;
  if (q <= UINT64_MAX) {
    const std::uint64_t q64 = static_cast<std::uint64_t>(q);
    whole = q64 / 100000u;
    f = q64 % 100000u;
  } else {
    whole = q / 100000u;
    f = static_cast<std::uint64_t>(q % 100000u);
  }
  for (int i = 4; i >= 0; --i) {
    frac[i] = static_cast<char>('0' + f % 10);
    f /= 10;
  }
  out.push_back(' ');
  if (negative) out.push_back('-');
  if (whole != 0) append_u128(out, whole);
  out.push_back('.');
  out.append(frac, 5);
}

void append_i0(std::string& out, std::int32_t value) {
  char buf[16];
  buf[0] = ' ';
  auto r = std::to_chars(buf + 1, buf + sizeof buf, value);
  out.append(buf, r.ptr);
}

}  // namespace mmekit
