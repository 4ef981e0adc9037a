// Dense matrices of the library and the operations on them.
//
// Two storage forms, each for r4 (float) and r8 (double):
// - `densem_t<T>`: a full square matrix n x n, 1-based, first index fastest (column-major);
//   it is an Array2<T> with rows == cols.
// - `dense_symm_t<T>`: the upper triangle stored by rows in one vector. Element (i, j), j >= i,
//   lies at the 1-based position (i - 1) n - (i - 1)(i - 2) / 2 + (j - i + 1). The order is not
//   stored separately: it follows from the length by the single-precision rule of
//   `symm_order_from_length`.
//
// The aliases `densem` and `dense_symm` are the r8 forms; `densem_r4` and `dense_symm_r4` the r4.
//
// The operations are generic: written once, instantiated for float and double (and for both
// storage forms where that makes sense). The packed members of `ginverse`, `fact_chol` and
// `print_matrix` unpack into a temporary full matrix, call the full member and pack back.
#pragma once

#include <cmath>
#include <cstdint>
#include <string_view>

#include "mmekit/support/array.hpp"

namespace mmekit {

// ---------------------------------------------------------------------------------------------
// Storage forms

template <class T>
class densem_t : public Array2<T> {
 public:
  using value_type = T;
  densem_t() = default;
  // An n x n matrix filled with `init`.
  explicit densem_t(std::int64_t n, const T& init = T{}) : Array2<T>(n, n, init) {}
  std::int64_t order() const { return this->rows(); }
  // Makes the matrix n x n, every element `init` (the old contents are lost).
  void resize(std::int64_t n, const T& init = T{}) { Array2<T>::resize(n, n, init); }
  // Leading dimension for BLAS calls on data().
  std::int64_t ld() const { return this->rows() > 0 ? this->rows() : 1; }
};

// The number of elements of a packed triangle of order n: n (n + 1) / 2 (saturated at the
// largest int64 for orders beyond 2^32 - 1, which no memory can hold anyway).
constexpr std::int64_t symm_length(std::int64_t n) {
  if (n <= 0) return 0;
  const __int128 len = static_cast<__int128>(n) * (n + 1) / 2;
  return len > INT64_MAX ? INT64_MAX : static_cast<std::int64_t>(len);
}

// The 1-based position of element (i, j) in a packed upper triangle of order n. Either order of
// i and j is accepted; the element stored is the one with the smaller index first.
constexpr std::int64_t symm_pos(std::int64_t i, std::int64_t j, std::int64_t n) {
  if (j < i) {
    const std::int64_t t = i;
    i = j;
    j = t;
  }
  return (i - 1) * n - (i - 1) * (i - 2) / 2 + (j - i + 1);
}

// The order of a packed triangle of length `len`: truncate((sqrt(r4(8 len) + 1) - 1) * 0.5),
// evaluated in single precision as the storage form defines it. For a length that is not
// triangular, or large enough for single precision to round upwards, that value may name an
// order whose triangle is longer than `len`; it is then lowered to the largest order that
// fits, so that no access ever runs past the vector. Lengths <= 0 give order 0.
std::int64_t symm_order_from_length(std::int64_t len);

template <class T>
class dense_symm_t : protected Array1<T> {
 public:
  using value_type = T;
  dense_symm_t() = default;
  // A packed triangle of order n, every element `init`.
  explicit dense_symm_t(std::int64_t n, const T& init = T{}) : Array1<T>(symm_length(n), init), n_(n > 0 ? n : 0) {}

  // A packed vector of the given length; its order follows from the length.
  static dense_symm_t from_length(std::int64_t len, const T& init = T{}) {
    dense_symm_t s;
    s.assign_length(len, init);
    return s;
  }

  std::int64_t order() const { return n_; }
  std::int64_t size() const { return Array1<T>::size(); }
  bool empty() const { return Array1<T>::empty(); }

