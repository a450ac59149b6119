// SPDX-License-Identifier: BSD-3-Clause
// ?symm, ?hemm: C := alpha A B + beta C or alpha B A + beta C with a symmetric or Hermitian A. With the version-2
// kernels it is a matrix product like any other, whose panels of A are packed from one triangle; with the others each
// thread computes some columns (side L) or rows (side R) of C by itself.
#include <algorithm>

#include "blas_threading/gemm/gemm.h"
#include "blas_threading/gemm/symmetric.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/thread_count.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

template <class T>
void compute_by_shares(const operation<T>& p, int64_t threads) {
  const bool right = p.from_right != 0;
  run_team(threads, [&](int64_t thread, int64_t team) {
    const span share = part_of(thread, team, right ? p.m : p.n, kLine<T>);
    if (right)
      compute_symmetric(p, rows_of(p.a, share), p.b, rows_of(p.c, share));
    else
      compute_symmetric(p, p.a, columns_of(p.b, share), columns_of(p.c, share));
  });
}

template <class T>
void symmetric_product(const level3_routine& routine, int32_t bits, char side, char uplo, int64_t m, int64_t n, T alpha,
                       const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  const level3_arguments arguments = {.side = side, .uplo = uplo, .m = m, .n = n, .lda = lda, .ldb = ldb, .ldc = ldc};
  if (!arguments_are_right<T>(routine, arguments) || m == 0 || n == 0) return;
  if (is_value(alpha, 0)) return kernel_calls<T>::mscale(&m, &n, &beta, c, &ldc);
  const operation<T> p = kernels::make_symmetric_operation(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, bits);
  if (tev_blas_get_kernel_api_version() == 2) return multiply_over_team(p);
  compute_by_shares(p, std::min(thread_count<T>(m, n, p.k), ceil_div(p.from_right != 0 ? m : n, kLine<T>)));
}

}  // namespace
}  // namespace tev::blas

#define TEV_SYMMETRIC(p, name, routine, bits, T)                                                                     \
  void tev_blas_##p##name(const char* side, const char* uplo, const int64_t* m, const int64_t* n, const T* alpha,    \
                          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c,       \
                          const int64_t* ldc) {                                                                      \
    tev::blas::symmetric_product(tev::blas::routine, bits, *side, *uplo, *m, *n, *alpha, a, *lda, b, *ldb, *beta, c, \
                                 *ldc);                                                                              \
  }
TEV_SYMMETRIC(s, symm, kSymm, 0, float)
TEV_SYMMETRIC(d, symm, kSymm, 0, double)
TEV_SYMMETRIC(c, symm, kSymm, 0, tev_complex8)
TEV_SYMMETRIC(z, symm, kSymm, 0, tev_complex16)
TEV_SYMMETRIC(c, hemm, kHemm, tev::kernels::kCopyHermitian, tev_complex8)
TEV_SYMMETRIC(z, hemm, kHemm, tev::kernels::kCopyHermitian, tev_complex16)
