// Solves, products and the log-determinant on the supernodal factor.
//
// The factor of the permuted matrix P'AP lies in lnz by the storage map of layout.hpp. Its
// type is 1 (Cholesky: L with L L' = P'AP) or 2 (LDL: the pivots d on the diagonal, the unit
// lower L strictly below it). A column whose word in cflag has bit 0 set is constrained or was
// lost as dependent; it holds 1 on the diagonal.
//
// The kernels work in the permuted numbering on a work vector x(1..n) and touch nothing else:
//
//   supernodal_forward    x := L^-1 x   (unit diagonal for LDL)
//   supernodal_diagonal   x := D^+ x    (LDL: x(j) = 0 where cflag is set or d(j) <= 0)
//   supernodal_backward   x := L^-T x
//   supernodal_mulfac     x := F x      F = L (Cholesky) or L sqrt(D) (LDL)
//   supernodal_mulinv     x := y with F' y = x
//
// where a column of F whose pivot is not above 0 counts as zero: mulfac drops its term and
// mulinv sets its y(j) to 0. With x standard normal, F^-T x has the covariance of the
// (generalised) inverse, which is what the pair serves in sampling.
//
// The kernels trust the layout; `sx2_factor_fits` is the check that makes that safe, and the
// entries on skelda_state run it first.
#pragma once

#include <cstdint>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// A vector of n reals, element i at p[(i-1) stride]: a column of an n-by-k array (stride 1) or
// a row of a k-by-n one (stride k).
struct SkeldaVector {
  double* p = nullptr;
  std::int64_t n = 0;
  std::int64_t stride = 1;
};
struct SkeldaConstVector {
  const double* p = nullptr;
  std::int64_t n = 0;
  std::int64_t stride = 1;
  SkeldaConstVector() = default;
  SkeldaConstVector(const double* data, std::int64_t size, std::int64_t step = 1) : p(data), n(size), stride(step) {}
  SkeldaConstVector(SkeldaVector v) : p(v.p), n(v.n), stride(v.stride) {}  // NOLINT: a view reads as well
};

// Column k of an n-by-k array as a vector.
inline SkeldaVector column_of(Array2<double>& a, std::int64_t k) { return {a.data() + (k - 1) * a.rows(), a.rows(), 1}; }
inline SkeldaVector vector_of(Array1<double>& a) { return {a.data(), a.size(), 1}; }

// True when the arrays of the layout are consistent with each other and with an lnz of
// `lnz_size` entries: supernodes partition 1..n, every row of a supernode's list lies below its
// block and within n, the list fits lindx, and each supernode's storage (by its form) fits
// between its xlnz and the next, the last one within lnz. The panel size must be at least 1.
bool sx2_factor_fits(const Sx2Layout& layout, std::int64_t lnz_size);

// The kernels (permuted numbering, x of n entries). factor_type 1 is Cholesky, anything else LDL.
void supernodal_forward(const Sx2Layout& layout, const Array1<double>& lnz, int factor_type, Array1<double>& x);
void supernodal_diagonal(const Sx2Layout& layout, const Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                         Array1<double>& x);
void supernodal_backward(const Sx2Layout& layout, const Array1<double>& lnz, int factor_type, Array1<double>& x);
void supernodal_mulfac(const Sx2Layout& layout, const Array1<double>& lnz, int factor_type, Array1<double>& x);
void supernodal_mulinv(const Sx2Layout& layout, const Array1<double>& lnz, int factor_type, Array1<double>& x);

// The sum over all columns with a pivot d above 0 of log(d) (LDL) or 2 log(d) (Cholesky): the
// log of the product of the non-zero pivots of the generalised system. A lost column holds 1
// and adds 0; no supernodes give 0. Stops with a message when the layout does not fit lnz.
double supernodal_logdet(const Sx2Layout& layout, const Array1<double>& lnz, int factor_type);

// The entries on skelda_state; the factor must be there (stage 30). Status: 0, 3 (no factor),
// 4 (a vector not of length n, or a stride below 1), 1 (no room for the work vector), 13 (the
// stored factor is inconsistent, or a Cholesky pivot is 0; nothing is written to sol).
// rhs and sol may be the same vector. The solve stores its times in rparm(57) and rparm(58).
void skelda_solve(SkeldaConstVector rhs, SkeldaVector sol, std::int32_t& status);
// inverse 0: sol = F rhs; inverse -1: F' sol = rhs (any other value: status 4).
void skelda_multiply(SkeldaConstVector rhs, SkeldaVector sol, std::int32_t& status, std::int32_t inverse);
// Status 0, 3, or 10 when the stored factor is inconsistent.
void skelda_logdet(double& value, std::int32_t& status);

// The steps of tasks 50 (solve), 54 (det), 55 (logdet), 90 (mulinv) and 100 (mulfac) for the
// step table: rhs and sol are n-by-k arrays, one column after the other; an empty sol is given
// the shape of rhs.
std::int32_t skelda_solve_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);
std::int32_t skelda_det_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);
std::int32_t skelda_logdet_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);
std::int32_t skelda_multiply_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);

// Puts the five steps above into a step table (the table of the process has them from the start).
void install_solve_steps(SkeldaSteps& steps);

}  // namespace mmekit
