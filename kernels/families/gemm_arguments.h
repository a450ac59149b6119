// SPDX-License-Identifier: BSD-3-Clause
// The argument list of a matrix product, for lists of exports/ that have many routines with it.
#pragma once

#define TEV_GEMM_PARAMETERS                                                                                      \
  [[maybe_unused]] const char *transa, [[maybe_unused]] const char *transb, const int64_t *m, const int64_t *n,  \
      [[maybe_unused]] const int64_t *k, const TEV_T *alpha, const TEV_T *a, const int64_t *lda, const TEV_T *b, \
      const int64_t *ldb, [[maybe_unused]] const TEV_T *beta, TEV_T *c, const int64_t *ldc
#define TEV_GEMM_ARGUMENTS transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc
