// SPDX-License-Identifier: BSD-3-Clause
// ?gemm: C := alpha op(A) op(B) + beta C.
#include "blas_threading/operands.h"
#include "blas_threading/team_product.h"
#include "tev/blas.h"

using tev::blas::op;
using tev::blas::team_product;

#define TEV_GEMM(name, T)                                                                                        \
  void name(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k,        \
            const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, \
            const int64_t* ldc) {                                                                                \
    team_product(*m, *n, *k, *alpha, op(transa, a, *lda), op(transb, b, *ldb), *beta, c, *ldc);                  \
  }
TEV_GEMM(tev_blas_sgemm, float)
TEV_GEMM(tev_blas_dgemm, double)
TEV_GEMM(tev_blas_cgemm, tev_complex8)
TEV_GEMM(tev_blas_zgemm, tev_complex16)
