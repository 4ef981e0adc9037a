// Sparse inversion on the supernodal factor: the entries of the inverse of the matrix on the
// pattern of its LDL factor, computed in place of the factor by the Takahashi recursion taken
// supernode by supernode, from the last supernode to the first, with dense kernels.
//
// For supernode s with columns J (width w), rows R below its diagonal block (m of them), unit
// lower L11 and pivots D in the diagonal block and L21 below it, the inverse Z satisfies
//
//   Z(R,J) = -Z(R,R) L21 L11^-1,    Z(J,J) = L11^-T (D^-1 + L21' Z(R,R) L21) L11^-1,
//
// and Z(R,R) is known once every ancestor of s is done: the rows R of s are contained in the
// structures of their columns, so Z(R,R) is gathered from the ancestors' storage ("C"). A root
// (m = 0) is inverted as a dense Cholesky factor. Columns flagged in `cflag` (constraints,
// dependent columns found by factorisation) get zero rows and columns: the result is then a
// generalised inverse, the inverse of the matrix without those rows and columns.
//
// C is held whole (m by m) while m is below `limC`; from `limC` on it is held in the panel form
// of the factor's roots with block edge `blksz`, either gathered whole before use (`spdopt` at
// least 1, faster) or gathered and applied one block column at a time (less memory).
//
// The BLAS and LAPACK routines reach the kernel through a `SkeldaInvBlas` table, so a caller can
// substitute any of them; the default table calls the system OpenBLAS.
#pragma once

#include <cstdint>

#include "mmekit/dense/blas.hpp"
#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The dense routines of the inversion, column-major, single-letter options as in Fortran. The
// LAPACK entries return `info`.
struct SkeldaInvBlas {
  void (*dcopy)(blas_int n, const double* x, blas_int incx, double* y, blas_int incy);
  void (*dscal)(blas_int n, double alpha, double* x, blas_int incx);
  void (*dsymm)(char side, char uplo, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                const double* b, blas_int ldb, double beta, double* c, blas_int ldc);
  void (*dgemm)(char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a,
                blas_int lda, const double* b, blas_int ldb, double beta, double* c, blas_int ldc);
  void (*dtrmm)(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                const double* a, blas_int lda, double* b, blas_int ldb);
  void (*dtrsm)(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                const double* a, blas_int lda, double* b, blas_int ldb);
  void (*dsyrk)(char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a,
                blas_int lda, double beta, double* c, blas_int ldc);
  blas_int (*dtrtri)(char uplo, char diag, blas_int n, double* a, blas_int lda);
  blas_int (*dlauum)(char uplo, blas_int n, double* a, blas_int lda);
  blas_int (*dpotri)(char uplo, blas_int n, double* a, blas_int lda);
};

// The table of the system BLAS and LAPACK.
const SkeldaInvBlas& default_skelda_inv_blas();

// The parameters of one inversion (iparm 16, 17, 18) and the kind of factor handed in: with
// `ldl` false the factor is a Cholesky factor and is first turned into the LDL form.
struct InvmfOptions {
  std::int64_t limC = 8192;
  std::int64_t blksz = 256;
  std::int64_t spdopt = 0;
  bool ldl = true;
  // Supernodes whose work matrix stays whole and whose m m w is at most this many multiply-adds
  // are inverted by loops written out rather than by the level-3 routines (0: never).
  std::int64_t small_work = 20000;
};

// The sizes of the work of one inversion, in 8-byte words unless said otherwise. The block edge
// of a panel-form C is min(blksz, m).
struct InvmfSizes {
  std::int64_t maxnd = 0;           // widest supernode
  std::int64_t maxnc = 0;           // most rows below a diagonal block
  std::int64_t size_full = 0;       // largest whole C (m m, m below limC)
  std::int64_t size_panel_spd = 0;  // largest panel-form C gathered whole (m at or above limC)
  std::int64_t size_panel_mem = 0;  // largest block column of C (m times the block edge)
  std::int64_t work = 0;            // largest copy of -L21 and L11, (w+m) w
  std::int64_t c_words = 0;         // room for C on the chosen path (spdopt decides for panels)
  std::int64_t maxtmp = 0;          // all real work of the kernel: c_words + work + maxnd
};

// Walks the supernodes and returns the sizes of the kernel's work; status 0, or 90 when a size
// does not fit an 8-byte count.
std::int32_t invmf_simulate(const Sx2Layout& layout, const InvmfOptions& options, InvmfSizes& sizes);

// The time spent in each step of the kernel, wall-clock seconds summed over the supernodes.
struct InvmfTimers {
  double tpanel = 0, troot = 0, tstep0 = 0, tstep1 = 0, tstep1a = 0, tstep2 = 0, tstep3 = 0, tstep4 = 0,
         tstep5 = 0;
};

// The serial kernel: overwrites the LDL factor in `lnz` with the inverse on its pattern (lower
// triangles of the diagonal blocks, the rows below them). Returns 0, or the `info` of a failed
// DPOTRI or DTRTRI (then `lnz` holds a partial result). Work is allocated once, from `sizes`
// (as invmf_simulate leaves them); std::bad_alloc leaves `lnz` untouched.
std::int32_t supernodal_sx2_invmf(const Sx2Layout& layout, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                                  const InvmfOptions& options, const InvmfSizes& sizes, const SkeldaInvBlas& blas);

// The same steps with a timer per step: prints "start supernodal_sx2_invmf_omp()", "PanelC" or
// "FullC" (whether any supernode takes the panel-form C), and at the end one line per step
// timer. Runs on one thread; `timers`, when given, receives the times.
std::int32_t supernodal_sx2_invmf_omp(const Sx2Layout& layout, Array1<double>& lnz,
                                      const Array1<std::int32_t>& cflag, const InvmfOptions& options,
                                      const InvmfSizes& sizes, const SkeldaInvBlas& blas,
                                      InvmfTimers* timers = nullptr);

// DTRTRI and DLAUUM ("L", non-unit) on a panel-form root of width w and panel size p whose
// storage starts at `base`, block by block. Both return 0 or the `info` of the failing block
// routine, shifted to the column of the whole root; a failed DTRTRI prints "ERROR: TRTRI".
std::int32_t root_panel_trtri(std::int64_t w, std::int64_t p, double* base, const SkeldaInvBlas& blas);
std::int32_t root_panel_lauum(std::int64_t w, std::int64_t p, double* base, const SkeldaInvBlas& blas);

// Copies the inverse held in `lnz` onto the pattern of the upper triangle (ia, ja): a(k) gets
// the element of entry k. Returns 0, or 5 when an entry has no place in the factor.
std::int32_t extract_inverse(const Sx2Layout& layout, const Array1<double>& lnz, const Array1<std::int32_t>& iperm,
                             const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, Array1<double>& a);

// The inversion task on skelda_state: status 3 unless the state holds a factor (stage 30), 4
// when neq or the number of entries differ from the factorised matrix, 11 for a Cholesky
// factor, 1 when the work cannot be allocated, 90 when its size overflows; 8 when the kernel
// fails in DPOTRI or DTRTRI (stage 40 all the same); 5 when an entry of the pattern has no place in the
// factor. On success `a` holds the inverse on its own pattern and stage is 40. Prints the sizes
// of the work at |verbose| above 2.
std::int32_t skelda_spinv(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                          Array1<double>& a, std::int32_t verbose,
                          const SkeldaInvBlas& blas = default_skelda_inv_blas());

// The step of the task table (task 61), installed as skelda_steps().spinv.
std::int32_t skelda_spinv_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);

}  // namespace mmekit
