// Numeric factorisation of the supernodal solver: loading the matrix into the factor storage,
// the left-looking supernodal Cholesky (plain, or with the detection of dependent columns that
// turns a singular system into one with a generalised inverse), the conversion to LDL, the
// memory simulation that sizes the temporary. The log-determinant at the end of the task is
// the sum of solve.hpp.
//
// Everything below `skelda_numfac` works on explicit data: the symbolic structure through an
// `Sx2Layout` view and the values in `lnz`. Positions are 1-based indices into `lnz`.
//
// The BLAS and LAPACK routines reach the kernels through a `SkeldaBlas` table, so a caller can
// substitute any of them (for counting, checking or another library); the default table calls
// the system OpenBLAS.
#pragma once

#include <cstdint>

#include "mmekit/dense/blas.hpp"
#include "mmekit/skelda/layout.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The dense routines of the factorisation, column-major, single-letter options as in Fortran.
struct SkeldaBlas {
  double (*ddot)(blas_int n, const double* x, blas_int incx, const double* y, blas_int incy);
  void (*daxpy)(blas_int n, double alpha, const double* x, blas_int incx, double* y, blas_int incy);
  void (*dscal)(blas_int n, double alpha, double* x, blas_int incx);
  void (*dgemm)(char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a,
                blas_int lda, const double* b, blas_int ldb, double beta, double* c, blas_int ldc);
  void (*dger)(blas_int m, blas_int n, double alpha, const double* x, blas_int incx, const double* y,
               blas_int incy, double* a, blas_int lda);
  void (*dspr)(char uplo, blas_int n, double alpha, const double* x, blas_int incx, double* ap);
  void (*dgemv)(char trans, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                const double* x, blas_int incx, double beta, double* y, blas_int incy);
  void (*dsyrk)(char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a,
                blas_int lda, double beta, double* c, blas_int ldc);
  void (*dtrsm)(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                const double* a, blas_int lda, double* b, blas_int ldb);
  blas_int (*dpotrf)(char uplo, blas_int n, double* a, blas_int lda);  // returns info
};

// The table of the system BLAS and LAPACK.
const SkeldaBlas& default_skelda_blas();

// Result of the memory simulation, in 8-byte words.
struct SnllMemory {
  std::int64_t tmp = 0;      // the update temporary `tmp`
  std::int64_t lj = 0;       // the largest storage of one supernode in lnz
  std::int64_t max_mem = 0;  // all work of one factorisation: tmp, diag0 and the index arrays
};

// Target columns of one update formed in `tmp` at a time: the temporary holds at most
// (rows of the update) times this width.
std::int64_t snll_update_width(const Sx2Layout& layout);

// Walks the supernodes in the order of the factorisation, with the same lists of pending
// updates, and returns the sizes of its work: the temporary serves the updates above
// `small_update` (the option of the same name) whose rows are not consecutive in the target.
// Prints "SKELDA_FAC_SNLL" and the three size lines at |verbose| > 2, with `lx_size`
// (iparm(44)) in the last ratio.
SnllMemory snll_simulate(const Sx2Layout& layout, std::int64_t lx_size, std::int32_t verbose,
                         std::int64_t small_update = 0);

// Loads the upper triangle (ia, ja, a) under `iperm` into `lnz`, zeroed first. Entries in a
// row or column whose `cflag` word is true become 1 on the diagonal and 0 elsewhere. Values
// are stored, not added. When `position_map` is given it receives the position of entry k.
// Returns 0, or 1 when an entry does not fit the structure (index outside 1..n, a row above
// its column, a row missing from the row list). An entry outside a panel-form supernode stops
// with "ERROR: set_sx2_factor_element() Element not allocated".
std::int32_t load_matrix(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                         const Array1<double>& a, const Array1<std::int32_t>& iperm,
                         const Sx2Layout& layout, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                         Array1<std::int64_t>* position_map = nullptr);

// Options of one left-looking factorisation.
struct SnllOptions {
  bool kachman = false;          // detect dependent columns (else plain Cholesky)
  bool ldl = false;              // convert to LDL at the end
  double tol_abs = 0, tol_rel = 0;
  std::int64_t block_alt = 256;  // block size of the dense dependent-column kernel
  std::int64_t tmp_words = 0;    // size of `tmp`, from `snll_simulate`
  // Updates of at most this many multiply-adds (rows times target columns times source
  // columns) are written out instead of going through the dense routines; 0 sends all of them
  // through the routines.
  std::int64_t small_update = 512;
};

// Left-looking supernodal factorisation of `lnz` in place. With `kachman`, a lost column gets
// a unit pivot and `cflag` -1, and `rank` = n minus the lost columns; otherwise a pivot that
// is not positive ends the loop with status 8. Returns the status (0 or 8).
std::int32_t snll_factor(const Sx2Layout& layout, Array1<double>& lnz, Array1<std::int32_t>& cflag,
                         const SnllOptions& options, const SkeldaBlas& blas, std::int64_t& rank);

// The factorisation of supernode s once every update from other supernodes has arrived: its
// diagonal block (DPOTRF, or the dependent-column kernel with `diag0` as work of the widest
// supernode, lost columns counted in `nlost` and flagged in `cflag`), and the rows below it by
// DTRSM; a panel-form root block column by block column. `lnz` points at the first value.
// Returns false when DPOTRF reports failure.
bool snll_factor_supernode(const Sx2Layout& layout, std::int32_t s, double* lnz, Array1<std::int32_t>& cflag,
                           const SnllOptions& options, const SkeldaBlas& blas, double* diag0, std::int64_t& nlost);

// The dense kernel with the detection of dependent columns on the n-by-n lower triangle of
// `a` (leading dimension lda). `diag0` holds the diagonal values before the elimination,
// `lostflag` receives -1 for each lost column (others untouched); `nlost` is increased by the
// number of lost columns. Unblocked when blocksize < 2 or blocksize >= n.
void kachman_dense(std::int64_t n, double* a, std::int64_t lda, double tol_abs, double tol_rel,
                   std::int64_t& nlost, const double* diag0, std::int32_t* lostflag,
                   std::int64_t blocksize, const SkeldaBlas& blas);

// Turns the Cholesky factor into L with unit diagonal and D on the diagonal: for a pivot d
// above 0 the diagonal becomes d*d and the column below it is divided by d.
void ldl_from_cholesky(const Sx2Layout& layout, Array1<double>& lnz, const SkeldaBlas& blas);

// The numerical factorisation task on skelda_state. Returns the status; `rank` receives the
// rank, `logdet` the log-determinant when iparm(14) asks for it.
std::int32_t skelda_numfac(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                           const Array1<double>& a, std::int32_t& rank, double* logdet, std::int32_t verbose);

// The step of the task table: skelda_numfac on the call's arguments. Task 40 hands the rank
// to `ival` and the log-determinant, when iparm(14) asks for it, to `det`.
struct SkeldaArgs;
std::int32_t skelda_numfac_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);

}  // namespace mmekit
