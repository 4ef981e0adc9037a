// Thin inline wrappers over BLAS (through OpenBLAS's <cblas.h>) and LAPACK (through the Fortran
// interface declared in <lapack.h>, which passes the hidden character lengths itself).
//
// Integers are the 32-bit LP64 kind of the system OpenBLAS. The wrappers take values and
// single-letter options ('U'/'L', 'N'/'T', 'L'/'R', 'N'/'U'), as the Fortran routines do.
//
// Matrices are column-major (first index fastest), as everywhere in the library; leading
// dimensions count elements of a column.
#pragma once

#include <cblas.h>
#include <lapack.h>

#include <cstdint>
#include <type_traits>

namespace mmekit {
using blas_int = std::int32_t;
static_assert(sizeof(blasint) == sizeof(blas_int) && sizeof(lapack_int) == sizeof(blas_int),
              "the library is built on the 32-bit integer (LP64) OpenBLAS");
}  // namespace mmekit

namespace mmekit::blas::detail {
inline CBLAS_TRANSPOSE trans(char t) { return (t == 'N' || t == 'n') ? CblasNoTrans : CblasTrans; }
inline CBLAS_UPLO uplo(char u) { return (u == 'U' || u == 'u') ? CblasUpper : CblasLower; }
inline CBLAS_SIDE side(char s) { return (s == 'L' || s == 'l') ? CblasLeft : CblasRight; }
inline CBLAS_DIAG diag(char d) { return (d == 'U' || d == 'u') ? CblasUnit : CblasNonUnit; }
}  // namespace mmekit::blas::detail

