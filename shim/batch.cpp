// SPDX-License-Identifier: BSD-3-Clause
// Many matrix products in one call: groups of products alike, or one group whose matrices lie a stride apart. They are
// computed one after the other, each checked and reported as one of its own.
#include "shim/arguments.h"
#include "shim/names.h"

using namespace tev::shim;

// The products that are called; element and scalar as in C.
#define TEV_BATCH(p, E, scalar, at)                                                                                    \
  extern "C" {                                                                                                         \
  void TEV_C(cblas_##p##gemm)(int order, int transa, int transb, integer m, integer n, integer k, scalar alpha,        \
                              const E* a, integer lda, const E* b, integer ldb, scalar beta, E* c, integer ldc);       \
  TEV_EXPORT void TEV_C(cblas_##p##gemm_batch)(int order, const int* transa, const int* transb, const integer* m,      \
                                               const integer* n, const integer* k, const E* alpha, const E** a,        \
                                               const integer* lda, const E** b, const integer* ldb, const E* beta,     \
                                               E** c, const integer* ldc, integer groups, const integer* group_size) { \
    for (integer g = 0, i = 0; g < groups; ++g)                                                                        \
      for (integer end = i + group_size[g]; i < end; ++i) TEV_C(cblas_##p##gemm)                                       \
    (order, transa[g], transb[g], m[g], n[g], k[g], at alpha[g], a[i], lda[g], b[i], ldb[g], at beta[g], c[i],         \
     ldc[g]);                                                                                                          \
  }                                                                                                                    \
  TEV_EXPORT void TEV_C(cblas_##p##gemm_batch_strided)(int order, int transa, int transb, integer m, integer n,        \
                                                       integer k, scalar alpha, const E* a, integer lda,               \
                                                       integer stride_a, const E* b, integer ldb, integer stride_b,    \
                                                       scalar beta, E* c, integer ldc, integer stride_c,               \
                                                       integer count) {                                                \
    for (int64_t i = 0; i < count; ++i) TEV_C(cblas_##p##gemm)                                                         \
    (order, transa, transb, m, n, k, alpha, a + i * stride_a, lda, b + i * stride_b, ldb, beta, c + i * stride_c,      \
     ldc);                                                                                                             \
  }                                                                                                                    \
  }                                                                                                                    \
  TEV_SECOND_C_NAME(cblas_##p##gemm_batch)                                                                             \
  TEV_SECOND_C_NAME(cblas_##p##gemm_batch_strided)

TEV_BATCH(s, float, float, )
TEV_BATCH(d, double, double, )
TEV_BATCH(c, tev_complex8, const tev_complex8*, &)
TEV_BATCH(z, tev_complex16, const tev_complex16*, &)
