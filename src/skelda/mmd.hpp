// Multiple minimum degree ordering (Liu's multiple elimination on the quotient graph), the
// kernel shared by the supernodal solver and the older Cholesky package.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Multiple minimum degree. Arrays hold 1-based numbers: xadj has n+1 entries, adjncy the full
// adjacency (both triangles, no diagonal) and is destroyed (it becomes the storage of the
// quotient graph); perm/invp come out: perm(k) is the original node eliminated k-th and
// invp(perm(k)) = k. head, qsize, list, marker are work arrays of n entries (resized if they
// are shorter). delta: a node whose degree is at most (minimum degree + delta) may be
// eliminated in the same round as the minimum-degree node, provided it is not adjacent to an
// element formed in that round; delta < 0 eliminates one node (group) per round. maxint: the
// largest value the marker tags may reach before they are reset (at least n+2 is sensible; smaller values only cause
// more frequent resets). nofsub: number of subscripts of the compressed factor structure, the
// sum over the groups of indistinguishable nodes eliminated together of the group size plus
// its external degree at elimination (row indices needed when one index list serves a group).
void mmd_genmmd(std::int32_t n, Array1<std::int32_t>& xadj, Array1<std::int32_t>& adjncy,
                Array1<std::int32_t>& invp, Array1<std::int32_t>& perm, std::int32_t delta,
                Array1<std::int32_t>& head, Array1<std::int32_t>& qsize, Array1<std::int32_t>& list,
                Array1<std::int32_t>& marker, std::int32_t maxint, std::int32_t& nofsub);

}  // namespace mmekit
