/* SPDX-License-Identifier: BSD-3-Clause */
/* The BLAS routines of the library, in the calling style of the reference BLAS: every argument by address, options as
 * single letters in either case, column-major matrices, sizes and leading dimensions 64-bit. The meaning of every
 * routine and option is that of the reference BLAS routine of the same name. The caller owns all arrays; operands
 * may not overlap the result. C11 and C++20.
 *
 * Work is spread over the OpenMP team; a call from inside a parallel region runs on the calling thread.
 *
 * Errors: ?symm, ?trmm and ?trsm report the first wrong argument through `tev_serv_xerbla` (routine name in capitals,
 * 1-based argument number) and return without touching the result. ?gemm checks nothing: m < 1 or n < 1 is an empty
 * product, k < 1 an empty sum; a transposition letter other than N, T, C counts as N. */
#ifndef TEV_BLAS_H
#define TEV_BLAS_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

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
