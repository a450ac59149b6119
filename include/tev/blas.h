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
 * Errors: the level-3 routines but ?gemm report the first wrong argument through `tev_serv_xerbla` (routine name in
 * capitals, 1-based argument number) and return without touching the result. ?gemm checks nothing: m < 1 or n < 1 is an
 * empty product, k < 1 an empty sum; a transposition letter other than N, T, C counts as T. */
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

#ifdef __cplusplus
}
#endif

#endif
