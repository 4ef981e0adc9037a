// Element operations of the dense kinds and the assignments between all storage kinds of the
// package: `densem`, `dense_symm`, `sparse_ija` and `sparse_hashm`.
//
// `assign(target, source)` copies between equal kinds (the target takes the source's shape)
// and converts between kinds:
//   sparse_hashm <- sparse_ija : init with no size, every element added row by row
//   sparse_hashm <- densem     : init with no size, every nonzero element added (an upper
//                                matrix drops the lower triangle in the add)
//   sparse_ija   <- densem     : upper form, diagonal first, then the nonzero j > i in
//                                increasing column order
//   sparse_ija   <- sparse_hashm : CONVERT_HASH_IJA
//   densem       <- sparse_hashm : each occupied slot at (i, j), and at (j, i) when the
//                                storage is upper and i differs from j
//   densem       <- sparse_ija : (i, j) with j >= i at (i, j) and, for j > i, at (j, i);
//                                elements below the diagonal are ignored
//   dense_symm   <- densem     : the upper triangle
#pragma once

#include <cstdint>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"

namespace mmekit {

// Plain element access of a full matrix. An index outside the matrix stops the run.
void addm_densem(double value, std::int32_t i, std::int32_t j, densem& a);
double getm_densem(std::int32_t i, std::int32_t j, const densem& a);
void getm_densem(std::int32_t i, std::int32_t j, const densem& a, double& result);

// Packed access, i <= j only: j < i stops with "Warning !!! this is an upper-triangular matrix".
void addm_dense_symm(double value, std::int32_t i, std::int32_t j, dense_symm& a);
void setm_dense_symm(double value, std::int32_t i, std::int32_t j, dense_symm& a);
double getm_dense_symm(std::int32_t i, std::int32_t j, const dense_symm& a);
void getm_dense_symm(std::int32_t i, std::int32_t j, const dense_symm& a, double& result);

void assign(densem& target, const densem& source);
void assign(dense_symm& target, const dense_symm& source);
void assign(sparse_ija& target, const sparse_ija& source);
void assign(sparse_hashm& target, const sparse_hashm& source);
void assign(sparse_hashm& target, const sparse_ija& source);
void assign(sparse_hashm& target, const densem& source);
void assign(sparse_ija& target, const densem& source);
void assign(sparse_ija& target, const sparse_hashm& source);
void assign(densem& target, const sparse_hashm& source);
void assign(densem& target, const sparse_ija& source);
void assign(dense_symm& target, const densem& source);

}  // namespace mmekit