namespace mmekit::blas {

// Value-argument wrappers, overloaded on the element type (double and float) where both exist.
// Names follow the BLAS ones without the precision letter.

inline double dot(blas_int n, const double* x, blas_int incx, const double* y, blas_int incy) {
  return cblas_ddot(n, x, incx, y, incy);
}
inline float dot(blas_int n, const float* x, blas_int incx, const float* y, blas_int incy) {
  return cblas_sdot(n, x, incx, y, incy);
}
inline void axpy(blas_int n, double alpha, const double* x, blas_int incx, double* y, blas_int incy) {
  cblas_daxpy(n, alpha, x, incx, y, incy);
}
inline void axpy(blas_int n, float alpha, const float* x, blas_int incx, float* y, blas_int incy) {
  cblas_saxpy(n, alpha, x, incx, y, incy);
}
inline void copy(blas_int n, const double* x, blas_int incx, double* y, blas_int incy) {
  cblas_dcopy(n, x, incx, y, incy);
}
inline void copy(blas_int n, const float* x, blas_int incx, float* y, blas_int incy) {
  cblas_scopy(n, x, incx, y, incy);
}
inline void scal(blas_int n, double alpha, double* x, blas_int incx) { cblas_dscal(n, alpha, x, incx); }
inline void scal(blas_int n, float alpha, float* x, blas_int incx) { cblas_sscal(n, alpha, x, incx); }

inline void gemv(char trans, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                 const double* x, blas_int incx, double beta, double* y, blas_int incy) {
  cblas_dgemv(CblasColMajor, detail::trans(trans), m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void gemv(char trans, blas_int m, blas_int n, float alpha, const float* a, blas_int lda,
                 const float* x, blas_int incx, float beta, float* y, blas_int incy) {
  cblas_sgemv(CblasColMajor, detail::trans(trans), m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void ger(blas_int m, blas_int n, double alpha, const double* x, blas_int incx, const double* y,
                blas_int incy, double* a, blas_int lda) {
  cblas_dger(CblasColMajor, m, n, alpha, x, incx, y, incy, a, lda);
}
inline void ger(blas_int m, blas_int n, float alpha, const float* x, blas_int incx, const float* y,
                blas_int incy, float* a, blas_int lda) {
  cblas_sger(CblasColMajor, m, n, alpha, x, incx, y, incy, a, lda);
}
inline void spr(char uplo, blas_int n, double alpha, const double* x, blas_int incx, double* ap) {
  cblas_dspr(CblasColMajor, detail::uplo(uplo), n, alpha, x, incx, ap);
}
inline void spr(char uplo, blas_int n, float alpha, const float* x, blas_int incx, float* ap) {
  cblas_sspr(CblasColMajor, detail::uplo(uplo), n, alpha, x, incx, ap);
}
inline void symv(char uplo, blas_int n, double alpha, const double* a, blas_int lda, const double* x,
                 blas_int incx, double beta, double* y, blas_int incy) {
  cblas_dsymv(CblasColMajor, detail::uplo(uplo), n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void trsv(char uplo, char trans, char diag, blas_int n, const double* a, blas_int lda, double* x,
                 blas_int incx) {
  cblas_dtrsv(CblasColMajor, detail::uplo(uplo), detail::trans(trans), detail::diag(diag), n, a, lda, x, incx);
}

inline void gemm(char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a,
                 blas_int lda, const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
  cblas_dgemm(CblasColMajor, detail::trans(ta), detail::trans(tb), m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm(char ta, char tb, blas_int m, blas_int n, blas_int k, float alpha, const float* a,
                 blas_int lda, const float* b, blas_int ldb, float beta, float* c, blas_int ldc) {
  cblas_sgemm(CblasColMajor, detail::trans(ta), detail::trans(tb), m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void syrk(char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a, blas_int lda,
                 double beta, double* c, blas_int ldc) {
  cblas_dsyrk(CblasColMajor, detail::uplo(uplo), detail::trans(trans), n, k, alpha, a, lda, beta, c, ldc);
}
inline void syrk(char uplo, char trans, blas_int n, blas_int k, float alpha, const float* a, blas_int lda,
                 float beta, float* c, blas_int ldc) {
  cblas_ssyrk(CblasColMajor, detail::uplo(uplo), detail::trans(trans), n, k, alpha, a, lda, beta, c, ldc);
}
inline void symm(char side, char uplo, blas_int m, blas_int n, double alpha, const double* a, blas_int lda,
                 const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
  cblas_dsymm(CblasColMajor, detail::side(side), detail::uplo(uplo), m, n, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void trmm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                 const double* a, blas_int lda, double* b, blas_int ldb) {
  cblas_dtrmm(CblasColMajor, detail::side(side), detail::uplo(uplo), detail::trans(transa), detail::diag(diag), m, n, alpha, a, lda, b, ldb);
}
inline void trmm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, float alpha,
                 const float* a, blas_int lda, float* b, blas_int ldb) {
  cblas_strmm(CblasColMajor, detail::side(side), detail::uplo(uplo), detail::trans(transa), detail::diag(diag), m, n, alpha, a, lda, b, ldb);
}
inline void trsm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha,
                 const double* a, blas_int lda, double* b, blas_int ldb) {
  cblas_dtrsm(CblasColMajor, detail::side(side), detail::uplo(uplo), detail::trans(transa), detail::diag(diag), m, n, alpha, a, lda, b, ldb);
}
inline void trsm(char side, char uplo, char transa, char diag, blas_int m, blas_int n, float alpha,
                 const float* a, blas_int lda, float* b, blas_int ldb) {
  cblas_strsm(CblasColMajor, detail::side(side), detail::uplo(uplo), detail::trans(transa), detail::diag(diag), m, n, alpha, a, lda, b, ldb);
}

// LAPACK wrappers return `info`.
inline blas_int potrf(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_dpotrf(&uplo, &n, a, &lda, &info);
  return info;
}
inline blas_int potrf(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_spotrf(&uplo, &n, a, &lda, &info);
  return info;
}
inline blas_int potri(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_dpotri(&uplo, &n, a, &lda, &info);
  return info;
}
inline blas_int potri(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_spotri(&uplo, &n, a, &lda, &info);
  return info;
}
inline blas_int potrs(char uplo, blas_int n, blas_int nrhs, const double* a, blas_int lda, double* b,
                      blas_int ldb) {
  blas_int info = 0;
  LAPACK_dpotrs(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info);
  return info;
}
inline blas_int trtri(char uplo, char diag, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_dtrtri(&uplo, &diag, &n, a, &lda, &info);
  return info;
}
inline blas_int trtri(char uplo, char diag, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_strtri(&uplo, &diag, &n, a, &lda, &info);
  return info;
}
inline blas_int lauum(char uplo, blas_int n, double* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_dlauum(&uplo, &n, a, &lda, &info);
  return info;
}
inline blas_int lauum(char uplo, blas_int n, float* a, blas_int lda) {
  blas_int info = 0;
  LAPACK_slauum(&uplo, &n, a, &lda, &info);
  return info;
}
// `ipiv` holds n entries.
inline blas_int gesv(blas_int n, blas_int nrhs, double* a, blas_int lda, blas_int* ipiv, double* b,
                     blas_int ldb) {
  blas_int info = 0;
  LAPACK_dgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
inline blas_int gesv(blas_int n, blas_int nrhs, float* a, blas_int lda, blas_int* ipiv, float* b,
                     blas_int ldb) {
  blas_int info = 0;
  LAPACK_sgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
// lwork = -1 asks for the optimal size in work[0].
inline blas_int syev(char jobz, char uplo, blas_int n, double* a, blas_int lda, double* w, double* work,
                     blas_int lwork) {
  blas_int info = 0;
  LAPACK_dsyev(&jobz, &uplo, &n, a, &lda, w, work, &lwork, &info);
  return info;
}
inline blas_int syev(char jobz, char uplo, blas_int n, float* a, blas_int lda, float* w, float* work,
                     blas_int lwork) {
  blas_int info = 0;
  LAPACK_ssyev(&jobz, &uplo, &n, a, &lda, w, work, &lwork, &info);
  return info;
}

}  // namespace mmekit::blas
