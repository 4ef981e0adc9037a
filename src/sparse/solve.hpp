// Stationary solvers: relaxed Gauss-Seidel iteration, one sweep over the equations per round,
// with the relaxation factor `sparse_param.solve_relax` (1.0: plain Gauss-Seidel; above 1:
// successive over-relaxation).
//
// The iteration stops when conv = sum of squared changes / sum of squared new solutions falls
// below `solve_conv`, or when `solve_rounds` rounds are made (at least one is). With
// `solve_zerosol` the solution is cleared first; otherwise the given one is the start. Above
// `solve_verbose` 1 each routine prints its closing lines; the hash kind also prints a line per
// round except the last.
//
// The sparse kinds hold the upper triangle of a symmetric matrix; one pass over it serves both
// triangles, the lower one by updating the right-hand side of the later equations. Equations
// with a zero diagonal are skipped and keep their value. `SOLVE_SPARSE_HASHM` packs and sorts a
// matrix in status 1 in place (status 2 afterwards: it takes no further additions).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// A vector argument of the solvers: contiguous, or with a stride between its elements.
struct SolverVector {
  double* p = nullptr;
  std::int64_t n = 0;
  std::int64_t stride = 1;
  SolverVector(Array1<double>& v) : p(v.data()), n(v.size()) {}
  SolverVector(std::vector<double>& v) : p(v.data()), n(static_cast<std::int64_t>(v.size())) {}
  SolverVector(std::span<double> v) : p(v.data()), n(static_cast<std::int64_t>(v.size())) {}
  SolverVector(double* data, std::int64_t size, std::int64_t step = 1) : p(data), n(size), stride(step) {}
};

struct ConstSolverVector {
  const double* p = nullptr;
  std::int64_t n = 0;
  std::int64_t stride = 1;
  ConstSolverVector(const Array1<double>& v) : p(v.data()), n(v.size()) {}
  ConstSolverVector(const std::vector<double>& v) : p(v.data()), n(static_cast<std::int64_t>(v.size())) {}
  ConstSolverVector(std::span<const double> v) : p(v.data()), n(static_cast<std::int64_t>(v.size())) {}
  ConstSolverVector(const double* data, std::int64_t size, std::int64_t step = 1) : p(data), n(size), stride(step) {}
};

void SOLVE_DENSEM(const densem& a, ConstSolverVector rhs, SolverVector sol);
void SOLVE_DENSE_SYMM(const dense_symm& a, ConstSolverVector rhs, SolverVector sol);
void SOLVE_SPARSE_HASHM(sparse_hashm& a, ConstSolverVector rhs, SolverVector sol);
void SOLVE_IJA(const sparse_ija& a, ConstSolverVector rhs, SolverVector sol);

// The same with plain arrays of n reals; n is the number of equations iterated.
void SOLVE_DENSEM_N(std::int32_t n, const densem& a, const double* rhs, double* sol);
void SOLVE_DENSE_SYMM_N(std::int32_t n, const dense_symm& a, const double* rhs, double* sol);
void SOLVE_SPARSE_HASHM_N(std::int32_t n, sparse_hashm& a, const double* rhs, double* sol);
void SOLVE_IJA_N(std::int32_t n, const sparse_ija& a, const double* rhs, double* sol);

// The generic operation: the routine of the matrix's kind.
inline void solve(const densem& a, ConstSolverVector rhs, SolverVector sol) { SOLVE_DENSEM(a, rhs, sol); }
inline void solve(const dense_symm& a, ConstSolverVector rhs, SolverVector sol) { SOLVE_DENSE_SYMM(a, rhs, sol); }
inline void solve(sparse_hashm& a, ConstSolverVector rhs, SolverVector sol) { SOLVE_SPARSE_HASHM(a, rhs, sol); }
inline void solve(const sparse_ija& a, ConstSolverVector rhs, SolverVector sol) { SOLVE_IJA(a, rhs, sol); }
inline void solve(std::int32_t n, const densem& a, const double* rhs, double* sol) { SOLVE_DENSEM_N(n, a, rhs, sol); }
inline void solve(std::int32_t n, const dense_symm& a, const double* rhs, double* sol) {
  SOLVE_DENSE_SYMM_N(n, a, rhs, sol);
}
inline void solve(std::int32_t n, sparse_hashm& a, const double* rhs, double* sol) {
  SOLVE_SPARSE_HASHM_N(n, a, rhs, sol);
}
inline void solve(std::int32_t n, const sparse_ija& a, const double* rhs, double* sol) { SOLVE_IJA_N(n, a, rhs, sol); }

// Row pointers (n + 1, into columns 1..nel) and the diagonal of a sorted hash matrix, as the
// hash solver builds them; rows with no element have an empty range. Stops when an element
// lies outside 1..n. Offered to the other iterative solvers of the package.
void hashm_rows(const sparse_hashm& a, std::int32_t n, Array1<std::int64_t>& row, Array1<double>& diag,
                const char* who = "SOLVE_SPARSE_HASHM");

}  // namespace mmekit
