// Sorting the columns of an integer matrix by some of its rows.
//
// Records are columns and fields are rows; a text or real field is held in the i4 cells as its
// raw four bytes, so one integer matrix carries every type. The sort is a quicksort without
// recursion (an explicit stack of 50 entries, module storage, so not re-entrant) and is not
// stable: columns with equal keys may change their relative order.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Compares two key vectors: 1 when `a` comes first, 3 when `b` comes first, 2 when equal.
// Without `types` every key is a signed integer. With `types`, character k says how key k is
// compared: 'i' signed integer, 'r' the four bytes as an r4 (a NaN compares equal to
// anything), 'a' the four bytes as characters in text order; any other character (or a key
// beyond the end of `types`) has no effect. `descending` swaps 1 and 3 after the whole key.
int compare_keys(std::span<const std::int32_t> a, std::span<const std::int32_t> b, bool descending,
                 std::optional<std::string_view> types = std::nullopt);

// Sorts columns 1..n of `mat` (all columns when `n` is absent) ascending by the rows listed
// in `keys` (1-based row numbers, most significant first). Giving `order` at all stops the
// run: only ascending order is available. `types` as in compare_keys; when absent all keys
// are compared as integers.
void sortmat(Array2<std::int32_t>& mat, std::span<const std::int32_t> keys,
             std::optional<std::int32_t> n = std::nullopt, std::optional<std::string_view> order = std::nullopt,
             std::optional<std::string_view> types = std::nullopt);

inline void sortmat(Array2<std::int32_t>& mat, const Array1<std::int32_t>& keys,
                    std::optional<std::int32_t> n = std::nullopt,
                    std::optional<std::string_view> order = std::nullopt,
                    std::optional<std::string_view> types = std::nullopt) {
  sortmat(mat, std::span<const std::int32_t>(keys.data(), static_cast<std::size_t>(keys.size())), n, order,
          types);
}

}  // namespace mmekit
