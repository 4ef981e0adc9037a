// Orderings of the supernodal solver other than the quotient-graph family (see amd.hpp):
// multiple minimum degree and nested dissection through METIS.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Multiple minimum degree on the full graph (1-based, xadj(1)=1): the graph is copied, the
// kernel's tolerance is delta and its marker bound the largest 4-byte integer.
void skelda_mmd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                std::int32_t delta, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
// The 8-byte entry has no kernel: it says so and returns the identity.
void skelda_mmd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 std::int64_t delta, Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm);

// Nested dissection by METIS_NodeND with 1-based numbering. `options` are the eight option
// words: options(1) = 0 takes METIS's defaults; otherwise options(5) is the debug level,
// options(7) the dense-column factor and options(8) the number of separators tried (the
// coarsening, initial-partition and refinement choices of the old words 2-4 and the flags
// of word 6 have no counterpart and are ignored). Without METIS in the build it prints a
// caution line and returns the identity.
void skelda_metis(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                  const Array1<std::int32_t>& options, Array1<std::int32_t>& perm,
                  Array1<std::int32_t>& iperm);
// The 8-byte entry is not implemented: it says so and returns the identity.
void skelda_metis8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                   const Array1<std::int64_t>& options, Array1<std::int64_t>& perm,
                   Array1<std::int64_t>& iperm);

// True when the build links METIS.
bool skelda_have_metis();

}  // namespace mmekit
