#include "mmekit/records/sortmat.hpp"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

constexpr int stack_limit = 50;

// The pending (left, right) pairs of the quicksort; module storage, as the routine is not
// re-entrant.
struct SortStack {
  std::int32_t left[stack_limit];
  std::int32_t right[stack_limit];
  int depth = 0;
};
SortStack sort_stack;

int compare_one(std::int32_t x, std::int32_t y, char type) {
  switch (type) {
    case 'i':
      return x < y ? 1 : (x > y ? 3 : 2);
    case 'r': {
      float fx, fy;
      std::memcpy(&fx, &x, 4);
      std::memcpy(&fy, &y, 4);
      return fx < fy ? 1 : (fx > fy ? 3 : 2);
    }
    case 'a': {
      // The four characters in memory order, compared as text.
      unsigned char cx[4], cy[4];
      std::memcpy(cx, &x, 4);
      std::memcpy(cy, &y, 4);
      const int c = std::memcmp(cx, cy, 4);
      return c < 0 ? 1 : (c > 0 ? 3 : 2);
    }
    default:
      return 2;
  }
}

}  // namespace

int compare_keys(std::span<const std::int32_t> a, std::span<const std::int32_t> b, bool descending,
                 std::optional<std::string_view> types) {
  const std::size_t n = std::min(a.size(), b.size());
  int result = 2;
  if (!types) {
    for (std::size_t k = 0; k < n; ++k) {
      if (a[k] < b[k]) { result = 1; break; }
      if (a[k] > b[k]) { result = 3; break; }
    }
  } else {
    for (std::size_t k = 0; k < n; ++k) {
      const char t = k < types->size() ? (*types)[k] : ' ';
      const int c = compare_one(a[k], b[k], t);
      if (c != 2) { result = c; break; }
    }
  }
  return descending ? 4 - result : result;
}

void sortmat(Array2<std::int32_t>& mat, std::span<const std::int32_t> keys, std::optional<std::int32_t> n,
             std::optional<std::string_view> order, std::optional<std::string_view> types) {
  if (order) stop(free_format("sortmat: sort order is either 'a' for ascending or 'd' for ", "descending"));
  const std::int32_t nkeys = static_cast<std::int32_t>(keys.size());
  if (types) {
    const std::int32_t ntypes = static_cast<std::int32_t>(types->size());
    if (ntypes < nkeys) print_free("sortmat: ordering types of wrong length:'\\", ntypes, "<", nkeys);
    for (std::int32_t k = 0; k < std::min(ntypes, nkeys); ++k) {
      const char t = (*types)[static_cast<std::size_t>(k)];
      if (t != 'i' && t != 'a' && t != 'r') stop("sortmat: types should contain only characters 'iar'");
    }
  }
  const std::int64_t rows = mat.rows();
  for (std::int32_t r : keys) {
    if (r < 1 || r > rows) stop(free_format("sortmat: key row", r, "outside the matrix of", rows, "rows"));
  }
  std::int32_t ncols = static_cast<std::int32_t>(std::min<std::int64_t>(mat.cols(), INT32_MAX));
  if (n) ncols = std::min(ncols, *n);
  if (ncols < 2) return;

  // Column j occupies data()[(j - 1) * rows .. j * rows - 1] (0-based in this kernel).
  std::int32_t* m = mat.data();
  std::vector<std::int32_t> pivot(static_cast<std::size_t>(nkeys));
  std::vector<std::int32_t> column(static_cast<std::size_t>(rows));
  std::vector<std::int32_t> key(static_cast<std::size_t>(nkeys));
  auto load_key = [&](std::int32_t col, std::vector<std::int32_t>& to) {
    const std::int32_t* c = m + static_cast<std::int64_t>(col - 1) * rows;
    for (std::int32_t k = 0; k < nkeys; ++k) to[static_cast<std::size_t>(k)] = c[keys[static_cast<std::size_t>(k)] - 1];
  };
  auto compare_column = [&](std::int32_t col) {
    load_key(col, key);
    return compare_keys(key, pivot, false, types);
  };
  auto exchange = [&](std::int32_t i, std::int32_t j) {
    std::int32_t* ci = m + static_cast<std::int64_t>(i - 1) * rows;
    std::int32_t* cj = m + static_cast<std::int64_t>(j - 1) * rows;
    std::copy(ci, ci + rows, column.begin());
    std::copy(cj, cj + rows, ci);
    std::copy(column.begin(), column.end(), cj);
  };

  SortStack& st = sort_stack;
  st.depth = 0;
  st.left[0] = 1;
  st.right[0] = ncols;
  st.depth = 1;
  while (st.depth > 0) {
    --st.depth;
    const std::int32_t l = st.left[st.depth];
    std::int32_t r = st.right[st.depth];
    while (l < r) {
      std::int32_t i = l, j = r;
      load_key(l + (r - l) / 2, pivot);
      do {
        for (;;) {
          const int c = compare_column(i);
          if (c == 1) { ++i; continue; }
          if (c == 2 || c == 3) break;
          stop("should not happen 123548");
        }
        for (;;) {
          const int c = compare_column(j);
          if (c == 3) { --j; continue; }
          if (c == 1 || c == 2) break;
          stop("should not happen 123549");
        }
        if (i <= j) {
          if (i != j) exchange(i, j);
          ++i;
          --j;
        }
      } while (i <= j);
      if (i < r) {
        if (st.depth >= stack_limit) {
          st.depth = 0;
          stop("stack > 50");
        }
        st.left[st.depth] = i;
        st.right[st.depth] = r;
        ++st.depth;
      }
      r = j;
    }
  }
}

}  // namespace mmekit
