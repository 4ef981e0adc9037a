// Minimum-degree family on the quotient graph: approximate minimum degree (AMD), its variant
// that postpones quasi-dense rows (QAMD), and approximate minimum fill (AMF). Each exists for
// 4-byte and 8-byte integers (the `8` members); the logic is the same.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// The wrappers take the full adjacency (both triangles, no diagonal, 1-based, xadj(1)=1) and
// return perm (perm(k) = node eliminated k-th) and iperm (its inverse). They copy the graph into
// a work vector with a quarter of elbow room; the kernels compact it when it fills up.
void skelda_amd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
void skelda_qamd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                 Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
// QAMD with its quasi-dense threshold given: rows longer than `threshold` are postponed. The
// ordering step uses it when the dense-row switch has reduced the graph, so that the rule
// still judges rows by the lengths of the whole matrix.
void skelda_qamd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                 std::int64_t threshold, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
void skelda_amf(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
void skelda_amd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm);
void skelda_qamd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                  Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm);
void skelda_amf8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm);

// The threshold above which a row counts as quasi-dense: lenmax the longest row, total the
// number of adjacency entries. Returns n when no row is to be postponed.
std::int64_t qamd_dense_threshold(std::int64_t n, std::int64_t lenmax, std::int64_t total);

// Closing checks of the kernels: `numbered` nodes were given a position, `dense_left` quasi-dense
// rows were not. They print the kernel's internal-error message and stop when the counts are off.
void qamd_check_finish(std::int64_t n, std::int64_t numbered, std::int64_t dense_left);
void amf_check_finish(std::int64_t n, std::int64_t numbered);

// The minimum-fill score of a variable after a pivot element is formed (see amd.cpp; si is the
// fill its other elements already cover, not its previous score), and its bucket among n+2
// buckets.
std::int64_t amf_score(std::int64_t n, std::int64_t nleft, std::int64_t dme, std::int64_t wi,
                       std::int64_t di, std::int64_t si);
std::int64_t amf_bucket(std::int64_t n, std::int64_t score);

}  // namespace mmekit
