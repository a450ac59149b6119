// SPDX-License-Identifier: BSD-3-Clause
// ?gemm: C := alpha op(A) op(B) + beta C. The front end decides who computes the product; in this order:
//
//   nothing to add             C := beta C
//   worth one thread           the single-threaded kernels, with the arguments as they came, but for the next two
//   a size of 1                level 2
//   the user asked for stripes one region, a block of C for each thread
//   else                       as planned (plan.h)
//
// What a tiny product passes on its way to the single-threaded kernels costs nanoseconds: a few loads and comparisons,
// and a jump, for which the arguments stay where they are. All that it does not need stands in functions of its own.
#include "blas_threading/gemm/degenerate.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/run.h"
#include "service/threads.h"
#include "tev/blas.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

// 2 to kTiny: what kernel_calls<T>::xgemm computes as the rest of this file would.
inline bool is_tiny(int64_t m, int64_t n, int64_t k, int64_t ldb) {
  const auto within = [](int64_t size) { return static_cast<uint64_t>(size - 2) < static_cast<uint64_t>(kTiny - 1); };
  return within(m) && within(n) && within(k) && !may_be_degenerate(m, n, k, ldb) && service::knows_of_no_stripes();
}

template <class T>
void gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha,
          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {
  if (*m < 1 || *n < 1) return;
  if (*k < 1 || is_value(*alpha, 0)) return kernel_calls<T>::mscale(m, n, beta, c, ldc);
  const int64_t stripes = tev_serv_get_num_stripes();
  if (!may_be_degenerate(*m, *n, *k, *ldb) && stripes < 1 && threads_worth<T>(kernels::kOpGemm, *m, *n, *k) == 1)
    return kernel_calls<T>::xgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  const auto p = kernels::make_operation(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
  if (stripes < 1) return run(p);
  if (!done_by_level2(p)) run(p, {division::stripes, permitted_threads()});
}

}  // namespace
}  // namespace tev::blas

#define TEV_GEMM(p, T)                                                                                  \
  void tev_blas_##p##gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,   \
                          const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b, \
                          const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {                \
    auto* product = tev::blas::gemm<T>;                                                                 \
    if (tev::blas::is_tiny(*m, *n, *k, *ldb)) product = tev::blas::kernel_calls<T>::xgemm;              \
    product(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);                              \
  }
TEV_FOR_EACH_PRECISION(TEV_GEMM)
