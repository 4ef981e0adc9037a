// Inversion of large dense symmetric matrices (genomic relationship matrices and the like).
//
// The kernels here work on a full `densem` (r8) and replace it by its (generalised) inverse:
// - `ginv2`: generalised Cholesky inverse, the default. Blocked on level-3 BLAS; a pivot whose
//   magnitude is below `tol` marks a dependent row, which ends up as a zero row and column of
//   the result; a negative pivot at or above `tol` stops the run.
// - `dkmxhf`: a symmetric sweep that also reports the rank, the log-determinant, the negative
//   pivots and the non-zero elements.
// - `invrt`: a plain Gauss-Jordan inversion without rank, for small non-singular matrices.
// `invert_matrix` (in inverse_routes.hpp) chooses one of them by a route number.
#pragma once

#include <cstdint>

#include "mmekit/dense/dense.hpp"

namespace mmekit {

// Module state of the inversion routes.
struct InversionState {
  double tol_ginv = 1e-10;  // limit of a pivot in the ginv2 routes
  std::int32_t rank = 0;    // rank found by the last inversion
};
extern InversionState inversion_state;

// Default number of columns in one block of ginv2.
inline constexpr std::int64_t ginv2_default_block = 192;

// Generalised inverse of the symmetric matrix `a` in place (both triangles of the result are
// filled; only the lower triangle of the input is read). Row i is dependent when the pivot,
// the diagonal after all earlier independent rows are taken out, has magnitude below `tol`;
// a pivot of exactly `tol` counts. A negative pivot prints "ginv2: Negative pivot:" with the
// row and the pivot and stops. `rank` receives the number of independent rows. At the end
// prints "    Inverse by ginv2 elapsed time: " with the wall time.
// `block` is the number of columns of one block (0: the default); any value gives the same
// result up to rounding.
void ginv2(densem& a, std::int32_t& rank, double tol = 1e-10, std::int64_t block = 0);

// The same on a raw column-major n x n matrix with leading dimension lda (0-based pointer),
// without the elapsed-time line.
void ginv2_kernel(double* a, std::int64_t n, std::int64_t lda, std::int32_t& rank, double tol,
                  std::int64_t block = 0);

// The row-by-row form of the same algorithm on the upper triangle, unblocked and without BLAS:
// slow, kept as the reference the blocked kernel is checked against.
void ginv2_rowwise(densem& a, std::int32_t& rank, double tol = 1e-10);

// Counts and results of a dkmxhf sweep.
struct DkmxhfReport {
  std::int32_t rank = 0;
  std::int32_t negative_pivots = 0;
  std::int32_t small_pivots = 0;
  double log_determinant = 0;  // sum of log |pivot| over the non-zero pivots
  std::int64_t nonzero = 0;    // non-zero elements of the upper triangle of the result
};

// Generalised inverse by a symmetric sweep, pivots in the order of the rows. A pivot with
// magnitude below `tol` is small: a warning "small pivot " with the row is printed and the row
// and column become zero. A negative pivot is swept like any other, after the line
// "negative pivot, ignore sign for log det". Prints the number of elements first and its report
// at the end.
DkmxhfReport dkmxhf(densem& a, double tol = 1e-10);

// Default limit of the order of invrt.
inline constexpr std::int64_t invrt_max_order = 20000;

// Gauss-Jordan inversion without pivoting. Stops with
// "Matrix not positive definite (diagonal=0) in subr invrt" when a diagonal met is exactly 0, and
// with "MATRIX DIMENSION IN INVRT LARGER THAN DECLARED" when the order is above `max_order`.
void invrt(densem& a, std::int64_t max_order = invrt_max_order);

}  // namespace mmekit
