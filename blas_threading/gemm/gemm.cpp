// SPDX-License-Identifier: BSD-3-Clause
// ?gemm: C := alpha op(A) op(B) + beta C. The front end decides who computes the product; in this order:
//
//   nothing to add             C := beta C
//   worth one thread           the single-threaded kernels, with the arguments as they came, but for the next two
//   a size of 1                level 2
//   the user asked for stripes one region, a block of C for each thread
//   else                       as planned (plan.h)
//
// What a tiny product passes on its way to the single-threaded kernels costs nanoseconds: a few loads and comparisons.
// All that it does not need stands in functions of its own.
#include "blas_threading/gemm/degenerate.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/run.h"
#include "tev/blas.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

template <class T>
[[gnu::noinline]] void gemm_described(const operation<T>& p, int64_t stripes) {
  if (stripes < 1) return run(p);
  if (!done_by_level2(p)) run(p, {division::stripes, permitted_threads()});
}

template <class T>
void gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha,
          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {
  if (*m < 1 || *n < 1) return;
  if (*k < 1 || is_value(*alpha, 0)) return kernel_calls<T>::mscale(m, n, beta, c, ldc);
  const int64_t stripes = tev_serv_get_num_stripes();
  if (!may_be_degenerate(*m, *n, *k, *ldb) && stripes < 1 && threads_worth<T>(kernels::kOpGemm, *m, *n, *k) == 1)
    return kernel_calls<T>::xgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  gemm_described(kernels::make_operation(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc),
                 stripes);
}

}  // namespace
}  // namespace tev::blas

#define TEV_GEMM(p, T)                                                                                  \
  void tev_blas_##p##gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,   \
                          const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b, \
                          const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {                \
    tev::blas::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);                      \
  }
TEV_FOR_EACH_PRECISION(TEV_GEMM)
