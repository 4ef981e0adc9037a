// Products, quadratic and bilinear forms and traces on a symmetric matrix held by its upper
// triangle in row-compressed form (ia, ja, a: row i holds ja(ia(i)..ia(i+1)-1), 1-based, the
// order n being ia's length less one). No factor is needed.
//
// Each routine stops with its own "ERROR: <routine>() size mismatch" when the vectors do not
// have the order of the matrix, when the structure cannot be walked (a row that runs past ja
// or a, a column outside 1..n), or when a selection of rows does not fit the matrix.
//
// Selections: the rows first, first+step, ..., last, where step below 2 counts as 1 and
// last-first+1 must be a multiple of step (an empty range selects nothing). The subset forms
// also take a range of columns row_first..row_last with the same step: an entry of a selected
// row counts when its column lies in that range and column-row_first is a multiple of step.
// The vectors are indexed by the matrix's own numbering.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// y = A x over the rows 1..n; x and y of length n and distinct or the same array.
void skelda_matmul(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                   const Array1<double>& x, Array1<double>& y, std::int32_t n);

// x'Ax and x'Ay.
double skelda_quadform(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       const Array1<double>& x);
double skelda_bilinear(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       const Array1<double>& x, const Array1<double>& y);

// The forms over the selected rows and columns: each counted entry a(i, j) adds
// a x(i) x(j), twice when j differs from i (quadratic), or a x(i) y(j) and, when j differs
// from i, a x(j) y(i) (bilinear). With the same rows and columns this is x_S' A_SS x_S.
double skelda_quadform_subset(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                              const Array1<double>& a, const Array1<double>& x, std::int32_t first,
                              std::int32_t last, std::int32_t row_first, std::int32_t row_last,
                              std::int32_t step = 1);
double skelda_bilinear_subset(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                              const Array1<double>& a, const Array1<double>& x, const Array1<double>& y,
                              std::int32_t first, std::int32_t last, std::int32_t row_first,
                              std::int32_t row_last, std::int32_t step = 1);

// The trace of the selected diagonal block: the sum of a(i, i) over the selected rows, a row
// without its diagonal adding 0.
double skelda_trace_ac(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       std::int32_t first, std::int32_t last, std::int32_t step = 1);

// tr(B C_SS) for the selected block C_SS of the matrix C = (ia, ja, c) and a symmetric B =
// (ib, jb, b) of the block's order, both upper triangles: the sum of the element-wise products
// b(r, q) c(first+(r-1) step, first+(q-1) step), off-diagonal pairs twice. An element present
// in only one of the two adds 0. Typically C is a block of the inverse of the mixed-model
// equations and B the inverse relationship matrix.
double skelda_trace_ac(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& c,
                       const Array1<std::int32_t>& ib, const Array1<std::int32_t>& jb, const Array1<double>& b,
                       std::int32_t first, std::int32_t last, std::int32_t step = 1);

}  // namespace mmekit
