// The hash matrix: slot storage, element access, growth, copies, printing and sorting.
#include "mmekit/sparse/hashm.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "mmekit/sparse/fields.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

SparseParameters sparse_param;

// ---- slot storage ----------------------------------------------------------------------------

namespace {
constexpr std::size_t kHugePage = std::size_t{2} << 20;
}

void SlotArray::release() {
  std::free(p_);
  p_ = nullptr;
  rows_ = cols_ = 0;
}

void SlotArray::resize(std::int64_t rows, std::int64_t cols, double init) {
  release();
  if (rows < 1 || cols < 1) return;
  const std::size_t bytes = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols) * sizeof(double);
  const bool huge = bytes >= 2 * kHugePage;
  const std::size_t align = huge ? kHugePage : 64;
  const std::size_t rounded = (bytes + align - 1) / align * align;
  void* p = std::aligned_alloc(align, rounded);
  if (p == nullptr) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  if (huge) madvise(p, rounded, MADV_HUGEPAGE);
#endif
  p_ = static_cast<double*>(p);
  rows_ = rows;
  cols_ = cols;
  fill(init);
}

void SlotArray::fill(double value) {
  const std::int64_t n = size();
  if (value == 0.0 && !std::signbit(value)) {
    if (n > 0) std::memset(p_, 0, static_cast<std::size_t>(n) * sizeof(double));
  } else {
    std::fill(p_, p_ + n, value);
  }
}

SlotArray::SlotArray(const SlotArray& o) {
  if (o.empty()) return;
  resize(o.rows_, o.cols_, 0.0);
  std::memcpy(p_, o.p_, static_cast<std::size_t>(size()) * sizeof(double));
}

SlotArray& SlotArray::operator=(const SlotArray& o) {
  if (this != &o) {
    SlotArray t(o);
    swap(t);
  }
  return *this;
}

void reset_sparse_parameters() { sparse_param = SparseParameters{}; }

// ---- the matrix -----------------------------------------------------------------------------

namespace {

// Smallest power of two not below s (1 for s below 2).
std::int64_t round_pow2(std::int64_t s) {
  if (s < 2) return 1;
  if (s > (std::int64_t{1} << 62)) stop(sparse_detail::message("hash matrix: indices overflow", s));
  std::int64_t p = 1;
  while (p < s) p <<= 1;
  return p;
}

// Slot of (i, j) by the locator that hash_type selects.
std::int64_t locate(sparse_hashm& a, std::int32_t i, std::int32_t j, std::int64_t mode) {
  const double key[2] = {static_cast<double>(i), static_cast<double>(j)};
  if (sparse_param.hash_type == 2) return hash_pair(key, a.x.data(), a.hash_size, 3, mode, a.nel);
  if (a.hash_size > std::numeric_limits<std::int32_t>::max() || a.nel > std::numeric_limits<std::int32_t>::max())
    stop(sparse_detail::message("hash matrix: indices overflow", a.hash_size));
  std::int32_t count = static_cast<std::int32_t>(a.nel);
  const std::int32_t k = hash_prime_real(key, 2, a.x.data(), static_cast<std::int32_t>(a.hash_size), 3,
                                         static_cast<std::int32_t>(mode), count);
  a.nel = count;
  return k;
}

std::int64_t locate_const(const sparse_hashm& a, std::int32_t i, std::int32_t j) {
  // Mode 0 writes nothing into the table or the count.
  return locate(const_cast<sparse_hashm&>(a), i, j, 0);
}

void check_index(std::int32_t i, std::int32_t j) {
  if (i < 1 || j < 1) stop(sparse_detail::message("sparse_hashm: index below 1:", i, j));
}

void grow(sparse_hashm& a) {
  sparse_hashm y;
  const double want = static_cast<double>(sparse_param.hash_grow) * static_cast<double>(a.hash_size);
  // A size beyond the 64-bit range reads as the most negative value, which fails below.
  const std::int64_t grown = (want > -9.2e18 && want < 9.2e18) ? static_cast<std::int64_t>(want)
                                                              : std::numeric_limits<std::int64_t>::min();
  // A table that would not get larger would grow again at once, without end.
  if (grown <= 0 || grown <= a.hash_size)
    stop(sparse_detail::message("hash matrix: indices overflow", grown));
  init_sparse_hashm(y, a.n, grown, a.storage);
  const double* x = a.x.data();
  // The elements are re-added in slot order. Under the mixing hash the first slot of each
  // element some places ahead is fetched early, so that the random accesses into the new table
  // overlap instead of waiting one after the other.
  const bool mixing = sparse_param.hash_type == 2;
  constexpr int kAhead = 16;
  std::int64_t ahead = 0;
  int pending = 0;
  for (std::int64_t k = 0; k < a.hash_size; ++k) {
    if (mixing) {
      if (ahead <= k) {
        ahead = k;
        pending = 0;
      }
      while (pending < kAhead && ahead < a.hash_size) {
        const double* t = x + 3 * ahead;
        if (t[0] != 0.0) {
          __builtin_prefetch(y.x.data() + 3 * (hash_pair_first_slot(t, y.hash_size) - 1), 1);
          ++pending;
        }
        ++ahead;
      }
    }
    const double* s = x + 3 * k;
    if (s[0] != 0.0) {
      --pending;
      addm_sparse_hashm(s[2], static_cast<std::int32_t>(trunc_index(s[0])), static_cast<std::int32_t>(trunc_index(s[1])), y);
    }
  }
  static const Format growth_line("('hash matrix increased from ',i15,' to ',i15,' % filled: ',f10.4)");
  out() << growth_line.write(FormatList(a.hash_size, grown, static_cast<double>(a.nel) / static_cast<double>(a.hash_size)));
  a = std::move(y);
}

}  // namespace

