/* SPDX-License-Identifier: BSD-3-Clause */
/* What libtevblas has beside the standard names of BLAS and CBLAS, for which any cblas.h will do: its settings, and the
 * extensions. C11 and C++20. */
#ifndef TEV_TEVBLAS_H
#define TEV_TEVBLAS_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Threads of a call, for all callers; 0 hands the decision back to the environment (docs/using.md). */
TEV_EXPORT void tevblas_set_num_threads(int n);

/* Threads that a large call would have if this thread made it now: at least 1. */
TEV_EXPORT int tevblas_get_num_threads(void);

/* Whose instructions the kernels use: "avx512", for one. */
TEV_EXPORT const char* tevblas_get_tier(void);

TEV_EXPORT const char* tevblas_get_version(void);

/* Memory for matrices that are often read by calls which go to a sink: it sees them, too, and they are not copied. 64
 * bytes aligned, zeroed; NULL when there is none left. Where nothing is offloaded it is ordinary memory, else it starts
 * the sink. Both functions wait while the sink computes. A forked child shares the memory with its parent, may not
 * write what the parent reads, and does not release it. */
TEV_EXPORT void* tevblas_malloc(size_t bytes);
TEV_EXPORT void tevblas_free(void* memory); /* NULL is allowed */

/* ---- Extensions ----------------------------------------------------------------------------------------------------
 * Declared where TEVBLAS_DECLARE_EXTENSIONS is defined: the cblas.h of others may have some of them, with types of its
 * own.
 *
 * Orders and letters are the numbers of cblas.h: order 101 by rows, 102 by columns; trans 111 N, 112 T, 113 C
 * (conjugated and transposed), for the copies also 114 (conjugated); uplo 121 upper, 122 lower. Scalars come by value
 * in the real precisions, by address in the complex ones. All but the batches are Fortran routines, too, with all
 * arguments by address and letters for the numbers; only the copies have the order there, C by columns, R by rows.
 *
 * axpby: y := alpha x + beta y; beta = 0 never reads y.
 *
 * gemmtr, gemmt: one triangle of the n x n matrix C := alpha op(A) op(B) + beta C. gemm3m: gemm, complex precisions
 * only.
 *
 * gemm_batch: group g has group_size[g] products of the sizes, letters and scalars number g. a, b and c have an address
 * for each product, group after group. gemm_batch_strided: `count` products alike, whose matrices begin stride_a,
 * stride_b and stride_c elements apart. Wrong arguments are reported for each product by itself.
 *
 * omatcopy: B := alpha op(A), A has `rows` rows and `columns` columns; alpha = 0 never reads A. imatcopy: the same in
 * place; the result begins where A did and has the leading dimension ldb. */
#if defined(TEVBLAS_DECLARE_EXTENSIONS)
#if !defined(TEVBLAS_INT)
#define TEVBLAS_INT int /* int64_t for libtevblas64 */
#endif
#define TEVBLAS_EXTENSIONS(p, T, scalar)                                                                               \
  void cblas_##p##axpby(TEVBLAS_INT n, scalar alpha, const T* x, TEVBLAS_INT incx, scalar beta, T* y,                  \
                        TEVBLAS_INT incy);                                                                             \
  void cblas_##p##gemmtr(int order, int uplo, int transa, int transb, TEVBLAS_INT n, TEVBLAS_INT k, scalar alpha,      \
                         const T* a, TEVBLAS_INT lda, const T* b, TEVBLAS_INT ldb, scalar beta, T* c,                  \
                         TEVBLAS_INT ldc);                                                                             \
  void cblas_##p##gemmt(int order, int uplo, int transa, int transb, TEVBLAS_INT n, TEVBLAS_INT k, scalar alpha,       \
                        const T* a, TEVBLAS_INT lda, const T* b, TEVBLAS_INT ldb, scalar beta, T* c, TEVBLAS_INT ldc); \
  void cblas_##p##gemm_batch(int order, const int* transa, const int* transb, const TEVBLAS_INT* m,                    \
                             const TEVBLAS_INT* n, const TEVBLAS_INT* k, const T* alpha, const T** a,                  \
                             const TEVBLAS_INT* lda, const T** b, const TEVBLAS_INT* ldb, const T* beta, T** c,        \
                             const TEVBLAS_INT* ldc, TEVBLAS_INT groups, const TEVBLAS_INT* group_size);               \
  void cblas_##p##gemm_batch_strided(int order, int transa, int transb, TEVBLAS_INT m, TEVBLAS_INT n, TEVBLAS_INT k,   \
                                     scalar alpha, const T* a, TEVBLAS_INT lda, TEVBLAS_INT stride_a, const T* b,      \
                                     TEVBLAS_INT ldb, TEVBLAS_INT stride_b, scalar beta, T* c, TEVBLAS_INT ldc,        \
                                     TEVBLAS_INT stride_c, TEVBLAS_INT count);                                         \
  void cblas_##p##omatcopy(int order, int trans, TEVBLAS_INT rows, TEVBLAS_INT columns, scalar alpha, const T* a,      \
                           TEVBLAS_INT lda, T* b, TEVBLAS_INT ldb);                                                    \
  void cblas_##p##imatcopy(int order, int trans, TEVBLAS_INT rows, TEVBLAS_INT columns, scalar alpha, T* a,            \
                           TEVBLAS_INT lda, TEVBLAS_INT ldb);                                                          \
  void p##omatcopy_(const char* order, const char* trans, const TEVBLAS_INT* rows, const TEVBLAS_INT* columns,         \
                    const T* alpha, const T* a, const TEVBLAS_INT* lda, T* b, const TEVBLAS_INT* ldb);                 \
  void p##imatcopy_(const char* order, const char* trans, const TEVBLAS_INT* rows, const TEVBLAS_INT* columns,         \
                    const T* alpha, T* a, const TEVBLAS_INT* lda, const TEVBLAS_INT* ldb);
TEVBLAS_EXTENSIONS(s, float, float)
TEVBLAS_EXTENSIONS(d, double, double)
TEVBLAS_EXTENSIONS(c, tev_complex8, const tev_complex8*)
TEVBLAS_EXTENSIONS(z, tev_complex16, const tev_complex16*)
#undef TEVBLAS_EXTENSIONS
#endif

#ifdef __cplusplus
}
#endif

#endif
