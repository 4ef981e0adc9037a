// Helpers of the printed lines and messages of the sparse package (internal, not installed).
// Fixed-width numbers go through the format engine of support/format.hpp.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "mmekit/support/array.hpp"
#include "mmekit/support/free_format.hpp"

namespace mmekit {
struct sparse_ija;
}

namespace mmekit::sparse_detail {

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
