// Arrays indexed the way users see the numbers: from a lower bound (1 unless said otherwise)
// up to an upper bound, with the first index fastest in two dimensions.
//
// This is the one container convention of the library for anything numbered from 1
// (equations, animals, SNPs, slots, the contents of ia/ja, the items of a file). Kernels that
// work 0-based internally take `data()` and say so. With MMEKIT_BOUNDS_CHECK defined (the test
// build), every index is checked and a bad one aborts with the index and the bounds.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace mmekit {

[[noreturn]] void bounds_failure(std::int64_t index, std::int64_t lower, std::int64_t upper);

#ifdef MMEKIT_BOUNDS_CHECK
#define MMEKIT_CHECK_INDEX(i, lo, hi) \
  do {                                \
    if ((i) < (lo) || (i) > (hi)) ::mmekit::bounds_failure((i), (lo), (hi)); \
  } while (0)
#else
#define MMEKIT_CHECK_INDEX(i, lo, hi) ((void)0)
#endif

template <class T>
class Array1 {
 public:
  using value_type = T;
  Array1() = default;
  // Elements 1..n.
  explicit Array1(std::int64_t n, const T& init = T{}) : v_(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)), init) {}
  // Elements lower..upper (empty when upper < lower).
  Array1(std::int64_t lower, std::int64_t upper, const T& init)
      : v_(static_cast<std::size_t>(std::max<std::int64_t>(upper - lower + 1, 0)), init), lower_(lower) {}

  T& operator()(std::int64_t i) {
    MMEKIT_CHECK_INDEX(i, lower_, upper());
    return v_[static_cast<std::size_t>(i - lower_)];
  }
  const T& operator()(std::int64_t i) const {
    MMEKIT_CHECK_INDEX(i, lower_, upper());
    return v_[static_cast<std::size_t>(i - lower_)];
  }

  std::int64_t size() const { return static_cast<std::int64_t>(v_.size()); }
  bool empty() const { return v_.empty(); }
  std::int64_t lower() const { return lower_; }
  std::int64_t upper() const { return lower_ + size() - 1; }
  // Keeps the lower bound; new elements get `init`.
  void resize(std::int64_t n, const T& init = T{}) { v_.resize(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)), init); }
  void assign(std::int64_t n, const T& init) { v_.assign(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)), init); }
  void fill(const T& value) { std::fill(v_.begin(), v_.end(), value); }
  void clear() { v_.clear(); }

  T* data() { return v_.data(); }
  const T* data() const { return v_.data(); }
  auto begin() { return v_.begin(); }
  auto end() { return v_.end(); }
  auto begin() const { return v_.begin(); }
  auto end() const { return v_.end(); }
  std::vector<T>& vec() { return v_; }
  const std::vector<T>& vec() const { return v_; }
  bool operator==(const Array1& o) const { return lower_ == o.lower_ && v_ == o.v_; }

 private:
  std::vector<T> v_;
  std::int64_t lower_ = 1;
};

// Column-major (first index fastest), indices 1..rows and 1..cols.
template <class T>
class Array2 {
 public:
  using value_type = T;
  Array2() = default;
  Array2(std::int64_t rows, std::int64_t cols, const T& init = T{})
      : v_(static_cast<std::size_t>(std::max<std::int64_t>(rows, 0) * std::max<std::int64_t>(cols, 0)), init),
        rows_(std::max<std::int64_t>(rows, 0)), cols_(std::max<std::int64_t>(cols, 0)) {}

  T& operator()(std::int64_t i, std::int64_t j) {
    MMEKIT_CHECK_INDEX(i, 1, rows_);
    MMEKIT_CHECK_INDEX(j, 1, cols_);
    return v_[static_cast<std::size_t>((j - 1) * rows_ + (i - 1))];
  }
  const T& operator()(std::int64_t i, std::int64_t j) const {
    MMEKIT_CHECK_INDEX(i, 1, rows_);
    MMEKIT_CHECK_INDEX(j, 1, cols_);
    return v_[static_cast<std::size_t>((j - 1) * rows_ + (i - 1))];
  }

  std::int64_t rows() const { return rows_; }
  std::int64_t cols() const { return cols_; }
  std::int64_t size() const { return static_cast<std::int64_t>(v_.size()); }
  bool empty() const { return v_.empty(); }
  void resize(std::int64_t rows, std::int64_t cols, const T& init = T{}) {
    rows_ = std::max<std::int64_t>(rows, 0);
    cols_ = std::max<std::int64_t>(cols, 0);
    v_.assign(static_cast<std::size_t>(rows_ * cols_), init);
  }
  void fill(const T& value) { std::fill(v_.begin(), v_.end(), value); }
  void clear() { v_.clear(); rows_ = cols_ = 0; }
  T* data() { return v_.data(); }
  const T* data() const { return v_.data(); }
  std::vector<T>& vec() { return v_; }
  const std::vector<T>& vec() const { return v_; }
  bool operator==(const Array2& o) const { return rows_ == o.rows_ && cols_ == o.cols_ && v_ == o.v_; }

 private:
  std::vector<T> v_;
  std::int64_t rows_ = 0, cols_ = 0;
};

}  // namespace mmekit
