// Kernels of the dense inversion routes: ginv2 (blocked and row-by-row), dkmxhf, invrt.
#include "mmekit/dense/inverse.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

InversionState inversion_state;

namespace {

blas_int blas_size(std::int64_t n) {
  if (n > std::numeric_limits<blas_int>::max()) stop(free_format("ginv2: order too large for BLAS:", n));
  return static_cast<blas_int>(n);
}

[[noreturn]] void negative_pivot(std::int64_t row, double p) {
  stop(free_format("ginv2: Negative pivot:", row, p));
}

// Copies the lower triangle onto the upper one, tile by tile so that both sides stay in cache.
void mirror_lower(double* a, std::int64_t n, std::int64_t lda) {
  constexpr std::int64_t tile = 64;
  for (std::int64_t j0 = 0; j0 < n; j0 += tile) {
    const std::int64_t j1 = std::min(n, j0 + tile);
    for (std::int64_t i0 = j0; i0 < n; i0 += tile) {
      const std::int64_t i1 = std::min(n, i0 + tile);
      for (std::int64_t j = j0; j < j1; ++j)
        for (std::int64_t i = std::max(i0, j + 1); i < i1; ++i) a[i * lda + j] = a[j * lda + i];
    }
  }
}

}  // namespace

void ginv2_kernel(double* a, std::int64_t n, std::int64_t lda, std::int32_t& rank, double tol,
                  std::int64_t block) {
  rank = 0;
  if (n <= 0) return;
  const std::int64_t nb = block > 0 ? block : ginv2_default_block;
  auto at = [a, lda](std::int64_t i, std::int64_t j) -> double& { return a[j * lda + i]; };
  const blas_int ld = blas_size(lda);
  std::vector<std::int64_t> dependent;  // 0-based, rising
  std::int32_t r = 0;

  // Factorisation A = L L^T, right-looking by blocks of columns. Each diagonal block has
  // received the updates of all earlier blocks when it is factorised column by column, so the
  // pivot tested is the diagonal minus the contributions of all earlier independent rows.
  for (std::int64_t j0 = 0; j0 < n; j0 += nb) {
    const std::int64_t j1 = std::min(n, j0 + nb);  // block is columns j0 .. j1-1
    const std::size_t first_dep = dependent.size();
    for (std::int64_t c = j0; c < j1; ++c) {
      const double p = at(c, c);
      if (!(std::abs(p) >= tol)) {
        // Dependent row: its row and column of the factor become zero.
        dependent.push_back(c);
        for (std::int64_t i = c; i < j1; ++i) at(i, c) = 0.0;
        for (std::int64_t k = 0; k < c; ++k) at(c, k) = 0.0;
        continue;
      }
      if (p < 0.0) negative_pivot(c + 1, p);
      const double d = std::sqrt(p);
      at(c, c) = d;
      ++r;
      double* col = &at(0, c);
      for (std::int64_t i = c + 1; i < j1; ++i) col[i] /= d;
      for (std::int64_t c2 = c + 1; c2 < j1; ++c2) {
        const double f = col[c2];
        if (f == 0.0) continue;
        double* col2 = &at(0, c2);
        for (std::int64_t i = c2; i < j1; ++i) col2[i] -= col[i] * f;
      }
    }
    const std::int64_t m = n - j1;
    if (m == 0) break;
    const blas_int jb = static_cast<blas_int>(j1 - j0);
    const blas_int mm = blas_size(m);
    // Panel below the block: X = A21 L11^-T. A dependent column of L11 is all zero; a unit
    // diagonal there keeps the solve defined, and its panel column is cleared afterwards.
    for (std::size_t q = first_dep; q < dependent.size(); ++q) at(dependent[q], dependent[q]) = 1.0;
    blas::trsm('R', 'L', 'T', 'N', mm, jb, 1.0, &at(j0, j0), ld, &at(j1, j0), ld);
    for (std::size_t q = first_dep; q < dependent.size(); ++q) {
      const std::int64_t c = dependent[q];
      at(c, c) = 0.0;
      std::fill(&at(j1, c), &at(j1, c) + m, 0.0);
    }
    // Trailing update A22 -= X X^T (lower triangle).
    blas::syrk('L', 'N', mm, jb, -1.0, &at(j1, j0), ld, 1.0, &at(j1, j1), ld);
  }
  rank = r;

  // Inverse: (L L^T)^+ = L^-T L^-1 on the independent rows. The dependent rows and columns of
  // L are zero; a unit diagonal there keeps the triangular inverse defined and leaves those
  // rows and columns of L^-1 zero off the diagonal, and the diagonal is cleared before the
  // product so that the result has them zero throughout.
  const blas_int nn = blas_size(n);
  for (std::int64_t c : dependent) at(c, c) = 1.0;
  const blas_int info = blas::trtri('L', 'N', nn, a, ld);
  if (info != 0) stop(free_format("ginv2: triangular inverse failed, info =", info));
  for (std::int64_t c : dependent) at(c, c) = 0.0;
  blas::lauum('L', nn, a, ld);
  mirror_lower(a, n, lda);
}

void ginv2(densem& a, std::int32_t& rank, double tol, std::int64_t block) {
  Stopwatch watch;
  ginv2_kernel(a.data(), a.order(), a.ld(), rank, tol, block);
  print_free("    Inverse by ginv2 elapsed time: ", watch.wall());
}

