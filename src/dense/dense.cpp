// Storage helpers, factorisation, generalised inverse, checks, solves, eigen decomposition,
// printing and arithmetic of the dense matrices.
#include "mmekit/dense/dense.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

std::int64_t symm_order_from_length(std::int64_t len) {
  if (len <= 0) return 0;
  // The defining formula, in single precision throughout.
  const float eight_len = len <= std::numeric_limits<std::int64_t>::max() / 8
                              ? static_cast<float>(8 * len)
                              : static_cast<float>(len) * 8.0f;
  const float r = (std::sqrt(eight_len + 1.0f) - 1.0f) * 0.5f;
  std::int64_t n = static_cast<std::int64_t>(r);  // r <= ~1.6e10, the conversion is exact
  // Single precision can round up to an order whose triangle does not fit: never let it.
  while (n > 0 && static_cast<__int128>(n) * (n + 1) / 2 > len) --n;
  return n;
}

namespace {

[[noreturn]] void order_mismatch(std::string_view op, std::int64_t n1, std::int64_t n2) {
  stop(free_format(std::string(op) + ": orders differ:", n1, n2));
}

template <class T>
blas_int to_blas(std::int64_t n) {
  if (n > std::numeric_limits<blas_int>::max()) stop(free_format("dense: order too large for BLAS:", n));
  return static_cast<blas_int>(n);
}

// The factorisation of fact_chol on a full column-major matrix (0-based pointer, order n,
// leading dimension n). Returns the rank.
template <class T>
std::int32_t chol_full(T* a, std::int64_t n) {
  auto at = [a, n](std::int64_t i, std::int64_t j) -> T& { return a[j * n + i]; };
  std::int32_t rank = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    // Each finished row k of the factor is mirrored into the upper triangle, so column i holds
    // a(k, i) = L(i, k) for k < i and the sums below run down contiguous columns.
    const T* ci = a + i * n;
    T s = at(i, i);
    for (std::int64_t k = 0; k < i; ++k) s -= ci[k] * ci[k];
    if (std::abs(static_cast<double>(s)) < dense_chol_tol) {
      for (std::int64_t k = 0; k < n; ++k) {
        at(i, k) = T(0);
        at(k, i) = T(0);
      }
      continue;
    }
    if (s < T(0)) stop(free_format(" Matrix not semipositive-definite, row ", i + 1));
    const T d = std::sqrt(s);
    at(i, i) = d;
    ++rank;
    for (std::int64_t j = i + 1; j < n; ++j) {
      const T* cj = a + j * n;  // a(k, j) = L(j, k) for k < i
      T v = at(j, i);
      for (std::int64_t k = 0; k < i; ++k) v -= cj[k] * ci[k];
      v /= d;
      at(j, i) = v;
      at(i, j) = v;
    }
  }
  return rank;
}

// Replaces the lower factor L (dependent rows and columns zero) by the generalised inverse
// L^-T L^-1, symmetric in both triangles.
template <class T>
void inverse_from_factor(T* a, std::int64_t n) {
  auto at = [a, n](std::int64_t i, std::int64_t j) -> T& { return a[j * n + i]; };
  // Clear the mirrored upper triangle: only the lower factor takes part from here on.
  for (std::int64_t j = 1; j < n; ++j)
    for (std::int64_t i = 0; i < j; ++i) at(i, j) = T(0);
  // In-place inversion of the lower triangle, last column first; a dependent column stays 0,
  // and the zero rows of dependent indices keep the products below zero there.
  std::vector<T> x(static_cast<std::size_t>(n));
  for (std::int64_t j = n - 1; j >= 0; --j) {
    if (std::abs(static_cast<double>(at(j, j))) < dense_chol_tol) {
      for (std::int64_t i = j; i < n; ++i) at(i, j) = T(0);
      continue;
    }
    const T ajj = T(1) / at(j, j);
    at(j, j) = ajj;
    // column below j: x = -ajj * Minv(j+1:, j+1:) * L(j+1:, j)
    for (std::int64_t i = j + 1; i < n; ++i) x[i] = at(i, j);
    for (std::int64_t i = j + 1; i < n; ++i) {
      T s = T(0);
      for (std::int64_t k = j + 1; k <= i; ++k) s += at(i, k) * x[k];
      at(i, j) = -ajj * s;
    }
  }
  // G = M^T M with M the inverted lower triangle: G(i, j) = sum over k >= i of M(k, i) M(k, j)
  // for j <= i, formed in place row by row (each element of M is read before it is replaced).
  for (std::int64_t i = 0; i < n; ++i) {
    for (std::int64_t j = 0; j <= i; ++j) {
      T s = T(0);
      for (std::int64_t k = i; k < n; ++k) s += at(k, i) * at(k, j);
      at(i, j) = s;
    }
  }
  for (std::int64_t j = 1; j < n; ++j)
    for (std::int64_t i = 0; i < j; ++i) at(i, j) = at(j, i);
}

}  // namespace

