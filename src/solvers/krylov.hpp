// Krylov solvers of A x = b for a full matrix (`densem`) or a hash matrix (`sparse_hashm`):
// preconditioned conjugate gradients (PCG) for symmetric systems, and conjugate gradient
// squared (CGS) and biconjugate gradient stabilised (BiCGSTAB) for non-symmetric ones.
//
// Convergence is conv = (r'r) / (b'b) < `sparse_param.solve_conv`, for at most
// `sparse_param.solve_rounds` rounds. With `solve_zerosol` the solution starts from zero,
// otherwise from the x given. A hash matrix must be accumulating (status 1): its elements are
// read with getm_sparse_hashm and it stays open for additions afterwards.
//
// Preconditioner, built at the start of each call and dropped at its end:
//   block size absent or 1 (or below 1): the inverse of the diagonal, 0 for a zero diagonal;
//   block size b > 1: the inverse of the block-diagonal part of A (blocks of b consecutive
//   equations, the last one shorter), computed by the sparse Cholesky package in the full
//   pattern of each block. Positions of the last block beyond the order are left out.
// A singular block gives its generalised inverse (zero rows for dependent equations).
//
// Output: PCG prints a line per round above verbosity 1 and a closing line above 0 (the
// verbosity is the argument, or `solve_verbose`); CGS and BiCGSTAB always print their entry
// line, a line per round and the closing line. A breakdown of CGS or BiCGSTAB (an exact zero
// rho or omega) prints "CGS Fail " or "BiCGSAB Fail " and leaves a zero solution.
#pragma once

#include <cstdint>
#include <optional>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/solve.hpp"

namespace mmekit {

void SOLVE_DENSEM_PCG(const densem& a, ConstSolverVector b, SolverVector x,
                      std::optional<std::int32_t> block_size = std::nullopt,
                      std::optional<std::int32_t> verbose = std::nullopt);
void SOLVE_SPARSE_HASHM_PCG(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                            std::optional<std::int32_t> block_size = std::nullopt,
                            std::optional<std::int32_t> verbose = std::nullopt);
void SOLVE_DENSEM_CGS(const densem& a, ConstSolverVector b, SolverVector x,
                      std::optional<std::int32_t> block_size = std::nullopt,
                      std::optional<std::int32_t> verbose = std::nullopt);
void SOLVE_SPARSE_HASHM_CGS(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                            std::optional<std::int32_t> block_size = std::nullopt,
                            std::optional<std::int32_t> verbose = std::nullopt);
void SOLVE_DENSEM_BiCGSTAB(const densem& a, ConstSolverVector b, SolverVector x,
                           std::optional<std::int32_t> block_size = std::nullopt,
                           std::optional<std::int32_t> verbose = std::nullopt);
void SOLVE_SPARSE_HASHM_BiCGSTAB(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                                 std::optional<std::int32_t> block_size = std::nullopt,
                                 std::optional<std::int32_t> verbose = std::nullopt);

}  // namespace mmekit
