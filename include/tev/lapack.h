/* SPDX-License-Identifier: BSD-3-Clause */
/* The LAPACK routines of the library, in the calling style of the reference LAPACK: every argument by address, options
 * as single letters in either case, column-major matrices, sizes, leading dimensions and pivots 64-bit. The meaning of
 * every routine and option is that of the reference routine of the same name. The caller owns all arrays. C11 and
 * C++20.
 *
 * Work is spread over the OpenMP team as that of tev/blas.h; a call from inside a parallel region runs on the calling
 * thread. Wrong arguments are reported through `tev_serv_xerbla`. */
#ifndef TEV_LAPACK_H
#define TEV_LAPACK_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Row interchanges on the n columns of A: row i is exchanged with the row that its pivot names, counted from 1, for i =
 * k1 .. k2, or down from k2 to k1 when incx is negative. The pivot of row i is element k1 + (i - k1) |incx| of ipiv,
 * counted from 1. incx = 0, k1 > k2 and n < 1 do nothing.
 *
 * A row or a pivot outside 1 .. lda is reported as argument 6; every column then has the interchanges before it. */
TEV_EXPORT void tev_lapack_slaswp(const int64_t* n, float* a, const int64_t* lda, const int64_t* k1, const int64_t* k2,
                                  const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_dlaswp(const int64_t* n, double* a, const int64_t* lda, const int64_t* k1, const int64_t* k2,
                                  const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_claswp(const int64_t* n, tev_complex8* a, const int64_t* lda, const int64_t* k1,
                                  const int64_t* k2, const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_zlaswp(const int64_t* n, tev_complex16* a, const int64_t* lda, const int64_t* k1,
                                  const int64_t* k2, const int64_t* ipiv, const int64_t* incx);

/* The same on the calling thread alone. */
TEV_EXPORT void tev_lapack_xslaswp(const int64_t* n, float* a, const int64_t* lda, const int64_t* k1, const int64_t* k2,
                                   const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_xdlaswp(const int64_t* n, double* a, const int64_t* lda, const int64_t* k1,
                                   const int64_t* k2, const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_xclaswp(const int64_t* n, tev_complex8* a, const int64_t* lda, const int64_t* k1,
                                   const int64_t* k2, const int64_t* ipiv, const int64_t* incx);
TEV_EXPORT void tev_lapack_xzlaswp(const int64_t* n, tev_complex16* a, const int64_t* lda, const int64_t* k1,
                                   const int64_t* k2, const int64_t* ipiv, const int64_t* incx);

/* C := H C or H^H C (side L), C H or C H^H (side R) with the block reflector H = I - V T V^H (storev C, reflectors in
 * the columns of V) or I - V^H T V (storev R, in its rows). H is the product of its k reflectors from first to last
 * (direct F, T upper triangular) or from last to first (B, T lower triangular). Trans N means H, any other letter H^H.
 * C is m x n. Of V the trapezoid is read without its ones, of T the triangle. work: n rows (side L) or m rows (side R)
 * and k columns. Nothing is checked or reported. The trailing lengths of the option letters are not read. */
TEV_EXPORT void tev_lapack_slarfb(const char* side, const char* trans, const char* direct, const char* storev,
                                  const int64_t* m, const int64_t* n, const int64_t* k, const float* v,
                                  const int64_t* ldv, const float* t, const int64_t* ldt, float* c, const int64_t* ldc,
                                  float* work, const int64_t* ldwork, int64_t side_length, int64_t trans_length,
                                  int64_t direct_length, int64_t storev_length);
TEV_EXPORT void tev_lapack_dlarfb(const char* side, const char* trans, const char* direct, const char* storev,
                                  const int64_t* m, const int64_t* n, const int64_t* k, const double* v,
                                  const int64_t* ldv, const double* t, const int64_t* ldt, double* c,
                                  const int64_t* ldc, double* work, const int64_t* ldwork, int64_t side_length,
                                  int64_t trans_length, int64_t direct_length, int64_t storev_length);
TEV_EXPORT void tev_lapack_clarfb(const char* side, const char* trans, const char* direct, const char* storev,
                                  const int64_t* m, const int64_t* n, const int64_t* k, const tev_complex8* v,
                                  const int64_t* ldv, const tev_complex8* t, const int64_t* ldt, tev_complex8* c,
                                  const int64_t* ldc, tev_complex8* work, const int64_t* ldwork, int64_t side_length,
                                  int64_t trans_length, int64_t direct_length, int64_t storev_length);
TEV_EXPORT void tev_lapack_zlarfb(const char* side, const char* trans, const char* direct, const char* storev,
                                  const int64_t* m, const int64_t* n, const int64_t* k, const tev_complex16* v,
                                  const int64_t* ldv, const tev_complex16* t, const int64_t* ldt, tev_complex16* c,
                                  const int64_t* ldc, tev_complex16* work, const int64_t* ldwork, int64_t side_length,
                                  int64_t trans_length, int64_t direct_length, int64_t storev_length);

/* ---- LU ------------------------------------------------------------------------------------------------------------
 */

/* A = P L U in place, A m x n: row i was exchanged with row ipiv[i], counted from 1, for i = 0, 1, ... Pivots are the
 * largest by |re| + |im|. info: 0; j: u(j, j) is zero, the factors are complete but U is singular; -i: argument i is
 * wrong. */
TEV_EXPORT void tev_lapack_sgetrf(const int64_t* m, const int64_t* n, float* a, const int64_t* lda, int64_t* ipiv,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_dgetrf(const int64_t* m, const int64_t* n, double* a, const int64_t* lda, int64_t* ipiv,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_cgetrf(const int64_t* m, const int64_t* n, tev_complex8* a, const int64_t* lda,
                                  int64_t* ipiv, int64_t* info);
TEV_EXPORT void tev_lapack_zgetrf(const int64_t* m, const int64_t* n, tev_complex16* a, const int64_t* lda,
                                  int64_t* ipiv, int64_t* info);

/* op(A) X = B from the factors of getrf; trans N, T, C: op(A) is A, A^T, A^H. X takes the place of B, n x nrhs. */
TEV_EXPORT void tev_lapack_sgetrs(const char* trans, const int64_t* n, const int64_t* nrhs, const float* a,
                                  const int64_t* lda, const int64_t* ipiv, float* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_dgetrs(const char* trans, const int64_t* n, const int64_t* nrhs, const double* a,
                                  const int64_t* lda, const int64_t* ipiv, double* b, const int64_t* ldb,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_cgetrs(const char* trans, const int64_t* n, const int64_t* nrhs, const tev_complex8* a,
                                  const int64_t* lda, const int64_t* ipiv, tev_complex8* b, const int64_t* ldb,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_zgetrs(const char* trans, const int64_t* n, const int64_t* nrhs, const tev_complex16* a,
                                  const int64_t* lda, const int64_t* ipiv, tev_complex16* b, const int64_t* ldb,
                                  int64_t* info);

/* A X = B: getrf, and when info is 0, getrs. */
TEV_EXPORT void tev_lapack_sgesv(const int64_t* n, const int64_t* nrhs, float* a, const int64_t* lda, int64_t* ipiv,
                                 float* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_dgesv(const int64_t* n, const int64_t* nrhs, double* a, const int64_t* lda, int64_t* ipiv,
                                 double* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_cgesv(const int64_t* n, const int64_t* nrhs, tev_complex8* a, const int64_t* lda,
                                 int64_t* ipiv, tev_complex8* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_zgesv(const int64_t* n, const int64_t* nrhs, tev_complex16* a, const int64_t* lda,
                                 int64_t* ipiv, tev_complex16* b, const int64_t* ldb, int64_t* info);

/* A^-1 in the place of the factors. work: lwork elements, at least n; 64 n serve best. lwork = -1 only asks: work[0]
 * is the best lwork. info j: u(j, j) is zero, nothing was inverted. */
TEV_EXPORT void tev_lapack_sgetri(const int64_t* n, float* a, const int64_t* lda, const int64_t* ipiv, float* work,
                                  const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_dgetri(const int64_t* n, double* a, const int64_t* lda, const int64_t* ipiv, double* work,
                                  const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_cgetri(const int64_t* n, tev_complex8* a, const int64_t* lda, const int64_t* ipiv,
                                  tev_complex8* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgetri(const int64_t* n, tev_complex16* a, const int64_t* lda, const int64_t* ipiv,
                                  tev_complex16* work, const int64_t* lwork, int64_t* info);

/* rcond: an estimate of 1 / (|A| |A^-1|) in the 1-norm (norm 1 or O) or the infinity norm (I), from the factors and
 * anorm, the norm of A; 0 when A^-1 is beyond all numbers, NaN when the factors or anorm have one. work: 4 n elements
 * (real), 2 n (complex); iwork n, rwork 2 n. */
TEV_EXPORT void tev_lapack_sgecon(const char* norm, const int64_t* n, const float* a, const int64_t* lda,
                                  const float* anorm, float* rcond, float* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_dgecon(const char* norm, const int64_t* n, const double* a, const int64_t* lda,
                                  const double* anorm, double* rcond, double* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_cgecon(const char* norm, const int64_t* n, const tev_complex8* a, const int64_t* lda,
                                  const float* anorm, float* rcond, tev_complex8* work, float* rwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgecon(const char* norm, const int64_t* n, const tev_complex16* a, const int64_t* lda,
                                  const double* anorm, double* rcond, tev_complex16* work, double* rwork,
                                  int64_t* info);

/* Refines solutions X of op(A) X = B, A the matrix and af, ipiv its factors, in up to five steps. Per column, ferr
 * bounds the largest error relative to the largest element, berr is the least relative change of any element of A or B
 * that makes X exact. work: 3 n elements (real), 2 n (complex); iwork n, rwork n. */
TEV_EXPORT void tev_lapack_sgerfs(const char* trans, const int64_t* n, const int64_t* nrhs, const float* a,
                                  const int64_t* lda, const float* af, const int64_t* ldaf, const int64_t* ipiv,
                                  const float* b, const int64_t* ldb, float* x, const int64_t* ldx, float* ferr,
                                  float* berr, float* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_dgerfs(const char* trans, const int64_t* n, const int64_t* nrhs, const double* a,
                                  const int64_t* lda, const double* af, const int64_t* ldaf, const int64_t* ipiv,
                                  const double* b, const int64_t* ldb, double* x, const int64_t* ldx, double* ferr,
                                  double* berr, double* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_cgerfs(const char* trans, const int64_t* n, const int64_t* nrhs, const tev_complex8* a,
                                  const int64_t* lda, const tev_complex8* af, const int64_t* ldaf, const int64_t* ipiv,
                                  const tev_complex8* b, const int64_t* ldb, tev_complex8* x, const int64_t* ldx,
                                  float* ferr, float* berr, tev_complex8* work, float* rwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgerfs(const char* trans, const int64_t* n, const int64_t* nrhs, const tev_complex16* a,
                                  const int64_t* lda, const tev_complex16* af, const int64_t* ldaf, const int64_t* ipiv,
                                  const tev_complex16* b, const int64_t* ldb, tev_complex16* x, const int64_t* ldx,
                                  double* ferr, double* berr, tev_complex16* work, double* rwork, int64_t* info);

/* The determinant from the factors of getrf, which may be any power of two beyond the numbers of the type: mantissa
 * times 2^exponent, the larger part of the mantissa from 1/2 to below 1, or both zero. Nothing is checked. */
TEV_EXPORT void tev_lapack_sgetdet(const int64_t* n, const float* a, const int64_t* lda, const int64_t* ipiv,
                                   float* mantissa, int64_t* exponent);
TEV_EXPORT void tev_lapack_dgetdet(const int64_t* n, const double* a, const int64_t* lda, const int64_t* ipiv,
                                   double* mantissa, int64_t* exponent);
TEV_EXPORT void tev_lapack_cgetdet(const int64_t* n, const tev_complex8* a, const int64_t* lda, const int64_t* ipiv,
                                   tev_complex8* mantissa, int64_t* exponent);
TEV_EXPORT void tev_lapack_zgetdet(const int64_t* n, const tev_complex16* a, const int64_t* lda, const int64_t* ipiv,
                                   tev_complex16* mantissa, int64_t* exponent);

/* ---- Cholesky ------------------------------------------------------------------------------------------------------
 */

/* A = L L^H (uplo L) or U^H U (U) in place; the other triangle is neither read nor written. info: 0; j: the leading
 * minor of order j is not positive definite; -i: argument i is wrong. */
TEV_EXPORT void tev_lapack_spotrf(const char* uplo, const int64_t* n, float* a, const int64_t* lda, int64_t* info);
TEV_EXPORT void tev_lapack_dpotrf(const char* uplo, const int64_t* n, double* a, const int64_t* lda, int64_t* info);
TEV_EXPORT void tev_lapack_cpotrf(const char* uplo, const int64_t* n, tev_complex8* a, const int64_t* lda,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_zpotrf(const char* uplo, const int64_t* n, tev_complex16* a, const int64_t* lda,
                                  int64_t* info);

/* A X = B from the factor of potrf. X takes the place of B, n x nrhs. */
TEV_EXPORT void tev_lapack_spotrs(const char* uplo, const int64_t* n, const int64_t* nrhs, const float* a,
                                  const int64_t* lda, float* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_dpotrs(const char* uplo, const int64_t* n, const int64_t* nrhs, const double* a,
                                  const int64_t* lda, double* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_cpotrs(const char* uplo, const int64_t* n, const int64_t* nrhs, const tev_complex8* a,
                                  const int64_t* lda, tev_complex8* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_zpotrs(const char* uplo, const int64_t* n, const int64_t* nrhs, const tev_complex16* a,
                                  const int64_t* lda, tev_complex16* b, const int64_t* ldb, int64_t* info);

/* A X = B: potrf, and when info is 0, potrs. */
TEV_EXPORT void tev_lapack_sposv(const char* uplo, const int64_t* n, const int64_t* nrhs, float* a, const int64_t* lda,
                                 float* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_dposv(const char* uplo, const int64_t* n, const int64_t* nrhs, double* a, const int64_t* lda,
                                 double* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_cposv(const char* uplo, const int64_t* n, const int64_t* nrhs, tev_complex8* a,
                                 const int64_t* lda, tev_complex8* b, const int64_t* ldb, int64_t* info);
TEV_EXPORT void tev_lapack_zposv(const char* uplo, const int64_t* n, const int64_t* nrhs, tev_complex16* a,
                                 const int64_t* lda, tev_complex16* b, const int64_t* ldb, int64_t* info);

/* The triangle uplo of A^-1 in the place of the factor. info j: element (j, j) of the factor is zero. */
TEV_EXPORT void tev_lapack_spotri(const char* uplo, const int64_t* n, float* a, const int64_t* lda, int64_t* info);
TEV_EXPORT void tev_lapack_dpotri(const char* uplo, const int64_t* n, double* a, const int64_t* lda, int64_t* info);
TEV_EXPORT void tev_lapack_cpotri(const char* uplo, const int64_t* n, tev_complex8* a, const int64_t* lda,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_zpotri(const char* uplo, const int64_t* n, tev_complex16* a, const int64_t* lda,
                                  int64_t* info);

/* rcond from the factor, as gecon in the 1-norm. work: 3 n elements (real), 2 n (complex); iwork n, rwork n. */
TEV_EXPORT void tev_lapack_spocon(const char* uplo, const int64_t* n, const float* a, const int64_t* lda,
                                  const float* anorm, float* rcond, float* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_dpocon(const char* uplo, const int64_t* n, const double* a, const int64_t* lda,
                                  const double* anorm, double* rcond, double* work, int64_t* iwork, int64_t* info);
TEV_EXPORT void tev_lapack_cpocon(const char* uplo, const int64_t* n, const tev_complex8* a, const int64_t* lda,
                                  const float* anorm, float* rcond, tev_complex8* work, float* rwork, int64_t* info);
TEV_EXPORT void tev_lapack_zpocon(const char* uplo, const int64_t* n, const tev_complex16* a, const int64_t* lda,
                                  const double* anorm, double* rcond, tev_complex16* work, double* rwork,
                                  int64_t* info);

/* ---- QR ------------------------------------------------------------------------------------------------------------
 *
 * lwork is the length of work, at least what a call with lwork = -1, which does nothing else, stores in its first
 * element. info: 0; -i: argument i is wrong; -1089: there was no memory, what is stored has no meaning. */

/* A = Q R in place, A m x n: R in the upper triangle or trapezoid, below it the min(m, n) reflectors whose product Q
 * is, without their ones; tau has their factors. */
TEV_EXPORT void tev_lapack_sgeqrf(const int64_t* m, const int64_t* n, float* a, const int64_t* lda, float* tau,
                                  float* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_dgeqrf(const int64_t* m, const int64_t* n, double* a, const int64_t* lda, double* tau,
                                  double* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_cgeqrf(const int64_t* m, const int64_t* n, tev_complex8* a, const int64_t* lda,
                                  tev_complex8* tau, tev_complex8* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgeqrf(const int64_t* m, const int64_t* n, tev_complex16* a, const int64_t* lda,
                                  tev_complex16* tau, tev_complex16* work, const int64_t* lwork, int64_t* info);

/* The first n columns of the Q of k reflectors, in their place; A is m x n, m >= n >= k. */
TEV_EXPORT void tev_lapack_sorgqr(const int64_t* m, const int64_t* n, const int64_t* k, float* a, const int64_t* lda,
                                  const float* tau, float* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_dorgqr(const int64_t* m, const int64_t* n, const int64_t* k, double* a, const int64_t* lda,
                                  const double* tau, double* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_cungqr(const int64_t* m, const int64_t* n, const int64_t* k, tev_complex8* a,
                                  const int64_t* lda, const tev_complex8* tau, tev_complex8* work, const int64_t* lwork,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_zungqr(const int64_t* m, const int64_t* n, const int64_t* k, tev_complex16* a,
                                  const int64_t* lda, const tev_complex16* tau, tev_complex16* work,
                                  const int64_t* lwork, int64_t* info);

/* C := Q C (side L), C Q (R), with trans N, or the same with Q^H: trans T in the real precisions, C in the complex
 * ones. C is m x n, a has the k reflectors. */
TEV_EXPORT void tev_lapack_sormqr(const char* side, const char* trans, const int64_t* m, const int64_t* n,
                                  const int64_t* k, const float* a, const int64_t* lda, const float* tau, float* c,
                                  const int64_t* ldc, float* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_dormqr(const char* side, const char* trans, const int64_t* m, const int64_t* n,
                                  const int64_t* k, const double* a, const int64_t* lda, const double* tau, double* c,
                                  const int64_t* ldc, double* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_cunmqr(const char* side, const char* trans, const int64_t* m, const int64_t* n,
                                  const int64_t* k, const tev_complex8* a, const int64_t* lda, const tev_complex8* tau,
                                  tev_complex8* c, const int64_t* ldc, tev_complex8* work, const int64_t* lwork,
                                  int64_t* info);
TEV_EXPORT void tev_lapack_zunmqr(const char* side, const char* trans, const int64_t* m, const int64_t* n,
                                  const int64_t* k, const tev_complex16* a, const int64_t* lda,
                                  const tev_complex16* tau, tev_complex16* c, const int64_t* ldc, tev_complex16* work,
                                  const int64_t* lwork, int64_t* info);

/* A P = Q R: a and tau as for geqrf, with pivoting. Columns whose jpvt is not zero come first; of the others each is
 * the longest without the directions of those before, so that the diagonal of R goes down. On return column j of A P is
 * column jpvt[j] of A, counted from 1. The rwork of the complex precisions (2 n elements) is not used. */
TEV_EXPORT void tev_lapack_sgeqp3(const int64_t* m, const int64_t* n, float* a, const int64_t* lda, int64_t* jpvt,
                                  float* tau, float* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_dgeqp3(const int64_t* m, const int64_t* n, double* a, const int64_t* lda, int64_t* jpvt,
                                  double* tau, double* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_cgeqp3(const int64_t* m, const int64_t* n, tev_complex8* a, const int64_t* lda,
                                  int64_t* jpvt, tev_complex8* tau, tev_complex8* work, const int64_t* lwork,
                                  float* rwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgeqp3(const int64_t* m, const int64_t* n, tev_complex16* a, const int64_t* lda,
                                  int64_t* jpvt, tev_complex16* tau, tev_complex16* work, const int64_t* lwork,
                                  double* rwork, int64_t* info);

/* min |op(A) x - b| where op(A) has more rows than columns, else the smallest x with op(A) x = b, for each of the nrhs
 * columns b of B; A is m x n with full rank, op(A) is A (trans N) or A^H (T in the real precisions, C in the complex
 * ones). B has max(m, n) rows: b in the first ones before, x after; where there are more equations than unknowns the
 * rows below x have the sum of squares that is left. A is overwritten by its QR factorization, or LQ where it is wide.
 * info: 0; j: the element j of the triangle's diagonal is zero, there is no solution of full rank; -i and -1089 as
 * above. */
TEV_EXPORT void tev_lapack_sgels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs, float* a,
                                 const int64_t* lda, float* b, const int64_t* ldb, float* work, const int64_t* lwork,
                                 int64_t* info);
TEV_EXPORT void tev_lapack_dgels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs, double* a,
                                 const int64_t* lda, double* b, const int64_t* ldb, double* work, const int64_t* lwork,
                                 int64_t* info);
TEV_EXPORT void tev_lapack_cgels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs,
                                 tev_complex8* a, const int64_t* lda, tev_complex8* b, const int64_t* ldb,
                                 tev_complex8* work, const int64_t* lwork, int64_t* info);
TEV_EXPORT void tev_lapack_zgels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs,
                                 tev_complex16* a, const int64_t* lda, tev_complex16* b, const int64_t* ldb,
                                 tev_complex16* work, const int64_t* lwork, int64_t* info);

/* ---- Rotations -----------------------------------------------------------------------------------------------------
 */

/* A := P A (side L) or A P^T (R) in place, A m x n. P is the product of plane rotations i = 0, 1, ... (direct F: the
 * first one works first; B: the last) of lines i and i + 1 (pivot V), 0 and i + 1 (T) or i and the last (B), lines
 * being the rows of A or its columns: (x, y) := (c[i] x + s[i] y, c[i] y - s[i] x). c and s: one element fewer than
 * there are lines. A rotation with c = 1 and s = 0 touches nothing. */
TEV_EXPORT void tev_lapack_slasr(const char* side, const char* pivot, const char* direct, const int64_t* m,
                                 const int64_t* n, const float* c, const float* s, float* a, const int64_t* lda);
TEV_EXPORT void tev_lapack_dlasr(const char* side, const char* pivot, const char* direct, const int64_t* m,
                                 const int64_t* n, const double* c, const double* s, double* a, const int64_t* lda);
TEV_EXPORT void tev_lapack_clasr(const char* side, const char* pivot, const char* direct, const int64_t* m,
                                 const int64_t* n, const float* c, const float* s, tev_complex8* a, const int64_t* lda);
TEV_EXPORT void tev_lapack_zlasr(const char* side, const char* pivot, const char* direct, const int64_t* m,
                                 const int64_t* n, const double* c, const double* s, tev_complex16* a,
                                 const int64_t* lda);

#ifdef __cplusplus
}
#endif

#endif
