// Prototypes of the Fortran BLAS and LAPACK routines the library calls, and thin inline wrappers.
//
// Integers are the 32-bit LP64 kind of the system OpenBLAS. Every argument goes by address, as
// Fortran passes it. Character arguments carry a hidden length after the regular arguments (one
// `blas_strlen` per character argument, in order); the raw prototypes declare them so that the
// calls are correct with any Fortran compiler, and the wrappers in `mmekit::blas` pass 1 for
// each. Prefer the wrappers: they take values instead of addresses and fill in the lengths.
//
// Matrices are column-major (first index fastest), as everywhere in the library; leading
// dimensions count elements of a column.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mmekit {
using blas_int = std::int32_t;
using blas_strlen = std::size_t;
}  // namespace mmekit

extern "C" {
// ---- level 1 ----
double ddot_(const mmekit::blas_int* n, const double* x, const mmekit::blas_int* incx, const double* y,
             const mmekit::blas_int* incy);
float sdot_(const mmekit::blas_int* n, const float* x, const mmekit::blas_int* incx, const float* y,
            const mmekit::blas_int* incy);
void daxpy_(const mmekit::blas_int* n, const double* alpha, const double* x, const mmekit::blas_int* incx,
            double* y, const mmekit::blas_int* incy);
void saxpy_(const mmekit::blas_int* n, const float* alpha, const float* x, const mmekit::blas_int* incx,
            float* y, const mmekit::blas_int* incy);
void dcopy_(const mmekit::blas_int* n, const double* x, const mmekit::blas_int* incx, double* y,
            const mmekit::blas_int* incy);
void scopy_(const mmekit::blas_int* n, const float* x, const mmekit::blas_int* incx, float* y,
            const mmekit::blas_int* incy);
void dscal_(const mmekit::blas_int* n, const double* alpha, double* x, const mmekit::blas_int* incx);
void sscal_(const mmekit::blas_int* n, const float* alpha, float* x, const mmekit::blas_int* incx);

// ---- level 2 ----
void dgemv_(const char* trans, const mmekit::blas_int* m, const mmekit::blas_int* n, const double* alpha,
            const double* a, const mmekit::blas_int* lda, const double* x, const mmekit::blas_int* incx,
            const double* beta, double* y, const mmekit::blas_int* incy, mmekit::blas_strlen);
void sgemv_(const char* trans, const mmekit::blas_int* m, const mmekit::blas_int* n, const float* alpha,
            const float* a, const mmekit::blas_int* lda, const float* x, const mmekit::blas_int* incx,
            const float* beta, float* y, const mmekit::blas_int* incy, mmekit::blas_strlen);
void dger_(const mmekit::blas_int* m, const mmekit::blas_int* n, const double* alpha, const double* x,
           const mmekit::blas_int* incx, const double* y, const mmekit::blas_int* incy, double* a,
           const mmekit::blas_int* lda);
void sger_(const mmekit::blas_int* m, const mmekit::blas_int* n, const float* alpha, const float* x,
           const mmekit::blas_int* incx, const float* y, const mmekit::blas_int* incy, float* a,
           const mmekit::blas_int* lda);
void dspr_(const char* uplo, const mmekit::blas_int* n, const double* alpha, const double* x,
           const mmekit::blas_int* incx, double* ap, mmekit::blas_strlen);
void sspr_(const char* uplo, const mmekit::blas_int* n, const float* alpha, const float* x,
           const mmekit::blas_int* incx, float* ap, mmekit::blas_strlen);
void dsymv_(const char* uplo, const mmekit::blas_int* n, const double* alpha, const double* a,
            const mmekit::blas_int* lda, const double* x, const mmekit::blas_int* incx, const double* beta,
            double* y, const mmekit::blas_int* incy, mmekit::blas_strlen);
void dtrsv_(const char* uplo, const char* trans, const char* diag, const mmekit::blas_int* n,
            const double* a, const mmekit::blas_int* lda, double* x, const mmekit::blas_int* incx,
            mmekit::blas_strlen, mmekit::blas_strlen, mmekit::blas_strlen);

// ---- level 3 ----
void dgemm_(const char* transa, const char* transb, const mmekit::blas_int* m, const mmekit::blas_int* n,
            const mmekit::blas_int* k, const double* alpha, const double* a, const mmekit::blas_int* lda,
            const double* b, const mmekit::blas_int* ldb, const double* beta, double* c,
            const mmekit::blas_int* ldc, mmekit::blas_strlen, mmekit::blas_strlen);
void sgemm_(const char* transa, const char* transb, const mmekit::blas_int* m, const mmekit::blas_int* n,
            const mmekit::blas_int* k, const float* alpha, const float* a, const mmekit::blas_int* lda,
            const float* b, const mmekit::blas_int* ldb, const float* beta, float* c,
            const mmekit::blas_int* ldc, mmekit::blas_strlen, mmekit::blas_strlen);
void dsyrk_(const char* uplo, const char* trans, const mmekit::blas_int* n, const mmekit::blas_int* k,
            const double* alpha, const double* a, const mmekit::blas_int* lda, const double* beta, double* c,
            const mmekit::blas_int* ldc, mmekit::blas_strlen, mmekit::blas_strlen);
void ssyrk_(const char* uplo, const char* trans, const mmekit::blas_int* n, const mmekit::blas_int* k,
            const float* alpha, const float* a, const mmekit::blas_int* lda, const float* beta, float* c,
            const mmekit::blas_int* ldc, mmekit::blas_strlen, mmekit::blas_strlen);
void dsymm_(const char* side, const char* uplo, const mmekit::blas_int* m, const mmekit::blas_int* n,
            const double* alpha, const double* a, const mmekit::blas_int* lda, const double* b,
            const mmekit::blas_int* ldb, const double* beta, double* c, const mmekit::blas_int* ldc,
            mmekit::blas_strlen, mmekit::blas_strlen);
void dtrmm_(const char* side, const char* uplo, const char* transa, const char* diag,
            const mmekit::blas_int* m, const mmekit::blas_int* n, const double* alpha, const double* a,
            const mmekit::blas_int* lda, double* b, const mmekit::blas_int* ldb, mmekit::blas_strlen,
            mmekit::blas_strlen, mmekit::blas_strlen, mmekit::blas_strlen);
void dtrsm_(const char* side, const char* uplo, const char* transa, const char* diag,
            const mmekit::blas_int* m, const mmekit::blas_int* n, const double* alpha, const double* a,
            const mmekit::blas_int* lda, double* b, const mmekit::blas_int* ldb, mmekit::blas_strlen,
            mmekit::blas_strlen, mmekit::blas_strlen, mmekit::blas_strlen);
void strmm_(const char* side, const char* uplo, const char* transa, const char* diag,
            const mmekit::blas_int* m, const mmekit::blas_int* n, const float* alpha, const float* a,
            const mmekit::blas_int* lda, float* b, const mmekit::blas_int* ldb, mmekit::blas_strlen,
            mmekit::blas_strlen, mmekit::blas_strlen, mmekit::blas_strlen);
void strsm_(const char* side, const char* uplo, const char* transa, const char* diag,
            const mmekit::blas_int* m, const mmekit::blas_int* n, const float* alpha, const float* a,
            const mmekit::blas_int* lda, float* b, const mmekit::blas_int* ldb, mmekit::blas_strlen,
            mmekit::blas_strlen, mmekit::blas_strlen, mmekit::blas_strlen);

// ---- LAPACK ----
void dpotrf_(const char* uplo, const mmekit::blas_int* n, double* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void spotrf_(const char* uplo, const mmekit::blas_int* n, float* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void dpotri_(const char* uplo, const mmekit::blas_int* n, double* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void spotri_(const char* uplo, const mmekit::blas_int* n, float* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void dpotrs_(const char* uplo, const mmekit::blas_int* n, const mmekit::blas_int* nrhs, const double* a,
             const mmekit::blas_int* lda, double* b, const mmekit::blas_int* ldb, mmekit::blas_int* info,
             mmekit::blas_strlen);
void dtrtri_(const char* uplo, const char* diag, const mmekit::blas_int* n, double* a,
             const mmekit::blas_int* lda, mmekit::blas_int* info, mmekit::blas_strlen, mmekit::blas_strlen);
void strtri_(const char* uplo, const char* diag, const mmekit::blas_int* n, float* a,
             const mmekit::blas_int* lda, mmekit::blas_int* info, mmekit::blas_strlen, mmekit::blas_strlen);
void dlauum_(const char* uplo, const mmekit::blas_int* n, double* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void slauum_(const char* uplo, const mmekit::blas_int* n, float* a, const mmekit::blas_int* lda,
             mmekit::blas_int* info, mmekit::blas_strlen);
void dgesv_(const mmekit::blas_int* n, const mmekit::blas_int* nrhs, double* a, const mmekit::blas_int* lda,
            mmekit::blas_int* ipiv, double* b, const mmekit::blas_int* ldb, mmekit::blas_int* info);
void sgesv_(const mmekit::blas_int* n, const mmekit::blas_int* nrhs, float* a, const mmekit::blas_int* lda,
            mmekit::blas_int* ipiv, float* b, const mmekit::blas_int* ldb, mmekit::blas_int* info);
void dsyev_(const char* jobz, const char* uplo, const mmekit::blas_int* n, double* a,
            const mmekit::blas_int* lda, double* w, double* work, const mmekit::blas_int* lwork,
            mmekit::blas_int* info, mmekit::blas_strlen, mmekit::blas_strlen);
void ssyev_(const char* jobz, const char* uplo, const mmekit::blas_int* n, float* a,
            const mmekit::blas_int* lda, float* w, float* work, const mmekit::blas_int* lwork,
            mmekit::blas_int* info, mmekit::blas_strlen, mmekit::blas_strlen);
}  // extern "C"

namespace mmekit::blas {

// Value-argument wrappers, overloaded on the element type (double and float) where both exist.
// Names follow the BLAS ones without the precision letter.

inline double dot(blas_int n, const double* x, blas_int incx, const double* y, blas_int incy) {
  return ddot_(&n, x, &incx, y, &incy);
}
inline float dot(blas_int n, const float* x, blas_int incx, const float* y, blas_int incy) {
  return sdot_(&n, x, &incx, y, &incy);
}
inline void axpy(blas_int n, double alpha, const double* x, blas_int incx, double* y, blas_int incy) {
  daxpy_(&n, &alpha, x, &incx, y, &incy);
}
inline void axpy(blas_int n, float alpha, const float* x, blas_int incx, float* y, blas_int incy) {
  saxpy_(&n, &alpha, x, &incx, y, &incy);
}
inline void copy(blas_int n, const double* x, blas_int incx, double* y, blas_int incy) {
  dcopy_(&n, x, &incx, y, &incy);
}
inline void copy(blas_int n, const float* x, blas_int incx, float* y, blas_int incy) {
  scopy_(&n, x, &incx, y, &incy);
}
inline void scal(blas_int n, double alpha, double* x, blas_int incx) { dscal_(&n, &alpha, x, &incx); }
inline void scal(blas_int n, float alpha, float* x, blas_int incx) { sscal_(&n, &alpha, x, &incx); }

inline void gemv(char trans, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                 const double* x, blas_int incx, double beta, double* y, blas_int incy) {
  dgemv_(&trans, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
}
inline void gemv(char trans, blas_int m, blas_int n, float alpha, const float* a, blas_int lda,
                 const float* x, blas_int incx, float beta, float* y, blas_int incy) {
  sgemv_(&trans, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
}
inline void ger(blas_int m, blas_int n, double alpha, const double* x, blas_int incx, const double* y,
                blas_int incy, double* a, blas_int lda) {
  dger_(&m, &n, &alpha, x, &incx, y, &incy, a, &lda);
}
inline void ger(blas_int m, blas_int n, float alpha, const float* x, blas_int incx, const float* y,
                blas_int incy, float* a, blas_int lda) {
  sger_(&m, &n, &alpha, x, &incx, y, &incy, a, &lda);
}
inline void spr(char uplo, blas_int n, double alpha, const double* x, blas_int incx, double* ap) {
  dspr_(&uplo, &n, &alpha, x, &incx, ap, 1);
}
inline void spr(char uplo, blas_int n, float alpha, const float* x, blas_int incx, float* ap) {
  sspr_(&uplo, &n, &alpha, x, &incx, ap, 1);
}
inline void symv(char uplo, blas_int n, double alpha, const double* a, blas_int lda, const double* x,
                 blas_int incx, double beta, double* y, blas_int incy) {
  dsymv_(&uplo, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
}
inline void trsv(char uplo, char trans, char diag, blas_int n, const double* a, blas_int lda, double* x,
                 blas_int incx) {
  dtrsv_(&uplo, &trans, &diag, &n, a, &lda, x, &incx, 1, 1, 1);
}

inline void gemm(char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a,
                 blas_int lda, const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
  dgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}
inline void gemm(char ta, char tb, blas_int m, blas_int n, blas_int k, float alpha, const float* a,
                 blas_int lda, const float* b, blas_int ldb, float beta, float* c, blas_int ldc) {
  sgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}
inline void syrk(char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a, blas_int lda,
                 double beta, double* c, blas_int ldc) {
  dsyrk_(&uplo, &trans, &n, &k, &alpha, a, &lda, &beta, c, &ldc, 1, 1);
}
inline void syrk(char uplo, char trans, blas_int n, blas_int k, float alpha, const float* a, blas_int lda,
                 float beta, float* c, blas_int ldc) {
  ssyrk_(&uplo, &trans, &n, &k, &alpha, a, &lda, &beta, c, &ldc, 1, 1);
}
inline void symm(char side, char uplo, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                 const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
  dsymm_(&side, &uplo, &m, &n, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}
inline void trmm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                 const double* a, blas_int lda, double* b, blas_int ldb) {
  dtrmm_(&side, &uplo, &transa, &diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);
}
inline void trmm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, float alpha,
                 const float* a, blas_int lda, float* b, blas_int ldb) {
  strmm_(&side, &uplo, &transa, &diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);
}
inline void trsm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                 const double* a, blas_int lda, double* b, blas_int ldb) {
  dtrsm_(&side, &uplo, &transa, &diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);
}
inline void trsm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, float alpha,
                 const float* a, blas_int lda, float* b, blas_int ldb) {
  strsm_(&side, &uplo, &transa, &diag, &m, &n, &alpha, a, &lda, b, &ldb, 1, 1, 1, 1);
}

// LAPACK wrappers return `info`.
inline blas_int potrf(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  dpotrf_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline blas_int potrf(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  spotrf_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline blas_int potri(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  dpotri_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline blas_int potri(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  spotri_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline blas_int potrs(char uplo, blas_int n, blas_int nrhs, const double* a, blas_int lda, double* b,
                      blas_int ldb) {
  blas_int info = 0;
  dpotrs_(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info, 1);
  return info;
}
inline blas_int trtri(char uplo, char diag, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  dtrtri_(&uplo, &diag, &n, a, &lda, &info, 1, 1);
  return info;
}
inline blas_int trtri(char uplo, char diag, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  strtri_(&uplo, &diag, &n, a, &lda, &info, 1, 1);
  return info;
}
inline blas_int lauum(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  dlauum_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline blas_int lauum(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  slauum_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
// `ipiv` holds n entries.
inline blas_int gesv(blas_int n, blas_int nrhs, double* a, blas_int lda, blas_int* ipiv, double* b,
                     blas_int ldb) {
  blas_int info = 0;
  dgesv_(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
inline blas_int gesv(blas_int n, blas_int nrhs, float* a, blas_int lda, blas_int* ipiv, float* b,
                     blas_int ldb) {
  blas_int info = 0;
  sgesv_(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
// lwork = -1 asks for the optimal size in work[0].
inline blas_int syev(char jobz, char uplo, blas_int n, double* a, blas_int lda, double* w, double* work,
                     blas_int lwork) {
  blas_int info = 0;
  dsyev_(&jobz, &uplo, &n, a, &lda, w, work, &lwork, &info, 1, 1);
  return info;
}
inline blas_int syev(char jobz, char uplo, blas_int n, float* a, blas_int lda, float* w, float* work,
                     blas_int lwork) {
  blas_int info = 0;
  ssyev_(&jobz, &uplo, &n, a, &lda, w, work, &lwork, &info, 1, 1);
  return info;
}

}  // namespace mmekit::blas