  // Element k of the vector (1-based).
  T& operator()(std::int64_t k) { return Array1<T>::operator()(k); }
  const T& operator()(std::int64_t k) const { return Array1<T>::operator()(k); }
  // Element (i, j) or (j, i) of the symmetric matrix.
  T& operator()(std::int64_t i, std::int64_t j) {
    MMEKIT_CHECK_INDEX(i, 1, n_);
    MMEKIT_CHECK_INDEX(j, 1, n_);
    return Array1<T>::operator()(symm_pos(i, j, n_));
  }
  const T& operator()(std::int64_t i, std::int64_t j) const {
    MMEKIT_CHECK_INDEX(i, 1, n_);
    MMEKIT_CHECK_INDEX(j, 1, n_);
    return Array1<T>::operator()(symm_pos(i, j, n_));
  }

  // Makes it a triangle of order n, every element `init`.
  void resize(std::int64_t n, const T& init = T{}) {
    n_ = n > 0 ? n : 0;
    Array1<T>::assign(symm_length(n_), init);
  }
  // Makes it a vector of length `len`, every element `init`; the order follows from the length.
  void assign_length(std::int64_t len, const T& init = T{}) {
    Array1<T>::assign(len, init);
    n_ = symm_order_from_length(len);
  }
  void fill(const T& value) { Array1<T>::fill(value); }
  void clear() { Array1<T>::clear(); n_ = 0; }

  T* data() { return Array1<T>::data(); }
  const T* data() const { return Array1<T>::data(); }
  auto begin() { return Array1<T>::begin(); }
  auto end() { return Array1<T>::end(); }
  auto begin() const { return Array1<T>::begin(); }
  auto end() const { return Array1<T>::end(); }
  bool operator==(const dense_symm_t& o) const { return n_ == o.n_ && Array1<T>::operator==(o); }

