// A plain left-looking supernodal Cholesky for checking the factorisation kernels: no BLAS, no
// temporary shared between supernodes, every element found through the storage map. It is
// slow (each supernode looks at every earlier one) and meant for small matrices: as a second
// way to the factor in tests, and, traced, to follow a factorisation by hand.
#pragma once

#include <cstdint>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// Factorises the matrix loaded into `lnz` (its lower triangle in the storage of `layout`) in
// place: supernode by supernode, the updates of all earlier supernodes whose rows reach its
// columns, then the Cholesky of its columns. With `ldl` the factor is converted to LDL at the
// end (as the numeric step does). Returns 0, or 8 when a pivot is not above 0 (the factor is
// then partial).
//
// It first prints " SNLL LDL=" with the flag (list-directed) and, when the flag is off,
// "* LDL conversion is not performed.". With `trace` it prints "OMP_TEST_VERSION" and, for
// every supernode J, " Supernode" J, then "before" with the values of J, for every updating
// supernode K "gather SJ,SK=" J K, "intermediate" with the values after the updates, "end" after
// its own columns are factorised and "final_in_SJ" with the values written back. The values are
// those of the columns of J over its rows (diagonal block, then the row list), column by column,
// upper-triangle places of the diagonal block left out, one value a line in the form (G13.5).
std::int32_t snll_test_driver(const Sx2Layout& layout, Array1<double>& lnz, bool ldl, bool trace);

}  // namespace mmekit