void init_sparse_hashm(sparse_hashm& a, std::int32_t n, std::optional<std::int64_t> size,
                       std::optional<char> storage) {
  SparseParameters& p = sparse_param;
  if (p.hash_type == 2) {
    p.hash_pow2 = true;
    p.hash_grow = 2.0f;
    p.hash_fill = 0.8f;
  }
  if (size) {
    std::int64_t s = *size < 1 ? 1 : *size;
    if (p.hash_pow2) s = round_pow2(s);
    a.hash_size = s;
  } else if (!a.allocated()) {
    std::int64_t s = p.hash_default_size < 1 ? 1 : p.hash_default_size;
    if (p.hash_pow2) s = round_pow2(s);
    a.hash_size = s;
  }
  if (a.allocated() && (n != a.n || a.x.cols() < a.hash_size)) {
    // Another order, or a kept array too small for the size asked for: allocate anew.
    a.x.clear();
  }
  if (!a.allocated()) {
    a.x.resize(3, a.hash_size, 0.0);
  } else {
    a.x.fill(0.0);
  }
  a.n = n;
  a.nel = 0;
  a.status = 1;
  a.storage = (storage && *storage == 'f') ? 'f' : 'u';
}

void reset_sparse_hashm(sparse_hashm& a) {
  a.n = 0;
  a.hash_size = 0;
  a.nel = 0;
  a.status = 0;
  a.storage = 'u';
  a.x.clear();
}

void addm_sparse_hashm(double value, std::int32_t i, std::int32_t j, sparse_hashm& a) {
  for (;;) {
    if (a.status != 1) stop("Structure sparse_hashm not ready; probably destroyed by solving");
    if (a.storage != 'f' && j < i) return;
    check_index(i, j);
    std::int64_t k = locate(a, i, j, 1);
    if (k == -1 || static_cast<double>(a.nel) / static_cast<double>(a.hash_size) >
                       static_cast<double>(sparse_param.hash_fill)) {
      grow(a);
      k = locate(a, i, j, 1);
    }
    if (k > 0) {
      a.x(3, k) += value;
      return;
    }
  }
}

void setm_sparse_hashm(double value, std::int32_t i, std::int32_t j, sparse_hashm& a) {
  if (a.status != 1) stop("Structure sparse_hashm not ready; probably sorted");
  if (a.storage != 'f' && j < i) return;
  check_index(i, j);
  const std::int64_t k = locate(a, i, j, 1);
  if (k == -1) stop("hash matrix too small");
  a.x(3, k) = value;
}

double getm_sparse_hashm(std::int32_t i, std::int32_t j, const sparse_hashm& a) {
  if (a.status != 1) stop("Structure sparse_hashm not ready; probably sorted");
  if (a.storage != 'f' && j < i) return 0.0;
  const std::int64_t k = locate_const(a, i, j);
  if (k < 1) return 0.0;
  return a.x(3, k);
}

void getm_sparse_hashm(std::int32_t i, std::int32_t j, const sparse_hashm& a, double& result) {
  result = getm_sparse_hashm(i, j, a);
}

void sort_sparse_hashm(sparse_hashm& a) {
  if (a.status != 1) return;
  static constexpr std::int32_t keys[2] = {1, 2};
  pack_hashm(a.x.data(), a.hash_size, 3, a.nel);
  sort_hashm(a.x.data(), a.hash_size, 3, keys, a.nel);
  a.status = 2;
}

}  // namespace mmekit
