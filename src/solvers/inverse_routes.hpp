// The choice among the inversion routes of a dense symmetric matrix, by route number:
//   1  ginverse (full storage)
//   2  ginverse on the packed upper triangle
//   3  ginv2, printing the rank
//   4  dkmxhf, with its own report
//   5  invrt
//   6, 7  external libraries that are not part of this build: the run stops
//   8  the sparse Cholesky package: the matrix goes to row-compressed form and each unit vector
//      is solved
//   9  ginv2 (the default)
// Any other number stops with "Wrong option Create Inverse". The rank found is left in
// `inversion_state.rank`; ginv2 and dkmxhf use `inversion_state.tol_ginv` as pivot limit.
#pragma once

#include <cstdint>

#include "mmekit/dense/dense.hpp"
#include "mmekit/dense/inverse.hpp"

namespace mmekit {

struct sparse_ija;

inline constexpr std::int32_t default_inverse_route = 9;

// Replaces `a` by its (generalised) inverse by the given route. With `msg` above 0 each route
// that works prints "   Wall time: " with its elapsed time.
void invert_matrix(densem& a, std::int32_t route = default_inverse_route, std::int32_t msg = 1);

// The upper form of `a` in row-compressed storage: every diagonal element first in its row,
// then the non-zero elements right of it.
void densem_to_ija_upper(const densem& a, sparse_ija& m);

}  // namespace mmekit
