// The check of a row-compressed structure and the words for its faults.
#include "mmekit/support/row_structure.hpp"

#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

std::string num(std::int64_t v) { return std::to_string(v); }

template <class I>
RowStructureFault check(std::int64_t n, std::span<const I> ia, std::span<const I> ja, const RowStructureRules& rules) {
  return scan_row_structure<I>(n, ia, ja, rules, [](std::int64_t, std::int64_t, std::int64_t) {},
                               [](std::int64_t, std::int64_t, std::int64_t) {});
}

}  // namespace

std::string describe(const RowStructureFault& f) {
  const std::string ia_at = "ia(" + num(f.position) + ")";
  switch (f.kind) {
    case RowFault::none:
      return {};
    case RowFault::negative_order:
      return "the order n = " + num(f.value) + " is negative";
    case RowFault::short_ia:
      return "n = " + num(f.limit - 1) + " needs " + num(f.limit) + " entries in ia but ia holds " + num(f.value);
    case RowFault::first_start:
      if (f.position != 1) return ia_at + " = " + num(f.value) + " is below 1";
      return "ia(1) = " + num(f.value) + " but the first row must start at 1";
    case RowFault::decreasing:
      return ia_at + " = " + num(f.value) + " is below ia(" + num(f.row) + ") = " + num(f.limit);
    case RowFault::empty_row:
      return "row " + num(f.row) + " is empty: ia(" + num(f.row) + ") = " + ia_at + " = " + num(f.value);
    case RowFault::short_ja:
      return ia_at + "-1 = " + num(f.value) + " but ja holds " + num(f.limit) + " entries";
    case RowFault::short_values:
      return ia_at + "-1 = " + num(f.value) + " but a holds " + num(f.limit) + " entries";
    case RowFault::column_low:
    case RowFault::column_high:
      return "ja(" + num(f.position) + ") = " + num(f.value) + " in row " + num(f.row) + " is outside 1.." +
             num(f.limit);
    case RowFault::element_count:
      return "nel = " + num(f.limit) + " but ia(n+1)-1 = " + num(f.value);
  }
  return {};
}

RowStructureFault check_row_structure(std::int64_t n, std::span<const std::int32_t> ia,
                                      std::span<const std::int32_t> ja, const RowStructureRules& rules) {
  return check<std::int32_t>(n, ia, ja, rules);
}

RowStructureFault check_row_structure(std::int64_t n, std::span<const std::int64_t> ia,
                                      std::span<const std::int64_t> ja, const RowStructureRules& rules) {
  return check<std::int64_t>(n, ia, ja, rules);
}

void require_row_structure(std::string_view who, std::int64_t n, std::span<const std::int32_t> ia,
                           std::span<const std::int32_t> ja, const RowStructureRules& rules) {
  if (const RowStructureFault f = check_row_structure(n, ia, ja, rules)) stop(std::string(who) + ": " + describe(f));
}

void require_row_structure(std::string_view who, std::int64_t n, std::span<const std::int64_t> ia,
                           std::span<const std::int64_t> ja, const RowStructureRules& rules) {
  if (const RowStructureFault f = check_row_structure(n, ia, ja, rules)) stop(std::string(who) + ": " + describe(f));
}

}  // namespace mmekit
