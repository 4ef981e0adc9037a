// The check of a row-compressed structure, the one place where every routine that takes
// `ia`/`ja` arrays (the sparse kinds, both direct solvers, their graph routines) makes sure
// that it can walk them without reading past an array.
//
// A structure of order n: ia(1..n+1), where ia(i) is the position in ja of the first element
// of row i and ia(n+1)-1 the number of elements; ja(k) is the column of element k. It is sound
// when
//   - n is not negative and ia holds at least n + 1 entries (an order of 0 may come with an
//     empty ia: the empty, unallocated matrix),
//   - ia(1) = 1 and ia never falls (a row may be empty unless the rules say otherwise),
//   - ja, and the values when their number is given, hold at least ia(n+1)-1 entries,
//   - every column lies in 1..n,
//   - and the declared number of elements, when given, is ia(n+1)-1.
// The rows are checked one after the other, each row's bounds before its columns, so that the
// first fault found is the first one a row-by-row walk would meet.
//
// The check reports a fault rather than stopping, so that each caller chooses its reaction: a
// stop with "<routine>: <description>" (`require_row_structure`), a status number, an error
// flag, or a message of its own for the faults it has always named.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "mmekit/support/array.hpp"

namespace mmekit {

enum class RowFault {
  none,
  negative_order,  // n < 0
  short_ia,        // ia holds fewer than n + 1 entries
  first_start,     // ia(1) is not 1 (or, for one row alone, ia(i) is below 1)
  decreasing,      // ia(i+1) < ia(i)
  empty_row,       // ia(i+1) = ia(i), where the rules refuse empty rows
  short_ja,        // ia(i+1)-1 is beyond the entries of ja
  short_values,    // ia(i+1)-1 is beyond the entries of the values
  column_low,      // ja(k) < 1
  column_high,     // ja(k) > n
  element_count,   // the declared number of elements is not ia(n+1)-1
};

// The first fault of a structure. `row` is the row concerned (0 when none), `position` the
// 1-based index into ia (faults of the row bounds) or into ja (faults of a column), `value` the
// offending value and `limit` what it was held against.
struct RowStructureFault {
  RowFault kind = RowFault::none;
  std::int64_t row = 0;
  std::int64_t position = 0;
  std::int64_t value = 0;
  std::int64_t limit = 0;

