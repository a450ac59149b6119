// SPDX-License-Identifier: BSD-3-Clause
// ?symm, ?hemm: C := alpha A B + beta C or alpha B A + beta C with a symmetric or Hermitian A. With the newer kernels
// it is a matrix product like any other, whose panels of A are packed from one triangle. Only what is worth a team is
// described; the rest goes to the single-threaded kernels as it came, here and in all of level 3.
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/run.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

template <class T>
void symmetric_product(const level3_routine& routine, kernels::symm_fn<T>* entry, int32_t bits, char side, char uplo,
                       int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c,
                       int64_t ldc) {
  const level3_arguments arguments = {.side = side, .uplo = uplo, .m = m, .n = n, .lda = lda, .ldb = ldb, .ldc = ldc};
  if (!arguments_are_right<T>(routine, arguments) || m == 0 || n == 0) return;
  if (is_value(alpha, 0)) return kernel_calls<T>::mscale(&m, &n, &beta, c, &ldc);
  if (threads_worth<T>(kernels::kOpSymm, m, n, kernels::side_code(side) == 0 ? m : n) == 1)
    return entry(&side, &uplo, &m, &n, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
  run(kernels::make_symmetric_operation(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, bits));
}

}  // namespace
}  // namespace tev::blas

#define TEV_SYMMETRIC(p, name, routine, bits, T)                                                                       \
  void tev_blas_##p##name(const char* side, const char* uplo, const int64_t* m, const int64_t* n, const T* alpha,      \
                          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c,         \
                          const int64_t* ldc) {                                                                        \
    tev::blas::symmetric_product(tev::blas::routine, tev_blas_x##p##name, bits, *side, *uplo, *m, *n, *alpha, a, *lda, \
                                 b, *ldb, *beta, c, *ldc);                                                             \
  }
TEV_SYMMETRIC(s, symm, kSymm, 0, float)
TEV_SYMMETRIC(d, symm, kSymm, 0, double)
TEV_SYMMETRIC(c, symm, kSymm, 0, tev_complex8)
TEV_SYMMETRIC(z, symm, kSymm, 0, tev_complex16)
TEV_SYMMETRIC(c, hemm, kHemm, tev::kernels::kCopyHermitian, tev_complex8)
TEV_SYMMETRIC(z, hemm, kHemm, tev::kernels::kCopyHermitian, tev_complex16)
