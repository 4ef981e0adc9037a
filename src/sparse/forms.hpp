// Block, trace and quadratic forms on the storage kinds of the package: parts of a (generalised)
// inverse of the mixed-model equations as REML-type computations need them.
//
// Every family has one member per kind: `densem`, `sparse_hashm` and `sparse_ija`.
//
// Blocks. A block is given by the row range i1..i2 and the column range j1..j2 and a step
// (default 1): it is the square matrix of order (i2 - i1) / step + 1 whose element (r, c) is the
// element (i1 + (r - 1) step, j1 + (c - 1) step) of the source. The two ranges must have the
// same length (i2 - i1 = j2 - j1), else the run stops with "<NAME>: matrix not square"
// (BLOCK_*) or "<NAME>: ranges not equal" (BLOCKTRACE_*). Beyond that a block must be
// well formed: a step below 1 stops with "<NAME>: step not positive", a range with its end
// before its start with "<NAME>: empty range", and one reaching outside 1..n of the source with
// "<NAME>: range outside the matrix".
//
// How the sparse kinds are read:
// - BLOCK_HASHM and BLOCK_IJA give what the element access of the source gives
//   (getm_sparse_hashm, getm_sparse_ija): absent elements are zero, and so, as in those
//   routines, is a position below the diagonal of an upper-stored matrix. The hash member
//   searches once per element and needs a matrix in hash order (status 1), as its element
//   access does; the row-form member makes one pass over each block row.
// - The trace, quadratic and block-trace forms treat an upper-stored matrix as the symmetric
//   matrix it stands for: each off-diagonal element (i, j) counts also at (j, i). A full-stored
//   hash matrix is refused by them ("... not yet implemented for full-stored matrix"). A
//   `sparse_ija` carries no storage flag: it is taken as the full form when it holds any element
//   below the diagonal, and as the upper form otherwise.
//
// A `sparse_ija` is checked before any of them reads it: a column outside 1..n stops the run
// with "<NAME>: element outside the order of the matrix" and the row, column and order, any
// other damage of its structure (ia, ja or a too short, row starts that fall, nel that is not
// ia(n+1)-1) with "<NAME>: " and what is wrong.
#pragma once

#include <cstdint>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// ---- BLOCK_*: a block of a matrix into a full matrix ------------------------------------------
//
// `target` becomes the block: it is (re)allocated to the block's order when its order differs,
// cleared, and filled element by element. `target` may be the source itself (BLOCK_DENSEM).
void BLOCK_DENSEM(densem& target, const densem& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                  std::int32_t j2, std::int32_t step = 1);
void BLOCK_HASHM(densem& target, const sparse_hashm& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                 std::int32_t j2, std::int32_t step = 1);
void BLOCK_IJA(densem& target, const sparse_ija& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
               std::int32_t j2, std::int32_t step = 1);

// ---- QUADR_*: x' A y --------------------------------------------------------------------------
//
// x and y must both have exactly n elements ("<NAME>: incompatible dimensions" otherwise). The
// sparse members sum over the stored elements; the hash member walks the slots and so works in
// either status.
double QUADR_DENSEM(const Array1<double>& x, const densem& a, const Array1<double>& y);
double QUADR_HASHM(const Array1<double>& x, const sparse_hashm& a, const Array1<double>& y);
double QUADR_IJA(const Array1<double>& x, const sparse_ija& a, const Array1<double>& y);

// ---- TRACE_*: trace of the product of two matrices of the same kind ---------------------------
//
// TRACE_DENSEM is the exact trace of a b: the sum over all pairs of a(i, j) b(j, i).
//
// The sparse members are meant for symmetric matrices. They run through the elements of `a`;
// for each element (i, j) the element (i, j) of `b` is taken from row i (by a position vector
// of that row for the row form, by a search for the hash form). The products are summed
// separately over the strictly lower triangle, the diagonal and the strictly upper triangle, an
// off-diagonal element of an upper-stored matrix counting in both triangles. For symmetric
// matrices the two triangle sums agree; when their relative difference reaches 1e-06, a
// warning line "TRACE_IJA: inconsistent trace value: tr[lower,diag,upper]= " (or
// "TRACE_HASHM inconsistent trace value: tr[lower,diag,upper]= ") with the three sums is
// printed, and the sum of the three is returned all the same.
//
// The hash member walks the slots of `a` (either status) and searches `b`, which must be in
// hash order. Since it refuses full storage, its two triangle sums always agree.
double TRACE_DENSEM(const densem& a, const densem& b);
double TRACE_HASHM(const sparse_hashm& a, const sparse_hashm& b);
double TRACE_IJA(const sparse_ija& a, const sparse_ija& b);

// ---- BLOCKTRACE_*: trace of a small matrix times a block of a large one -----------------------
//
// The sum over r and c of a(r, c) b(i1 + (c - 1) step, j1 + (r - 1) step), that is the trace of
// a times the block of b by the rule of BLOCK_*. An empty `a` gives 0.0; otherwise the order of
// `a` must be that of the block ("<NAME>: Matrices of different size").
//
// BLOCKTRACE_HASHM searches b once for every element of the block (b in hash order);
// BLOCKTRACE_IJA_HASHM gets the same value by one walk over the slots of b, which also works on
// a packed and sorted matrix and is the cheaper of the two when the block is large. Both refuse
// a full-stored b. BLOCKTRACE_IJA walks only the rows of b that the block touches.
double BLOCKTRACE_DENSEM(const densem& a, const densem& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                         std::int32_t j2, std::int32_t step = 1);
double BLOCKTRACE_HASHM(const densem& a, const sparse_hashm& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                        std::int32_t j2, std::int32_t step = 1);
double BLOCKTRACE_IJA(const densem& a, const sparse_ija& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                      std::int32_t j2, std::int32_t step = 1);
double BLOCKTRACE_IJA_HASHM(const densem& a, const sparse_hashm& b, std::int32_t i1, std::int32_t i2,
                            std::int32_t j1, std::int32_t j2, std::int32_t step = 1);

}  // namespace mmekit