 private:
  std::int64_t n_ = 0;
};

using densem = densem_t<double>;
using densem_r8 = densem_t<double>;
using densem_r4 = densem_t<float>;
using dense_symm = dense_symm_t<double>;
using dense_symm_r8 = dense_symm_t<double>;
using dense_symm_r4 = dense_symm_t<float>;

// ---------------------------------------------------------------------------------------------
// Pack and unpack

// Fills both triangles of `full` (resized to the order of `packed`).
template <class T>
void unpack_symm(const dense_symm_t<T>& packed, densem_t<T>& full);
// Stores the upper triangle of `full` in `packed` (resized when its order is not that of `full`).
template <class T>
void pack_symm(const densem_t<T>& full, dense_symm_t<T>& packed);

// ---------------------------------------------------------------------------------------------
// Factorisation and generalised inverse

// The pivot tolerance of fact_chol and ginverse, an r8 constant for all members.
inline constexpr double dense_chol_tol = 1.0e-10;

// In-place lower Cholesky factor (also stored in the upper triangle) of a symmetric positive
// semidefinite matrix. A row whose pivot has magnitude below 1.0E-10 is dependent: its row and
// column become zero and the rank does not count it. A negative pivot prints
// " Matrix not semipositive-definite, row" with the row and stops. `rank` receives the number
// of independent rows.
template <class T>
void fact_chol(densem_t<T>& a);
template <class T>
void fact_chol(densem_t<T>& a, std::int32_t& rank);
template <class T>
void fact_chol(dense_symm_t<T>& a);
template <class T>
void fact_chol(dense_symm_t<T>& a, std::int32_t& rank);

// In-place generalised inverse by the factorisation above: dependent rows and columns are zero
// in the result. Stops on a negative pivot like fact_chol.
template <class T>
void ginverse(densem_t<T>& a);
template <class T>
void ginverse(densem_t<T>& a, std::int32_t& rank);
template <class T>
void ginverse(dense_symm_t<T>& a);
template <class T>
void ginverse(dense_symm_t<T>& a, std::int32_t& rank);

// ---------------------------------------------------------------------------------------------
// Checks, solves and eigen decomposition

// True when every (i, j) equals (j, i) exactly; a NaN anywhere off the diagonal makes it false,
// and so does a NaN on the diagonal.
bool is_symmetric(const densem& a);

// Eigenvalues by the symmetric eigen solver; when one is not positive (<= 0, or not a number)
// prints `text` as a free-format line and sets `not_positive` true; otherwise sets it false.
void check_positive_definite(const densem& a, std::string_view text, bool& not_positive);

// Solves a x = b by the general LU solver. `a` is left as it is; `b` (n values, or n x m for m
// right-hand sides) is replaced by the solution. Returns LAPACK's info: 0 when solved, i > 0
// when U(i, i) is exactly zero (then `b` is left unchanged).
template <class T>
std::int32_t solve_dense(const densem_t<T>& a, Array1<T>& b);
template <class T>
std::int32_t solve_dense(const densem_t<T>& a, Array2<T>& b);

// Eigenvalues in rising order and the eigenvectors (column k belongs to value k) of the
// symmetric matrix `a` (its upper triangle is read). Returns LAPACK's info (0 when done).
template <class T>
std::int32_t eigen_dense(const densem_t<T>& a, Array1<T>& values, densem_t<T>& vectors);

// ---------------------------------------------------------------------------------------------
// Printing

// Writes the matrix row by row on the run's output: each row is one write by `format`
// (default "(10g12.4/)"). A non-empty `text` is printed as a free-format line before it.
template <class T>
void print_matrix(const densem_t<T>& a, std::string_view text = {}, std::string_view format = {});
template <class T>
void print_matrix(const dense_symm_t<T>& a, std::string_view text = {}, std::string_view format = {});

// ---------------------------------------------------------------------------------------------
// Arithmetic (products by BLAS)

// c = a b (c is resized; it may not be a or b).
template <class T>
void matmul(const densem_t<T>& a, const densem_t<T>& b, densem_t<T>& c, char trans_a = 'N', char trans_b = 'N');
template <class T>
densem_t<T> matmul(const densem_t<T>& a, const densem_t<T>& b);
// y = a x.
template <class T>
Array1<T> matvec(const densem_t<T>& a, const Array1<T>& x);
template <class T>
T dot(const Array1<T>& x, const Array1<T>& y);

// Element-wise: a + b, a - b, s a, in place forms. Orders must agree (a mismatch is a
// programming error and stops with a message naming the operation).
template <class T>
densem_t<T> operator+(const densem_t<T>& a, const densem_t<T>& b);
template <class T>
densem_t<T> operator-(const densem_t<T>& a, const densem_t<T>& b);
template <class T>
densem_t<T> operator*(T s, const densem_t<T>& a);
template <class T>
densem_t<T>& operator+=(densem_t<T>& a, const densem_t<T>& b);
template <class T>
densem_t<T>& operator-=(densem_t<T>& a, const densem_t<T>& b);
template <class T>
densem_t<T>& operator*=(densem_t<T>& a, T s);
template <class T>
dense_symm_t<T> operator+(const dense_symm_t<T>& a, const dense_symm_t<T>& b);
template <class T>
dense_symm_t<T> operator-(const dense_symm_t<T>& a, const dense_symm_t<T>& b);
template <class T>
dense_symm_t<T> operator*(T s, const dense_symm_t<T>& a);

template <class T>
densem_t<T> identity_densem(std::int64_t n);
template <class T>
densem_t<T> transpose(const densem_t<T>& a);
template <class T>
T trace(const densem_t<T>& a);
template <class T>
T trace(const dense_symm_t<T>& a);
// Largest |a(i, j) - b(i, j)|; orders must agree.
template <class T>
T max_abs_diff(const densem_t<T>& a, const densem_t<T>& b);

}  // namespace mmekit
