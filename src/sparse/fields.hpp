// Fixed-width fields for the printed lines of the sparse package (internal, not installed).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include "mmekit/support/array.hpp"
#include "mmekit/support/free_format.hpp"

namespace mmekit {
struct sparse_ija;
}

namespace mmekit::sparse_detail {

// An integer right-aligned in w columns; asterisks when it does not fit.
inline std::string int_field(std::int64_t v, int w) {
  char buf[40];
  int len = std::snprintf(buf, sizeof buf, "%*lld", w, static_cast<long long>(v));
  if (len > w) return std::string(static_cast<std::size_t>(w), '*');
  return std::string(buf, static_cast<std::size_t>(len));
}

// A real with d decimals right-aligned in w columns (an Fw.d field); asterisks when it does
// not fit, as for a non-number.
inline std::string fixed_field(double v, int w, int d) {
  if (v != v) return std::string(static_cast<std::size_t>(w > 3 ? w - 3 : 0), ' ') + "NaN";
  char buf[400];
  int len = std::snprintf(buf, sizeof buf, "%*.*f", w, d, v);
  if (len < 0 || len > w || v - v != 0.0) return std::string(static_cast<std::size_t>(w), '*');
  return std::string(buf, static_cast<std::size_t>(len));
}

// Prints the rows of a square matrix, 20 values of 12 columns with 4 decimals to a line.
void print_dense_rows(const Array2<double>& d);

// The dense expansion of an upper-form matrix: (i, j) with j >= i at (i, j) and, for j > i,
// also at (j, i); elements below the diagonal are ignored. A damaged structure stops the run
// in the name of `who`.
Array2<double> dense_of_ija(const sparse_ija& a, std::string_view who);

// " v" for an integer, the free format of a real.
template <class T>
std::string free_item(const T& v) {
  if constexpr (std::is_integral_v<T>) {
    return " " + std::to_string(v);
  } else {
    return free_format(v);
  }
}

// A message followed by values in free format, joined by exactly one blank.
template <class... Args>
std::string message(std::string_view text, const Args&... values) {
  std::string v = (std::string() + ... + free_item(values));
  std::string s(text);
  if (!s.empty() && s.back() == ' ' && !v.empty() && v.front() == ' ') v.erase(0, 1);
  return s + v;
}

}  // namespace mmekit::sparse_detail
