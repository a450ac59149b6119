/* SPDX-License-Identifier: BSD-3-Clause */
/* The BLAS routines of the library, in the calling style of the reference BLAS: every argument by address, options as
 * single letters in either case, column-major matrices, sizes and leading dimensions 64-bit. The meaning of every
 * routine and option is that of the reference BLAS routine of the same name. The caller owns all arrays; operands
 * may not overlap the result. C11 and C++20.
 *
 * Work is spread over the OpenMP team; a call from inside a parallel region runs on the calling thread. On the
 * same number of threads the same call gives the same bits. That number goes down while other work holds the
 * processors, but not in a reproducible run, nor where TEV_DYNAMIC forbids it.
 *
 * Errors: the level-3 routines but ?gemm, and of level 2 all but ?gemv and ?ger, report the first wrong argument
 * through `tev_serv_xerbla` (routine name in capitals, 1-based argument number) and return without touching the result.
 * ?gemm checks nothing: m < 1 or n < 1 is an empty product, k < 1 an empty sum; a transposition letter other than N, T,
 * C counts as T. */
#ifndef TEV_BLAS_H
#define TEV_BLAS_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Vectors of n elements, which are inc elements apart; with a negative increment they are counted from the far end of
 * the array, whose address is given either way. Arrays may not overlap. Nothing is checked or reported; n < 1 does
 * nothing. An increment of zero means one element, taken n times. */