// ---------------------------------------------------------------------------------------------

template <class T>
void unpack_symm(const dense_symm_t<T>& packed, densem_t<T>& full) {
  const std::int64_t n = packed.order();
  full.resize(n);
  std::int64_t pos = 1;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j, ++pos) {
      full(i, j) = packed(pos);
      full(j, i) = packed(pos);
    }
}

template <class T>
void pack_symm(const densem_t<T>& full, dense_symm_t<T>& packed) {
  const std::int64_t n = full.order();
  // A vector that already has this order keeps its length (elements past the triangle of a
  // non-triangular length stay as they are).
  if (packed.order() != n) packed.resize(n);
  std::int64_t pos = 1;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j, ++pos) packed(pos) = full(i, j);
}

// A packed matrix worked on in full storage: unpacked, `work` applied, packed back.
template <class T, class Work>
void on_full(dense_symm_t<T>& a, Work work) {
  densem_t<T> full;
  unpack_symm(a, full);
  work(full);
  pack_symm(full, a);
}

template <class T>
void fact_chol(densem_t<T>& a, std::int32_t& rank) {
  rank = chol_full(a.data(), a.order());
}
template <class T>
void fact_chol(densem_t<T>& a) {
  std::int32_t rank = 0;
  fact_chol(a, rank);
}
template <class T>
void fact_chol(dense_symm_t<T>& a, std::int32_t& rank) {
  on_full(a, [&rank](densem_t<T>& full) { fact_chol(full, rank); });
}
template <class T>
void fact_chol(dense_symm_t<T>& a) {
  std::int32_t rank = 0;
  fact_chol(a, rank);
}

template <class T>
void ginverse(densem_t<T>& a, std::int32_t& rank) {
  rank = chol_full(a.data(), a.order());
  inverse_from_factor(a.data(), a.order());
}
template <class T>
void ginverse(densem_t<T>& a) {
  std::int32_t rank = 0;
  ginverse(a, rank);
}
template <class T>
void ginverse(dense_symm_t<T>& a, std::int32_t& rank) {
  on_full(a, [&rank](densem_t<T>& full) { ginverse(full, rank); });
}
template <class T>
void ginverse(dense_symm_t<T>& a) {
  std::int32_t rank = 0;
  ginverse(a, rank);
}

bool is_symmetric(const densem& a) {
  const std::int64_t n = a.order();
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i <= j; ++i)
      if (!(a(i, j) == a(j, i))) return false;
  return true;
}

void check_positive_definite(const densem& a, std::string_view text, bool& not_positive) {
  const std::int64_t n = a.order();
  not_positive = false;
  if (n == 0) return;
  // Values only; the solver works on a copy.
  Array1<double> values(n);
  densem work = a;
  const blas_int nn = to_blas<double>(n);
  double query = 0;
  blas::syev('N', 'U', nn, work.data(), nn, values.data(), &query, -1);
  std::vector<double> w(static_cast<std::size_t>(std::max(1.0, query)));
  const blas_int info = blas::syev('N', 'U', nn, work.data(), nn, values.data(), w.data(),
                                   static_cast<blas_int>(w.size()));
  bool bad = info != 0;
  for (std::int64_t i = 1; i <= n && !bad; ++i)
    if (!(values(i) > 0.0)) bad = true;
  if (bad) {
    print_free(text);
    not_positive = true;
  }
}

template <class T>
std::int32_t solve_dense(const densem_t<T>& a, Array1<T>& b) {
  const std::int64_t n = a.order();
  if (b.size() != n) order_mismatch("solve_dense", n, b.size());
  if (n == 0) return 0;
  densem_t<T> lu = a;
  std::vector<blas_int> ipiv(static_cast<std::size_t>(n));
  std::vector<T> x(b.begin(), b.end());
  const blas_int nn = to_blas<T>(n);
  const blas_int info = blas::gesv(nn, 1, lu.data(), nn, ipiv.data(), x.data(), nn);
  if (info == 0) std::copy(x.begin(), x.end(), b.begin());
  return info;
}

template <class T>
std::int32_t solve_dense(const densem_t<T>& a, Array2<T>& b) {
  const std::int64_t n = a.order();
  if (b.rows() != n) order_mismatch("solve_dense", n, b.rows());
  if (n == 0 || b.cols() == 0) return 0;
  densem_t<T> lu = a;
  std::vector<blas_int> ipiv(static_cast<std::size_t>(n));
  Array2<T> x = b;
  const blas_int nn = to_blas<T>(n);
  const blas_int info = blas::gesv(nn, to_blas<T>(b.cols()), lu.data(), nn, ipiv.data(), x.data(), nn);
  if (info == 0) b = std::move(x);
  return info;
}