  explicit operator bool() const { return kind != RowFault::none; }
};

struct RowStructureRules {
  bool empty_rows = true;      // false: a row without elements is a fault
  std::int64_t values = -1;    // number of values held (the array `a`); -1: none to check
  std::int64_t elements = -1;  // declared number of elements (`nel`); -1: none to check
  bool columns = true;         // false: the columns are not judged (for a routine that never
                               // indexes by them); on_entry still sees each one
};

// What is wrong, in words, e.g. "ia(11)-1 = 12 but ja holds 10 entries"; empty for no fault.
std::string describe(const RowStructureFault& fault);

// Walks the structure row by row and returns its first fault. For every row whose bounds are
// sound, `on_row(i, first, last)` is called before its columns are checked (ja(first..last) and
// the values there may then be read), and `on_entry(i, k, j)` for every column j = ja(k) found
// in 1..n (for every column when the rules leave the columns unjudged). Either may stop the run; the walk ends at the first fault.
template <class I, class OnRow, class OnEntry>
RowStructureFault scan_row_structure(std::int64_t n, std::span<const I> ia, std::span<const I> ja,
                                     const RowStructureRules& rules, OnRow&& on_row, OnEntry&& on_entry) {
  using K = RowFault;
  if (n < 0) return {K::negative_order, 0, 0, n, 0};
  const auto nia = static_cast<std::int64_t>(ia.size());
  const auto nja = static_cast<std::int64_t>(ja.size());
  if (n == 0 && nia == 0) {
    if (rules.elements > 0) return {K::element_count, 0, 0, 0, rules.elements};
    return {};
  }
  if (nia < n + 1) return {K::short_ia, 0, 0, nia, n + 1};
  for (std::int64_t i = 1; i <= n; ++i) {
    const std::int64_t first = ia[static_cast<std::size_t>(i - 1)];
    const std::int64_t next = ia[static_cast<std::size_t>(i)];
    if (next < first) return {K::decreasing, i, i + 1, next, first};
    if (next == first && !rules.empty_rows) return {K::empty_row, i, i + 1, next, first};
    if (i == 1 && first != 1) return {K::first_start, 1, 1, first, 1};
    if (next - 1 > nja) return {K::short_ja, i, i + 1, next - 1, nja};
    if (rules.values >= 0 && next - 1 > rules.values) return {K::short_values, i, i + 1, next - 1, rules.values};
    on_row(i, first, next - 1);
    for (std::int64_t k = first; k < next; ++k) {
      const std::int64_t j = ja[static_cast<std::size_t>(k - 1)];
      if (rules.columns && j < 1) return {K::column_low, i, k, j, n};
      if (rules.columns && j > n) return {K::column_high, i, k, j, n};
      on_entry(i, k, j);
    }
  }
  const std::int64_t count = static_cast<std::int64_t>(ia[static_cast<std::size_t>(n)]) - 1;
  if (n == 0 && count != 0) return {K::first_start, 1, 1, count + 1, 1};
  if (rules.elements >= 0 && count != rules.elements) return {K::element_count, 0, n + 1, count, rules.elements};
  return {};
}

// The bounds of row i alone, for element access that reads one row: ia(i) and ia(i+1) present
// (ia holds n + 1 entries), ia(i) at least 1, ia(i+1) not below it, and ia(i+1)-1 within ja and
// the values. The columns are not looked at. Rows outside 1..n have no bounds to check.
template <class I>
RowStructureFault check_row_bounds(std::int64_t i, std::int64_t n, std::span<const I> ia, std::span<const I> ja,
                                   const RowStructureRules& rules = {}) {
  using K = RowFault;
  if (i < 1 || i > n) return {};
  if (static_cast<std::int64_t>(ia.size()) < n + 1) return {K::short_ia, 0, 0, static_cast<std::int64_t>(ia.size()), n + 1};
  const std::int64_t first = ia[static_cast<std::size_t>(i - 1)];
  const std::int64_t next = ia[static_cast<std::size_t>(i)];
  if (next < first) return {K::decreasing, i, i + 1, next, first};
  if (first < 1) return {K::first_start, i, i, first, 1};
  if (next - 1 > static_cast<std::int64_t>(ja.size()))
    return {K::short_ja, i, i + 1, next - 1, static_cast<std::int64_t>(ja.size())};
  if (rules.values >= 0 && next - 1 > rules.values) return {K::short_values, i, i + 1, next - 1, rules.values};
  return {};
}

// The check alone.
RowStructureFault check_row_structure(std::int64_t n, std::span<const std::int32_t> ia,
                                      std::span<const std::int32_t> ja, const RowStructureRules& rules = {});
RowStructureFault check_row_structure(std::int64_t n, std::span<const std::int64_t> ia,
                                      std::span<const std::int64_t> ja, const RowStructureRules& rules = {});

// The check with a stop: "<who>: <description>".
void require_row_structure(std::string_view who, std::int64_t n, std::span<const std::int32_t> ia,
                           std::span<const std::int32_t> ja, const RowStructureRules& rules = {});
void require_row_structure(std::string_view who, std::int64_t n, std::span<const std::int64_t> ia,
                           std::span<const std::int64_t> ja, const RowStructureRules& rules = {});

// The elements of a 1-based array as a span, for the calls above.
template <class T>
std::span<const T> span_of(const Array1<T>& a) {
  return {a.data(), static_cast<std::size_t>(a.size())};
}

}  // namespace mmekit
