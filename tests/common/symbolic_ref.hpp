// The pattern of a Cholesky factor by dense symbolic elimination, the reference for the
// structures of the sparse factorisations on small matrices (n x n booleans: tests only).
#pragma once

#include <cstdint>
#include <vector>

#include "mmekit/support/array.hpp"

namespace mmekit::test {

// L of the upper-triangle pattern ia/ja (1-based, diagonal optional) when equation i becomes
// pivot iperm(i): eliminating pivot k joins every pair of rows below k that column k reaches.
class DenseFill {
 public:
  DenseFill(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
            const Array1<std::int32_t>& iperm)
      : n_(n), nz_(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 0) {
    for (std::int32_t c = 1; c <= n; ++c) set(c, c);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t k = ia(i); k < ia(i + 1); ++k) {
        const std::int32_t a = iperm(i), b = iperm(ja(k));
        set(a > b ? a : b, a > b ? b : a);
      }
    std::vector<std::int32_t> below;
    for (std::int32_t k = 1; k <= n; ++k) {
      below.clear();
      for (std::int32_t r = k + 1; r <= n; ++r)
        if ((*this)(r, k)) below.push_back(r);
      for (std::size_t x = 0; x < below.size(); ++x)
        for (std::size_t y = x; y < below.size(); ++y) set(below[y], below[x]);
    }
  }

  // Is L(r, c) structurally non-zero (r >= c)?
  bool operator()(std::int32_t r, std::int32_t c) const { return nz_[index(r, c)] != 0; }

  // Rows of column c after row `after`, ascending.
  std::vector<std::int32_t> rows_after(std::int32_t c, std::int32_t after) const {
    std::vector<std::int32_t> rows;
    for (std::int32_t r = after + 1; r <= n_; ++r)
      if (r >= c && (*this)(r, c)) rows.push_back(r);
    return rows;
  }
  // Entries of column c, diagonal included.
  std::int64_t count(std::int32_t c) const { return static_cast<std::int64_t>(rows_after(c, c - 1).size()); }
  // Entries of L.
  std::int64_t total() const {
    std::int64_t t = 0;
    for (std::int32_t c = 1; c <= n_; ++c) t += count(c);
    return t;
  }
  // The elimination-tree parent: the first row below the diagonal, 0 for none.
  std::int32_t parent(std::int32_t c) const {
    const std::vector<std::int32_t> rows = rows_after(c, c);
    return rows.empty() ? 0 : rows.front();
  }

 private:
  std::size_t index(std::int32_t r, std::int32_t c) const {
    return static_cast<std::size_t>(c - 1) * static_cast<std::size_t>(n_) + static_cast<std::size_t>(r - 1);
  }
  void set(std::int32_t r, std::int32_t c) { nz_[index(r, c)] = 1; }

  std::int32_t n_;
  std::vector<char> nz_;
};

}  // namespace mmekit::test