template <class T>
std::int32_t eigen_dense(const densem_t<T>& a, Array1<T>& values, densem_t<T>& vectors) {
  const std::int64_t n = a.order();
  vectors = a;
  values.assign(n, T(0));
  if (n == 0) return 0;
  const blas_int nn = to_blas<T>(n);
  T query = 0;
  blas::syev('V', 'U', nn, vectors.data(), nn, values.data(), &query, -1);
  std::vector<T> w(static_cast<std::size_t>(std::max<T>(T(1), query)));
  return blas::syev('V', 'U', nn, vectors.data(), nn, values.data(), w.data(), static_cast<blas_int>(w.size()));
}

template <class T>
void print_matrix(const densem_t<T>& a, std::string_view text, std::string_view format) {
  if (!text.empty()) print_free(text);
  const Format f(format.empty() ? std::string_view("(10g12.4/)") : format);
  const std::int64_t n = a.order();
  std::vector<T> row(static_cast<std::size_t>(n));
  std::string lines;
  for (std::int64_t i = 1; i <= n; ++i) {
    for (std::int64_t j = 1; j <= n; ++j) row[static_cast<std::size_t>(j - 1)] = a(i, j);
    lines += f.write(FormatList(row));
  }
  out() << lines;
}

template <class T>
void print_matrix(const dense_symm_t<T>& a, std::string_view text, std::string_view format) {
  densem_t<T> full;
  unpack_symm(a, full);
  print_matrix(full, text, format);
}

// ---------------------------------------------------------------------------------------------

template <class T>
void matmul(const densem_t<T>& a, const densem_t<T>& b, densem_t<T>& c, char trans_a, char trans_b) {
  const std::int64_t n = a.order();
  if (b.order() != n) order_mismatch("matmul", n, b.order());
  c.resize(n);
  if (n == 0) return;
  const blas_int nn = to_blas<T>(n);
  blas::gemm(trans_a, trans_b, nn, nn, nn, T(1), a.data(), nn, b.data(), nn, T(0), c.data(), nn);
}
template <class T>
densem_t<T> matmul(const densem_t<T>& a, const densem_t<T>& b) {
  densem_t<T> c;
  matmul(a, b, c);
  return c;
}
template <class T>
Array1<T> matvec(const densem_t<T>& a, const Array1<T>& x) {
  const std::int64_t n = a.order();
  if (x.size() != n) order_mismatch("matvec", n, x.size());
  Array1<T> y(n);
  if (n == 0) return y;
  const blas_int nn = to_blas<T>(n);
  blas::gemv('N', nn, nn, T(1), a.data(), nn, x.data(), 1, T(0), y.data(), 1);
  return y;
}
template <class T>
T dot(const Array1<T>& x, const Array1<T>& y) {
  if (x.size() != y.size()) order_mismatch("dot", x.size(), y.size());
  T s = T(0);
  for (std::int64_t i = 0; i < x.size(); ++i) s += x.data()[i] * y.data()[i];
  return s;
}

namespace {
template <class M, class F>
M elementwise(const M& a, const M& b, std::string_view op, F f) {
  if (a.order() != b.order() || a.size() != b.size()) order_mismatch(op, a.order(), b.order());
  M c = a;
  const auto* pb = b.data();
  auto* pc = c.data();
  for (std::int64_t k = 0; k < c.size(); ++k) pc[k] = f(pc[k], pb[k]);
  return c;
}
}  // namespace

template <class T>
densem_t<T> operator+(const densem_t<T>& a, const densem_t<T>& b) {
  return elementwise(a, b, "densem +", [](T x, T y) { return x + y; });
}
template <class T>
densem_t<T> operator-(const densem_t<T>& a, const densem_t<T>& b) {
  return elementwise(a, b, "densem -", [](T x, T y) { return x - y; });
}
template <class T>
densem_t<T> operator*(T s, const densem_t<T>& a) {
  densem_t<T> c = a;
  for (auto& v : c.vec()) v *= s;
  return c;
}
template <class T>
densem_t<T>& operator+=(densem_t<T>& a, const densem_t<T>& b) {
  a = a + b;
  return a;
}
template <class T>
densem_t<T>& operator-=(densem_t<T>& a, const densem_t<T>& b) {
  a = a - b;
  return a;
}
template <class T>
densem_t<T>& operator*=(densem_t<T>& a, T s) {
  for (auto& v : a.vec()) v *= s;
  return a;
}
template <class T>
dense_symm_t<T> operator+(const dense_symm_t<T>& a, const dense_symm_t<T>& b) {
  return elementwise(a, b, "dense_symm +", [](T x, T y) { return x + y; });
}
template <class T>
dense_symm_t<T> operator-(const dense_symm_t<T>& a, const dense_symm_t<T>& b) {
  return elementwise(a, b, "dense_symm -", [](T x, T y) { return x - y; });
}
template <class T>
dense_symm_t<T> operator*(T s, const dense_symm_t<T>& a) {
  dense_symm_t<T> c = a;
  for (auto& v : c) v *= s;
  return c;
}