/* x := alpha x. A negative increment means the same elements as the positive one. */
TEV_EXPORT void tev_blas_sscal(const int64_t* n, const float* alpha, float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dscal(const int64_t* n, const double* alpha, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_cscal(const int64_t* n, const tev_complex8* alpha, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_zscal(const int64_t* n, const tev_complex16* alpha, tev_complex16* x, const int64_t* incx);

/* y := x. */
TEV_EXPORT void tev_blas_scopy(const int64_t* n, const float* x, const int64_t* incx, float* y, const int64_t* incy);
TEV_EXPORT void tev_blas_dcopy(const int64_t* n, const double* x, const int64_t* incx, double* y, const int64_t* incy);
TEV_EXPORT void tev_blas_ccopy(const int64_t* n, const tev_complex8* x, const int64_t* incx, tev_complex8* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_zcopy(const int64_t* n, const tev_complex16* x, const int64_t* incx, tev_complex16* y,
                               const int64_t* incy);

/* y := alpha x + y; alpha = 0 reads neither. */
TEV_EXPORT void tev_blas_saxpy(const int64_t* n, const float* alpha, const float* x, const int64_t* incx, float* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_daxpy(const int64_t* n, const double* alpha, const double* x, const int64_t* incx, double* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_caxpy(const int64_t* n, const tev_complex8* alpha, const tev_complex8* x, const int64_t* incx,
                               tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zaxpy(const int64_t* n, const tev_complex16* alpha, const tev_complex16* x,
                               const int64_t* incx, tev_complex16* y, const int64_t* incy);

/* x <-> y. */
TEV_EXPORT void tev_blas_sswap(const int64_t* n, float* x, const int64_t* incx, float* y, const int64_t* incy);
TEV_EXPORT void tev_blas_dswap(const int64_t* n, double* x, const int64_t* incx, double* y, const int64_t* incy);
TEV_EXPORT void tev_blas_cswap(const int64_t* n, tev_complex8* x, const int64_t* incx, tev_complex8* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_zswap(const int64_t* n, tev_complex16* x, const int64_t* incx, tev_complex16* y,
                               const int64_t* incy);

/* x := alpha x with a real alpha; an increment below 1 does nothing here. */
TEV_EXPORT void tev_blas_csscal(const int64_t* n, const float* alpha, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_zdscal(const int64_t* n, const double* alpha, tev_complex16* x, const int64_t* incx);

/* x^T y; of the complex ones dotu is x^T y and dotc x^H y. dsdot and sdsdot add up in double; sdsdot adds b. */
TEV_EXPORT float tev_blas_sdot(const int64_t* n, const float* x, const int64_t* incx, const float* y,
                               const int64_t* incy);
TEV_EXPORT double tev_blas_ddot(const int64_t* n, const double* x, const int64_t* incx, const double* y,
                                const int64_t* incy);
TEV_EXPORT void tev_blas_cdotu(tev_complex8* result, const int64_t* n, const tev_complex8* x, const int64_t* incx,
                               const tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zdotu(tev_complex16* result, const int64_t* n, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* y, const int64_t* incy);
TEV_EXPORT void tev_blas_cdotc(tev_complex8* result, const int64_t* n, const tev_complex8* x, const int64_t* incx,
                               const tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zdotc(tev_complex16* result, const int64_t* n, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* y, const int64_t* incy);
TEV_EXPORT double tev_blas_dsdot(const int64_t* n, const float* x, const int64_t* incx, const float* y,
                                 const int64_t* incy);
TEV_EXPORT float tev_blas_sdsdot(const int64_t* n, const float* b, const float* x, const int64_t* incx, const float* y,
                                 const int64_t* incy);

/* The Euclidean norm of x. Neither squares that overflow nor squares that underflow harm it. */
TEV_EXPORT float tev_blas_snrm2(const int64_t* n, const float* x, const int64_t* incx);
TEV_EXPORT double tev_blas_dnrm2(const int64_t* n, const double* x, const int64_t* incx);
TEV_EXPORT float tev_blas_scnrm2(const int64_t* n, const tev_complex8* x, const int64_t* incx);
TEV_EXPORT double tev_blas_dznrm2(const int64_t* n, const tev_complex16* x, const int64_t* incx);

/* The sum of |x_i|; of complex numbers, of |re| + |im|. An increment below 1 gives 0. */
TEV_EXPORT float tev_blas_sasum(const int64_t* n, const float* x, const int64_t* incx);
TEV_EXPORT double tev_blas_dasum(const int64_t* n, const double* x, const int64_t* incx);
TEV_EXPORT float tev_blas_scasum(const int64_t* n, const tev_complex8* x, const int64_t* incx);
TEV_EXPORT double tev_blas_dzasum(const int64_t* n, const tev_complex16* x, const int64_t* incx);

/* The number, from 1, of the first element of largest modulus (|re| + |im|). A NaN counts in front, where it is the
 * result, and nowhere else. 0 where n or the increment is below 1. */
TEV_EXPORT int64_t tev_blas_isamax(const int64_t* n, const float* x, const int64_t* incx);
TEV_EXPORT int64_t tev_blas_idamax(const int64_t* n, const double* x, const int64_t* incx);
TEV_EXPORT int64_t tev_blas_icamax(const int64_t* n, const tev_complex8* x, const int64_t* incx);
TEV_EXPORT int64_t tev_blas_izamax(const int64_t* n, const tev_complex16* x, const int64_t* incx);

/* |re| + |im|. */
TEV_EXPORT float tev_blas_scabs1(const tev_complex8* z);
TEV_EXPORT double tev_blas_dcabs1(const tev_complex16* z);

/* Rotates the points (x_i, y_i): x := c x + s y, y := c y - s x. */
TEV_EXPORT void tev_blas_srot(const int64_t* n, float* x, const int64_t* incx, float* y, const int64_t* incy,
                              const float* c, const float* s);
TEV_EXPORT void tev_blas_drot(const int64_t* n, double* x, const int64_t* incx, double* y, const int64_t* incy,
                              const double* c, const double* s);
TEV_EXPORT void tev_blas_csrot(const int64_t* n, tev_complex8* x, const int64_t* incx, tev_complex8* y,
                               const int64_t* incy, const float* c, const float* s);
TEV_EXPORT void tev_blas_zdrot(const int64_t* n, tev_complex16* x, const int64_t* incx, tev_complex16* y,
                               const int64_t* incy, const double* c, const double* s);

/* The rotation that turns (a, b) into (r, 0): c, s, and r in a. The real ones leave in b the number from which c and s
 * can be had again. */
TEV_EXPORT void tev_blas_srotg(float* a, float* b, float* c, float* s);
TEV_EXPORT void tev_blas_drotg(double* a, double* b, double* c, double* s);
TEV_EXPORT void tev_blas_crotg(tev_complex8* a, const tev_complex8* b, float* c, tev_complex8* s);
TEV_EXPORT void tev_blas_zrotg(tev_complex16* a, const tev_complex16* b, double* c, tev_complex16* s);

/* Modified rotations: (x_i, y_i) := H (x_i, y_i). param has five numbers: a flag, then h11, h21, h12, h22, of which the
 * flag -1 takes all, 0 those off the diagonal (on it are ones), 1 those on it (h12 = 1, h21 = -1) and -2 none: H = I.
 */
TEV_EXPORT void tev_blas_srotm(const int64_t* n, float* x, const int64_t* incx, float* y, const int64_t* incy,
                               const float* param);
TEV_EXPORT void tev_blas_drotm(const int64_t* n, double* x, const int64_t* incx, double* y, const int64_t* incy,
                               const double* param);

/* H that makes the second of (sqrt(d1) x1, sqrt(d2) y1) zero; d1, d2 and x1 become those after it. Only what the flag
 * takes of param is written. */
TEV_EXPORT void tev_blas_srotmg(float* d1, float* d2, float* x1, const float* y1, float* param);
TEV_EXPORT void tev_blas_drotmg(double* d1, double* d2, double* x1, const double* y1, double* param);

/* Matrices with vectors: increments as above, nothing is checked or reported, m < 1 or n < 1 does nothing.
 *
 * y := alpha op(A) x + beta y. A is m x n; for N, x has n elements and y m, otherwise (any letter but C means T) x has
 * m and y n. beta = 0 never reads y; alpha = 0 never reads A and x. */
TEV_EXPORT void tev_blas_sgemv(const char* trans, const int64_t* m, const int64_t* n, const float* alpha,
                               const float* a, const int64_t* lda, const float* x, const int64_t* incx,
                               const float* beta, float* y, const int64_t* incy);
TEV_EXPORT void tev_blas_dgemv(const char* trans, const int64_t* m, const int64_t* n, const double* alpha,
                               const double* a, const int64_t* lda, const double* x, const int64_t* incx,
                               const double* beta, double* y, const int64_t* incy);
TEV_EXPORT void tev_blas_cgemv(const char* trans, const int64_t* m, const int64_t* n, const tev_complex8* alpha,
                               const tev_complex8* a, const int64_t* lda, const tev_complex8* x, const int64_t* incx,
                               const tev_complex8* beta, tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zgemv(const char* trans, const int64_t* m, const int64_t* n, const tev_complex16* alpha,
                               const tev_complex16* a, const int64_t* lda, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* beta, tev_complex16* y, const int64_t* incy);

/* A := alpha x y^T + A (ger, geru) or alpha x y^H + A (gerc). A is m x n, x has m elements and y n. alpha = 0 reads
 * nothing. */
TEV_EXPORT void tev_blas_sger(const int64_t* m, const int64_t* n, const float* alpha, const float* x,
                              const int64_t* incx, const float* y, const int64_t* incy, float* a, const int64_t* lda);
TEV_EXPORT void tev_blas_dger(const int64_t* m, const int64_t* n, const double* alpha, const double* x,
                              const int64_t* incx, const double* y, const int64_t* incy, double* a, const int64_t* lda);
TEV_EXPORT void tev_blas_cgeru(const int64_t* m, const int64_t* n, const tev_complex8* alpha, const tev_complex8* x,
                               const int64_t* incx, const tev_complex8* y, const int64_t* incy, tev_complex8* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_zgeru(const int64_t* m, const int64_t* n, const tev_complex16* alpha, const tev_complex16* x,
                               const int64_t* incx, const tev_complex16* y, const int64_t* incy, tev_complex16* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_cgerc(const int64_t* m, const int64_t* n, const tev_complex8* alpha, const tev_complex8* x,
                               const int64_t* incx, const tev_complex8* y, const int64_t* incy, tev_complex8* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_zgerc(const int64_t* m, const int64_t* n, const tev_complex16* alpha, const tev_complex16* x,
                               const int64_t* incx, const tev_complex16* y, const int64_t* incy, tev_complex16* a,
                               const int64_t* lda);

/* C := alpha op(x) op(y)^T + beta C, a matrix product with k = 1. C is m x n, x has m elements and y n; C for transa
 * conjugates x, for transb y, every other letter leaves them. beta = 0 never reads C; alpha = 0 never reads x and y. */
TEV_EXPORT void tev_blas_sgemmger(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                                  const float* alpha, const float* x, const int64_t* incx, const float* y,
                                  const int64_t* incy, const float* beta, float* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_dgemmger(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                                  const double* alpha, const double* x, const int64_t* incx, const double* y,
                                  const int64_t* incy, const double* beta, double* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_cgemmger(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                                  const tev_complex8* alpha, const tev_complex8* x, const int64_t* incx,
                                  const tev_complex8* y, const int64_t* incy, const tev_complex8* beta, tev_complex8* c,
                                  const int64_t* ldc);
TEV_EXPORT void tev_blas_zgemmger(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                                  const tev_complex16* alpha, const tev_complex16* x, const int64_t* incx,
                                  const tev_complex16* y, const int64_t* incy, const tev_complex16* beta,
                                  tev_complex16* c, const int64_t* ldc);

/* The following check their arguments as the level-3 routines do.
 *
 * How a triangle uplo of a matrix of order n is stored: full, with a leading dimension; as a band of k diagonals beside
 * the main one, column j of which is column j of an array of k + 1 rows (the main diagonal is the last of them for U,
 * the first for L); or packed, column after column without gaps. Nothing else is read.
 *
 * y := alpha A x + beta y, A symmetric or Hermitian: full (symv, hemv), band (sbmv, hbmv), packed (spmv, hpmv). beta =
 * 0 never reads y; alpha = 0 never reads A and x. Imaginary parts of a Hermitian diagonal are not read. */
TEV_EXPORT void tev_blas_ssymv(const char* uplo, const int64_t* n, const float* alpha, const float* a,
                               const int64_t* lda, const float* x, const int64_t* incx, const float* beta, float* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_dsymv(const char* uplo, const int64_t* n, const double* alpha, const double* a,
                               const int64_t* lda, const double* x, const int64_t* incx, const double* beta, double* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_chemv(const char* uplo, const int64_t* n, const tev_complex8* alpha, const tev_complex8* a,
                               const int64_t* lda, const tev_complex8* x, const int64_t* incx, const tev_complex8* beta,
                               tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zhemv(const char* uplo, const int64_t* n, const tev_complex16* alpha, const tev_complex16* a,
                               const int64_t* lda, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* beta, tev_complex16* y, const int64_t* incy);
TEV_EXPORT void tev_blas_ssbmv(const char* uplo, const int64_t* n, const int64_t* k, const float* alpha, const float* a,
                               const int64_t* lda, const float* x, const int64_t* incx, const float* beta, float* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_dsbmv(const char* uplo, const int64_t* n, const int64_t* k, const double* alpha,
                               const double* a, const int64_t* lda, const double* x, const int64_t* incx,
                               const double* beta, double* y, const int64_t* incy);
TEV_EXPORT void tev_blas_chbmv(const char* uplo, const int64_t* n, const int64_t* k, const tev_complex8* alpha,
                               const tev_complex8* a, const int64_t* lda, const tev_complex8* x, const int64_t* incx,
                               const tev_complex8* beta, tev_complex8* y, const int64_t* incy);
TEV_EXPORT void tev_blas_zhbmv(const char* uplo, const int64_t* n, const int64_t* k, const tev_complex16* alpha,
                               const tev_complex16* a, const int64_t* lda, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* beta, tev_complex16* y, const int64_t* incy);
TEV_EXPORT void tev_blas_sspmv(const char* uplo, const int64_t* n, const float* alpha, const float* ap, const float* x,
                               const int64_t* incx, const float* beta, float* y, const int64_t* incy);
TEV_EXPORT void tev_blas_dspmv(const char* uplo, const int64_t* n, const double* alpha, const double* ap,
                               const double* x, const int64_t* incx, const double* beta, double* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_chpmv(const char* uplo, const int64_t* n, const tev_complex8* alpha, const tev_complex8* ap,
                               const tev_complex8* x, const int64_t* incx, const tev_complex8* beta, tev_complex8* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_zhpmv(const char* uplo, const int64_t* n, const tev_complex16* alpha, const tev_complex16* ap,
                               const tev_complex16* x, const int64_t* incx, const tev_complex16* beta, tev_complex16* y,
                               const int64_t* incy);

/* A := alpha x x^T + A (syr, spr) or alpha x x^H + A with a real alpha (her, hpr), A full or packed. The imaginary
 * parts of a Hermitian diagonal are not read and become zero; alpha = 0 does nothing. */
TEV_EXPORT void tev_blas_ssyr(const char* uplo, const int64_t* n, const float* alpha, const float* x,
                              const int64_t* incx, float* a, const int64_t* lda);
TEV_EXPORT void tev_blas_dsyr(const char* uplo, const int64_t* n, const double* alpha, const double* x,
                              const int64_t* incx, double* a, const int64_t* lda);
TEV_EXPORT void tev_blas_cher(const char* uplo, const int64_t* n, const float* alpha, const tev_complex8* x,
                              const int64_t* incx, tev_complex8* a, const int64_t* lda);
TEV_EXPORT void tev_blas_zher(const char* uplo, const int64_t* n, const double* alpha, const tev_complex16* x,
                              const int64_t* incx, tev_complex16* a, const int64_t* lda);
TEV_EXPORT void tev_blas_sspr(const char* uplo, const int64_t* n, const float* alpha, const float* x,
                              const int64_t* incx, float* ap);
TEV_EXPORT void tev_blas_dspr(const char* uplo, const int64_t* n, const double* alpha, const double* x,
                              const int64_t* incx, double* ap);
TEV_EXPORT void tev_blas_chpr(const char* uplo, const int64_t* n, const float* alpha, const tev_complex8* x,
                              const int64_t* incx, tev_complex8* ap);
TEV_EXPORT void tev_blas_zhpr(const char* uplo, const int64_t* n, const double* alpha, const tev_complex16* x,
                              const int64_t* incx, tev_complex16* ap);

/* A := alpha x y^T + alpha y x^T + A (syr2, spr2) or alpha x y^H + conj(alpha) y x^H + A (her2, hpr2). */
TEV_EXPORT void tev_blas_ssyr2(const char* uplo, const int64_t* n, const float* alpha, const float* x,
                               const int64_t* incx, const float* y, const int64_t* incy, float* a, const int64_t* lda);
TEV_EXPORT void tev_blas_dsyr2(const char* uplo, const int64_t* n, const double* alpha, const double* x,
                               const int64_t* incx, const double* y, const int64_t* incy, double* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_cher2(const char* uplo, const int64_t* n, const tev_complex8* alpha, const tev_complex8* x,
                               const int64_t* incx, const tev_complex8* y, const int64_t* incy, tev_complex8* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_zher2(const char* uplo, const int64_t* n, const tev_complex16* alpha, const tev_complex16* x,
                               const int64_t* incx, const tev_complex16* y, const int64_t* incy, tev_complex16* a,
                               const int64_t* lda);
TEV_EXPORT void tev_blas_sspr2(const char* uplo, const int64_t* n, const float* alpha, const float* x,
                               const int64_t* incx, const float* y, const int64_t* incy, float* ap);
TEV_EXPORT void tev_blas_dspr2(const char* uplo, const int64_t* n, const double* alpha, const double* x,
                               const int64_t* incx, const double* y, const int64_t* incy, double* ap);
TEV_EXPORT void tev_blas_chpr2(const char* uplo, const int64_t* n, const tev_complex8* alpha, const tev_complex8* x,
                               const int64_t* incx, const tev_complex8* y, const int64_t* incy, tev_complex8* ap);
TEV_EXPORT void tev_blas_zhpr2(const char* uplo, const int64_t* n, const tev_complex16* alpha, const tev_complex16* x,
                               const int64_t* incx, const tev_complex16* y, const int64_t* incy, tev_complex16* ap);

/* x := op(A) x, A triangular: full (trmv), band (tbmv), packed (tpmv). Its diagonal is taken as ones when diag is U. */
TEV_EXPORT void tev_blas_strmv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const float* a,
                               const int64_t* lda, float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtrmv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const double* a,
                               const int64_t* lda, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctrmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex8* a, const int64_t* lda, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ztrmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex16* a, const int64_t* lda, tev_complex16* x, const int64_t* incx);
TEV_EXPORT void tev_blas_stbmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const float* a, const int64_t* lda, float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtbmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const double* a, const int64_t* lda, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctbmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const tev_complex8* a, const int64_t* lda, tev_complex8* x,
                               const int64_t* incx);
TEV_EXPORT void tev_blas_ztbmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const tev_complex16* a, const int64_t* lda, tev_complex16* x,
                               const int64_t* incx);
TEV_EXPORT void tev_blas_stpmv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const float* ap,
                               float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtpmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const double* ap, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctpmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex8* ap, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ztpmv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex16* ap, tev_complex16* x, const int64_t* incx);

/* Solves op(A) x = b, A as above; x holds b before and the solution after. A singular A is not detected. */
TEV_EXPORT void tev_blas_strsv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const float* a,
                               const int64_t* lda, float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtrsv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const double* a,
                               const int64_t* lda, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctrsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex8* a, const int64_t* lda, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ztrsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex16* a, const int64_t* lda, tev_complex16* x, const int64_t* incx);
TEV_EXPORT void tev_blas_stbsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const float* a, const int64_t* lda, float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtbsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const double* a, const int64_t* lda, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctbsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const tev_complex8* a, const int64_t* lda, tev_complex8* x,
                               const int64_t* incx);
TEV_EXPORT void tev_blas_ztbsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const int64_t* k, const tev_complex16* a, const int64_t* lda, tev_complex16* x,
                               const int64_t* incx);
TEV_EXPORT void tev_blas_stpsv(const char* uplo, const char* trans, const char* diag, const int64_t* n, const float* ap,
                               float* x, const int64_t* incx);
TEV_EXPORT void tev_blas_dtpsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const double* ap, double* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ctpsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex8* ap, tev_complex8* x, const int64_t* incx);
TEV_EXPORT void tev_blas_ztpsv(const char* uplo, const char* trans, const char* diag, const int64_t* n,
                               const tev_complex16* ap, tev_complex16* x, const int64_t* incx);

/* y := alpha op(A) x + beta y, A an m x n band matrix of kl diagonals below the main one and ku above it: column j of A
 * is column j of an array of kl + ku + 1 rows, in which the main diagonal is row ku. */
TEV_EXPORT void tev_blas_sgbmv(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl,
                               const int64_t* ku, const float* alpha, const float* a, const int64_t* lda,
                               const float* x, const int64_t* incx, const float* beta, float* y, const int64_t* incy);
TEV_EXPORT void tev_blas_dgbmv(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl,
                               const int64_t* ku, const double* alpha, const double* a, const int64_t* lda,
                               const double* x, const int64_t* incx, const double* beta, double* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_cgbmv(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl,
                               const int64_t* ku, const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                               const tev_complex8* x, const int64_t* incx, const tev_complex8* beta, tev_complex8* y,
                               const int64_t* incy);
TEV_EXPORT void tev_blas_zgbmv(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl,
                               const int64_t* ku, const tev_complex16* alpha, const tev_complex16* a,
                               const int64_t* lda, const tev_complex16* x, const int64_t* incx,
                               const tev_complex16* beta, tev_complex16* y, const int64_t* incy);

/* C := alpha op(A) op(B) + beta C. op(A) is m x k, op(B) k x n, C m x n; op is X, X^T or X^H for N, T, C.
 * beta = 0 never reads C; alpha = 0 never reads A and B. */
TEV_EXPORT void tev_blas_sgemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                               const int64_t* k, const float* alpha, const float* a, const int64_t* lda, const float* b,
                               const int64_t* ldb, const float* beta, float* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_dgemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                               const int64_t* k, const double* alpha, const double* a, const int64_t* lda,
                               const double* b, const int64_t* ldb, const double* beta, double* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_cgemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                               const int64_t* k, const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                               const tev_complex8* b, const int64_t* ldb, const tev_complex8* beta, tev_complex8* c,
                               const int64_t* ldc);
TEV_EXPORT void tev_blas_zgemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                               const int64_t* k, const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                               const tev_complex16* b, const int64_t* ldb, const tev_complex16* beta, tev_complex16* c,
                               const int64_t* ldc);

/* C := alpha A B + beta C (side L) or alpha B A + beta C (side R); A symmetric (also in the complex precisions), of
 * which the triangle uplo is read; B and C are m x n. */
TEV_EXPORT void tev_blas_ssymm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const float* alpha, const float* a, const int64_t* lda, const float* b,
                               const int64_t* ldb, const float* beta, float* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_dsymm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const double* alpha, const double* a, const int64_t* lda, const double* b,
                               const int64_t* ldb, const double* beta, double* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_csymm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                               const tev_complex8* b, const int64_t* ldb, const tev_complex8* beta, tev_complex8* c,
                               const int64_t* ldc);
TEV_EXPORT void tev_blas_zsymm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                               const tev_complex16* b, const int64_t* ldb, const tev_complex16* beta, tev_complex16* c,
                               const int64_t* ldc);

/* The same with a Hermitian A; the imaginary parts of its diagonal are not read. */
TEV_EXPORT void tev_blas_chemm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                               const tev_complex8* b, const int64_t* ldb, const tev_complex8* beta, tev_complex8* c,
                               const int64_t* ldc);
TEV_EXPORT void tev_blas_zhemm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,
                               const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                               const tev_complex16* b, const int64_t* ldb, const tev_complex16* beta, tev_complex16* c,
                               const int64_t* ldc);

/* C := alpha A A^T + beta C for trans N, alpha A^T A + beta C for T (C: the same, real precisions only). C is
 * symmetric, n x n; the triangle uplo of it is read and written. op(A) is n x k. beta = 0 never reads C; alpha = 0
 * never reads A. */
TEV_EXPORT void tev_blas_ssyrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const float* alpha, const float* a, const int64_t* lda, const float* beta, float* c,
                               const int64_t* ldc);
TEV_EXPORT void tev_blas_dsyrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const double* alpha, const double* a, const int64_t* lda, const double* beta, double* c,
                               const int64_t* ldc);
TEV_EXPORT void tev_blas_csyrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                               const tev_complex8* beta, tev_complex8* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_zsyrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                               const tev_complex16* beta, tev_complex16* c, const int64_t* ldc);

/* C := alpha A A^H + beta C for trans N, alpha A^H A + beta C for C. C is Hermitian, alpha and beta are real. The
 * imaginary parts of the diagonal of C are not read; they become zero. */
TEV_EXPORT void tev_blas_cherk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const float* alpha, const tev_complex8* a, const int64_t* lda, const float* beta,
                               tev_complex8* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_zherk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                               const double* alpha, const tev_complex16* a, const int64_t* lda, const double* beta,
                               tev_complex16* c, const int64_t* ldc);

/* C := alpha A B^T + alpha B A^T + beta C for trans N, alpha A^T B + alpha B^T A + beta C for T; otherwise as syrk. */
TEV_EXPORT void tev_blas_ssyr2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const float* alpha, const float* a, const int64_t* lda, const float* b,
                                const int64_t* ldb, const float* beta, float* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_dsyr2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const double* alpha, const double* a, const int64_t* lda, const double* b,
                                const int64_t* ldb, const double* beta, double* c, const int64_t* ldc);
TEV_EXPORT void tev_blas_csyr2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                                const tev_complex8* b, const int64_t* ldb, const tev_complex8* beta, tev_complex8* c,
                                const int64_t* ldc);
TEV_EXPORT void tev_blas_zsyr2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                                const tev_complex16* b, const int64_t* ldb, const tev_complex16* beta, tev_complex16* c,
                                const int64_t* ldc);

/* C := alpha A B^H + conj(alpha) B A^H + beta C for trans N, alpha A^H B + conj(alpha) B^H A + beta C for C; otherwise
 * as herk, but for alpha, which is complex. */
TEV_EXPORT void tev_blas_cher2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                                const tev_complex8* b, const int64_t* ldb, const float* beta, tev_complex8* c,
                                const int64_t* ldc);
TEV_EXPORT void tev_blas_zher2k(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,
                                const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                                const tev_complex16* b, const int64_t* ldb, const double* beta, tev_complex16* c,
                                const int64_t* ldc);

/* B := alpha op(A) B (side L) or alpha B op(A) (side R); A triangular, its diagonal taken as ones when diag is U;
 * B is m x n. alpha = 0 stores zeros and reads neither. */
TEV_EXPORT void tev_blas_strmm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const float* alpha, const float* a,
                               const int64_t* lda, float* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_dtrmm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const double* alpha, const double* a,
                               const int64_t* lda, double* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_ctrmm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const tev_complex8* alpha, const tev_complex8* a,
                               const int64_t* lda, tev_complex8* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_ztrmm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const tev_complex16* alpha, const tev_complex16* a,
                               const int64_t* lda, tev_complex16* b, const int64_t* ldb);

/* Solves op(A) X = alpha B (side L) or X op(A) = alpha B (side R) and overwrites B (m x n) with X. A as for trmm; a
 * singular A is not detected. */
TEV_EXPORT void tev_blas_strsm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const float* alpha, const float* a,
                               const int64_t* lda, float* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const double* alpha, const double* a,
                               const int64_t* lda, double* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_ctrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const tev_complex8* alpha, const tev_complex8* a,
                               const int64_t* lda, tev_complex8* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_ztrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                               const int64_t* m, const int64_t* n, const tev_complex16* alpha, const tev_complex16* a,
                               const int64_t* lda, tev_complex16* b, const int64_t* ldb);

/* B := alpha op(A) (omatcopy), the same in place (imatcopy). order C: matrices by columns, R: by rows. A has `rows`
 * rows and `columns` columns; op(A) is A (trans N), A^T (T), A^H (C) or A conjugated (R). In place the result begins
 * where A did, with leading dimension ldb; what neither has keeps its bits. alpha = 0 never reads A of omatcopy. An
 * imatcopy that changes the shape needs memory for a copy: without it code 1089 is reported and A stays as it was. */
TEV_EXPORT void tev_blas_somatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const float* alpha, const float* a, const int64_t* lda, float* b,
                                   const int64_t* ldb);
TEV_EXPORT void tev_blas_domatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const double* alpha, const double* a, const int64_t* lda, double* b,
                                   const int64_t* ldb);
TEV_EXPORT void tev_blas_comatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const tev_complex8* alpha, const tev_complex8* a, const int64_t* lda,
                                   tev_complex8* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_zomatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const tev_complex16* alpha, const tev_complex16* a, const int64_t* lda,
                                   tev_complex16* b, const int64_t* ldb);
TEV_EXPORT void tev_blas_simatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const float* alpha, float* a, const int64_t* lda, const int64_t* ldb);
TEV_EXPORT void tev_blas_dimatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const double* alpha, double* a, const int64_t* lda, const int64_t* ldb);
TEV_EXPORT void tev_blas_cimatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const tev_complex8* alpha, tev_complex8* a, const int64_t* lda, const int64_t* ldb);
TEV_EXPORT void tev_blas_zimatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns,
                                   const tev_complex16* alpha, tev_complex16* a, const int64_t* lda,
                                   const int64_t* ldb);

#ifdef __cplusplus
}
#endif

#endif
