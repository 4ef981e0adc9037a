// Supernodal multifrontal factorisation into the same factor storage as the left-looking one.
//
// The supernodes are taken in a postorder of the supernodal tree (the job list). Each one
// receives its children's update matrices from a stack, adds their parts in its own columns to
// the factor and the rest to its own update matrix, factorises its columns, subtracts the
// product of its rows below into its update matrix and pushes that for its parent. Roots push
// nothing; a panel-form root is factorised block column by block column.
//
// It is a second kernel a caller may choose; the task front end uses the left-looking one. The
// build runs one worker.
#pragma once

#include <cstdint>
#include <vector>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

struct MfOptions {
  bool kachman = false;  // detect dependent columns (else plain Cholesky)
  bool ldl = false;      // convert to LDL at the end
  double tol_abs = 0, tol_rel = 0;
  std::int64_t block_alt = 256;  // block size of the dense dependent-column kernel
  // 1: the update matrix is modified by one DSYRK of the rows below; 2: by column blocks of the
  // panel size, DSYRK on each diagonal block and DGEMM below it.
  int variant = 1;
};

// Sizes of the work, in words of their element type.
struct MfMemory {
  std::int64_t nworkers = 1;
  std::int64_t mem_c = 0;     // the update matrix being built (largest rows below, squared)
  std::int64_t mem_u = 0;     // peak of the stacked update matrices
  std::int64_t mem_uidx = 0;  // peak of their stacked row indices
  std::int64_t mem_extd = 0;  // the extend-add index map (largest rows below)
  std::int64_t max_mem = 0;   // all of it in 8-byte words
};

// The job list: every supernode after its children, children in ascending order, roots in
// ascending order. A supernode that no root reaches (a parent out of range, or a cycle) leaves
// the list short: "ERROR: The joblist does not capture all nodes." and a stop.
std::vector<std::int32_t> mf_job_list(std::int32_t nsn, const Array1<std::int32_t>& snparent);

// Walks the job list with the stack of update matrices, without values. Prints
// "simulation: supernodal_sx2_mf_omp_v1()" and the sizes at |verbose| > 2.
MfMemory supernodal_sx2_mf_simulate(const Sx2Layout& layout, const Array1<std::int32_t>& snparent,
                                    std::int32_t verbose);

// Multifrontal factorisation of the loaded `lnz` in place; `cflag`, `rank` and the status (0,
// or 8 when DPOTRF fails) as in snll_factor. Prints the number of roots, "prep", what work is
// left held at the end ("ERROR: Not deallocated DIAG", "... C", "... UIDX", "... EXTD": after a
// failure, or on a structure whose updates are not all taken), and at the end
// the timers and the peak at |verbose| > 2; the per-supernode trace at |verbose| > 4.
std::int32_t supernodal_sx2_mf_omp_v1(const Sx2Layout& layout, const Array1<std::int32_t>& snparent,
                                      Array1<double>& lnz, Array1<std::int32_t>& cflag, const MfOptions& options,
                                      const SkeldaBlas& blas, std::int64_t& rank, std::int32_t verbose);

}  // namespace mmekit