template <class T>
densem_t<T> identity_densem(std::int64_t n) {
  densem_t<T> a(n);
  for (std::int64_t i = 1; i <= n; ++i) a(i, i) = T(1);
  return a;
}
template <class T>
densem_t<T> transpose(const densem_t<T>& a) {
  const std::int64_t n = a.order();
  densem_t<T> t(n);
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i <= n; ++i) t(j, i) = a(i, j);
  return t;
}
template <class T>
T trace(const densem_t<T>& a) {
  T s = T(0);
  for (std::int64_t i = 1; i <= a.order(); ++i) s += a(i, i);
  return s;
}
template <class T>
T trace(const dense_symm_t<T>& a) {
  T s = T(0);
  for (std::int64_t i = 1; i <= a.order(); ++i) s += a(i, i);
  return s;
}
template <class T>
T max_abs_diff(const densem_t<T>& a, const densem_t<T>& b) {
  if (a.order() != b.order()) order_mismatch("max_abs_diff", a.order(), b.order());
  T m = T(0);
  for (std::int64_t k = 0; k < a.size(); ++k) m = std::max(m, std::abs(a.data()[k] - b.data()[k]));
  return m;
}

#define MMEKIT_DENSE_INSTANTIATE(T)                                                                   \
  template void unpack_symm(const dense_symm_t<T>&, densem_t<T>&);                                    \
  template void pack_symm(const densem_t<T>&, dense_symm_t<T>&);                                      \
  template void fact_chol(densem_t<T>&);                                                              \
  template void fact_chol(densem_t<T>&, std::int32_t&);                                               \
  template void fact_chol(dense_symm_t<T>&);                                                          \
  template void fact_chol(dense_symm_t<T>&, std::int32_t&);                                           \
  template void ginverse(densem_t<T>&);                                                               \
  template void ginverse(densem_t<T>&, std::int32_t&);                                                \
  template void ginverse(dense_symm_t<T>&);                                                           \
  template void ginverse(dense_symm_t<T>&, std::int32_t&);                                            \
  template std::int32_t solve_dense(const densem_t<T>&, Array1<T>&);                                  \
  template std::int32_t solve_dense(const densem_t<T>&, Array2<T>&);                                  \
  template std::int32_t eigen_dense(const densem_t<T>&, Array1<T>&, densem_t<T>&);                    \
  template void print_matrix(const densem_t<T>&, std::string_view, std::string_view);                \
  template void print_matrix(const dense_symm_t<T>&, std::string_view, std::string_view);            \
  template void matmul(const densem_t<T>&, const densem_t<T>&, densem_t<T>&, char, char);             \
  template densem_t<T> matmul(const densem_t<T>&, const densem_t<T>&);                                \
  template Array1<T> matvec(const densem_t<T>&, const Array1<T>&);                                    \
  template T dot(const Array1<T>&, const Array1<T>&);                                                 \
  template densem_t<T> operator+(const densem_t<T>&, const densem_t<T>&);                             \
  template densem_t<T> operator-(const densem_t<T>&, const densem_t<T>&);                             \
  template densem_t<T> operator*(T, const densem_t<T>&);                                              \
  template densem_t<T>& operator+=(densem_t<T>&, const densem_t<T>&);                                 \
  template densem_t<T>& operator-=(densem_t<T>&, const densem_t<T>&);                                 \
  template densem_t<T>& operator*=(densem_t<T>&, T);                                                  \
  template dense_symm_t<T> operator+(const dense_symm_t<T>&, const dense_symm_t<T>&);                 \
  template dense_symm_t<T> operator-(const dense_symm_t<T>&, const dense_symm_t<T>&);                 \
  template dense_symm_t<T> operator*(T, const dense_symm_t<T>&);                                      \
  template densem_t<T> identity_densem(std::int64_t);                                                 \
  template densem_t<T> transpose(const densem_t<T>&);                                                 \
  template T trace(const densem_t<T>&);                                                               \
  template T trace(const dense_symm_t<T>&);                                                           \
  template T max_abs_diff(const densem_t<T>&, const densem_t<T>&);

MMEKIT_DENSE_INSTANTIATE(float)
MMEKIT_DENSE_INSTANTIATE(double)

}  // namespace mmekit