void ginv2_rowwise(densem& a, std::int32_t& rank, double tol) {
  const std::int64_t n = a.order();
  rank = 0;
  std::vector<char> independent(static_cast<std::size_t>(n + 1), 0);
  // Factor: row i of U (upper triangle, by rows) = (row i - sum over earlier rows k of
  // U(k, i) row k) / sqrt(pivot).
  for (std::int64_t i = 1; i <= n; ++i) {
    for (std::int64_t k = 1; k < i; ++k) {
      if (!independent[k]) continue;
      const double f = a(k, i);
      for (std::int64_t j = i; j <= n; ++j) a(i, j) -= f * a(k, j);
    }
    double p = a(i, i);
    if (std::abs(p) >= tol) {
      if (p < 0.0) negative_pivot(i, p);
      p = std::sqrt(p);
      a(i, i) = p;
      for (std::int64_t j = i + 1; j <= n; ++j) a(i, j) /= p;
      independent[i] = 1;
      ++rank;
    } else {
      for (std::int64_t j = i; j <= n; ++j) a(i, j) = 0.0;
    }
  }
  // V = U^-1 in place, last row first; within a row the columns go downwards so that each
  // element of U is read before it is replaced. Dependent rows stay zero.
  for (std::int64_t i = n; i >= 1; --i) {
    if (!independent[i]) continue;
    const double uii = a(i, i);
    for (std::int64_t j = n; j > i; --j) {
      double s = 0.0;
      for (std::int64_t m = i + 1; m <= j; ++m) s += a(i, m) * a(m, j);
      a(i, j) = -s / uii;
    }
    a(i, i) = 1.0 / uii;
  }
  // G = V V^T: G(i, j) = sum over m >= j of V(i, m) V(j, m), j >= i, row by row.
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j) {
      double s = 0.0;
      for (std::int64_t m = j; m <= n; ++m) s += a(i, m) * a(j, m);
      a(i, j) = s;
    }
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = j + 1; i <= n; ++i) a(i, j) = a(j, i);
}

DkmxhfReport dkmxhf(densem& a, double tol) {
  const std::int64_t n = a.order();
  DkmxhfReport rep;
  std::int64_t elements = 0;
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i <= j; ++i)
      if (a(i, j) != 0.0) ++elements;
  print_free(elements, "elements in matrix");

  std::vector<double> col(static_cast<std::size_t>(n + 1));
  for (std::int64_t k = 1; k <= n; ++k) {
    const double d = a(k, k);
    if (!(std::abs(d) >= tol)) {
      print_free("small pivot ", k);
      ++rep.small_pivots;
      for (std::int64_t i = 1; i <= n; ++i) {
        a(i, k) = 0.0;
        a(k, i) = 0.0;
      }
      continue;
    }
    if (d < 0.0) {
      print_free("negative pivot, ignore sign for log det");
      ++rep.negative_pivots;
    }
    rep.log_determinant += std::log(std::abs(d));
    ++rep.rank;
    // Sweep on pivot k: a(i, j) -= a(i, k) a(k, j) / d, then row and column k divided by d
    // and the pivot replaced by -1 / d. After all pivots the matrix holds minus the inverse.
    for (std::int64_t i = 1; i <= n; ++i) col[i] = a(i, k) / d;
    for (std::int64_t j = 1; j <= n; ++j) {
      if (j == k) continue;
      const double akj = a(k, j);
      if (akj == 0.0) continue;
      double* cj = &a(1, j);
      for (std::int64_t i = 1; i <= n; ++i)
        if (i != k) cj[i - 1] -= col[i] * akj;
    }
    for (std::int64_t i = 1; i <= n; ++i) {
      if (i == k) continue;
      a(i, k) = col[i];
      a(k, i) = col[i];
    }
    a(k, k) = -1.0 / d;
  }
  for (auto& v : a.vec())
    if (v != 0.0) v = -v;
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i <= j; ++i)
      if (a(i, j) != 0.0) ++rep.nonzero;

  print_free("Generalised inverse of matrix with order =", n, "   and rank =", rep.rank);
  print_free("no. of negative pivots =", rep.negative_pivots);
  if (rep.negative_pivots % 2 != 0) {
    print_free("dkmxhf : uneven no. of negative pivots");
    print_free(" - log determinant not correct !");
  }
  print_free("Inversion done");
  print_free("Rank of matrix                  =", rep.rank);
  print_free("Log determinant                 =", rep.log_determinant);
  print_free("No. of non-zero elements        =", rep.nonzero);
  return rep;
}

void invrt(densem& a, std::int64_t max_order) {
  const std::int64_t n = a.order();
  if (n > max_order) stop(free_format("MATRIX DIMENSION IN INVRT LARGER THAN DECLARED"));
  std::vector<double> f(static_cast<std::size_t>(n)), row(static_cast<std::size_t>(n));
  for (std::int64_t k = 1; k <= n; ++k) {
    const double p = a(k, k);
    if (p == 0.0) stop(free_format("Matrix not positive definite (diagonal=0) in subr invrt"));
    // Gauss-Jordan step on pivot k, in place: row k scaled by 1/p with the pivot position
    // becoming 1/p, then every other row loses its multiple of row k.
    a(k, k) = 1.0;
    for (std::int64_t j = 1; j <= n; ++j) {
      a(k, j) /= p;
      row[j - 1] = a(k, j);
    }
    for (std::int64_t i = 1; i <= n; ++i) {
      f[i - 1] = i == k ? 0.0 : a(i, k);
      if (i != k) a(i, k) = 0.0;
    }
    if (n > 0) blas::ger(blas_size(n), blas_size(n), -1.0, f.data(), 1, row.data(), 1, a.data(), blas_size(a.ld()));
  }
}

}  // namespace mmekit
