// Fast writers of the two output items of the covariate tool, byte for byte the same as the
// shared formatter's "(1x,f0.5)" and "(1x,i0)":
// - f0.5: fixed notation with five decimals, the exact binary value rounded to nearest with
//   ties to even, least width, no "0" before the point below 1 in magnitude (.50000, -.25000),
//   a minus sign whenever the sign bit is set (also "-.00000"), "NaN", "Infinity", "-Infinity".
// - i0: the integer in the least width.
// Each call writes one blank and then the value: `put_*` at `p`, returning the end of what it
// wrote (at most `f05_max_chars` or `i0_max_chars` characters), `append_*` at the end of `out`.
#pragma once

#include <cstdint>
#include <string>

namespace mmekit {

inline constexpr std::size_t f05_max_chars = 330;
inline constexpr std::size_t i0_max_chars = 12;

char* put_f05(char* p, double value);
char* put_i0(char* p, std::int32_t value);

void append_f05(std::string& out, double value);
inline void append_f05(std::string& out, float value) { append_f05(out, static_cast<double>(value)); }
void append_i0(std::string& out, std::int32_t value);

}  // namespace mmekit
