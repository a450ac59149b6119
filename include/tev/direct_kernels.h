/* SPDX-License-Identifier: BSD-3-Clause */
/* The kernels of level 1 and 2 by themselves, for a library that stands over this one: a short call need not pass
 * through functions that check it again and ask how many threads it is worth. Private to libraries of one build: rows
 * come and go with the version. C11 and C++20.
 *
 * Each computes on the calling thread what the tev_blas_ function of the same name does. Letters are in capitals and
 * right, sizes at least 0, leading dimensions large enough. Vectors of level 2 have no gaps: they come without an
 * increment. Scalars by address. */
#ifndef TEV_DIRECT_KERNELS_H
#define TEV_DIRECT_KERNELS_H

#include "tev/types.h"

/* clang-format off */

/* row(T, kernel, name, result, parameters...); T: element, R: its real part. */
#define TEV_DIRECT_IN_EVERY_PRECISION(row, p, norm_p, T, R, sy, sp, sb) \
  row(T, scal, p##scal, void, int64_t n, const T* alpha, T* x, int64_t incx) \
  row(T, copy, p##copy, void, int64_t n, const T* x, int64_t incx, T* y, int64_t incy) \
  row(T, swap, p##swap, void, int64_t n, T* x, int64_t incx, T* y, int64_t incy) \
  row(T, axpy, p##axpy, void, int64_t n, const T* alpha, const T* x, int64_t incx, T* y, int64_t incy) \
  row(T, asum, norm_p##asum, R, int64_t n, const T* x, int64_t incx) \
  row(T, nrm2, norm_p##nrm2, R, int64_t n, const T* x, int64_t incx) \
  row(T, iamax, i##p##amax, int64_t, int64_t n, const T* x, int64_t incx) /* from 1 */ \
  row(T, gemv, p##gemv, void, char trans, int64_t m, int64_t n, const T* alpha, const T* a, int64_t lda, \
      const T* x, const T* beta, T* y) \
  row(T, gbmv, p##gbmv, void, char trans, int64_t m, int64_t n, int64_t kl, int64_t ku, const T* alpha, \
      const T* a, int64_t lda, const T* x, const T* beta, T* y) \
  row(T, trmv, p##trmv, void, char uplo, char trans, char diag, int64_t n, const T* a, int64_t lda, T* x) \
  row(T, trsv, p##trsv, void, char uplo, char trans, char diag, int64_t n, const T* a, int64_t lda, T* x) \
  row(T, tbmv, p##tbmv, void, char uplo, char trans, char diag, int64_t n, int64_t k, const T* a, int64_t lda, T* x) \
  row(T, tbsv, p##tbsv, void, char uplo, char trans, char diag, int64_t n, int64_t k, const T* a, int64_t lda, T* x) \
  row(T, tpmv, p##tpmv, void, char uplo, char trans, char diag, int64_t n, const T* ap, T* x) \
  row(T, tpsv, p##tpsv, void, char uplo, char trans, char diag, int64_t n, const T* ap, T* x) \
  row(T, symv, p##sy##mv, void, char uplo, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x, \
      const T* beta, T* y) \
  row(T, sbmv, p##sb##mv, void, char uplo, int64_t n, int64_t k, const T* alpha, const T* a, int64_t lda, \
      const T* x, const T* beta, T* y) \
  row(T, spmv, p##sp##mv, void, char uplo, int64_t n, const T* alpha, const T* ap, const T* x, const T* beta, T* y) \
  row(T, syr, p##sy##r, void, char uplo, int64_t n, const R* alpha, const T* x, T* a, int64_t lda) \
  row(T, spr, p##sp##r, void, char uplo, int64_t n, const R* alpha, const T* x, T* ap) \
  row(T, syr2, p##sy##r2, void, char uplo, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda) \
  row(T, spr2, p##sp##r2, void, char uplo, int64_t n, const T* alpha, const T* x, const T* y, T* ap)

#define TEV_DIRECT_REAL(row, p, T) \
  TEV_DIRECT_IN_EVERY_PRECISION(row, p, p, T, T, sy, sp, sb) \
  row(T, dot, p##dot, T, int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) \
  row(T, rot, p##rot, void, int64_t n, T* x, int64_t incx, T* y, int64_t incy, const T* c, const T* s) \
  row(T, ger, p##ger, void, int64_t m, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda)

#define TEV_DIRECT_COMPLEX(row, p, norm_p, by_real_p, T, R) \
  TEV_DIRECT_IN_EVERY_PRECISION(row, p, norm_p, T, R, he, hp, hb) \
  row(T, dotu, p##dotu, T, int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) \
  row(T, dotc, p##dotc, T, int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) \
  row(T, rot, by_real_p##rot, void, int64_t n, T* x, int64_t incx, T* y, int64_t incy, const R* c, const R* s) \
  row(T, scal_by_real, by_real_p##scal, void, int64_t n, const R* alpha, T* x, int64_t incx) \
  row(T, ger, p##geru, void, int64_t m, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda) \
  row(T, gerc, p##gerc, void, int64_t m, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda)

#define TEV_DIRECT_ROWS(row) \
  TEV_DIRECT_REAL(row, s, float) \
  TEV_DIRECT_REAL(row, d, double) \
  TEV_DIRECT_COMPLEX(row, c, sc, cs, tev_complex8, float) \
  TEV_DIRECT_COMPLEX(row, z, dz, zd, tev_complex16, double)

/* clang-format on */

typedef struct tev_direct_kernels {
#define TEV_DIRECT_MEMBER(T, kernel, name, result, ...) result (*name)(__VA_ARGS__);
  TEV_DIRECT_ROWS(TEV_DIRECT_MEMBER)
#undef TEV_DIRECT_MEMBER
} tev_direct_kernels;

#ifdef __cplusplus
extern "C" {
#endif

/* All of them, of the tier in force. */
TEV_EXPORT void tev_blas_get_direct_kernels(tev_direct_kernels* kernels);

#ifdef __cplusplus
}
#endif

#endif
