// SPDX-License-Identifier: BSD-3-Clause
// y := alpha op(A) x + beta y: on the calling thread, or on a team that shares y out. Every thread reads all of x and
// the part of A that belongs to its elements of y, so nothing is added up across threads.
//
//      N: rows, in blocks of 8          T, C: columns
//
//      A [ thread 0 ]   y [ 0 ]         A [ 0 | 1 | 2 ]   y [ 0 | 1 | 2 ]
//        [ thread 1 ]     [ 1 ]
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level2.h"
#include "kernels/operation.h"
#include "service/detection.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// Kernels for processors of other makers, and the oldest ones, stay on one thread.
bool processor_has_teams() { return tev_serv_cpu_detect() >= TEV_CPU_MC && tev_serv_zarik_cpu() != 0; }

template <class T>
bool stays_serial(const char* trans, int64_t m, int64_t n) {
  return gemv_is_small<T>(m, n) || !processor_has_teams() ||
         !gemv_deserves_team<T>(kernels::transposition_code(*trans) == kernels::kNoTrans, m, n,
                                available_threads(matrix_work(m, n)), tev_serv_get_dynamic() == 1);
}

template <class T>
void gemv_omp(const char* trans, int64_t m, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x,
              int64_t incx, const T* beta, T* y, int64_t incy) {
  if (m < 1 || n < 1) return;
  const bool plain = kernels::transposition_code(*trans) == kernels::kNoTrans;
  const int64_t length = plain ? m : n, block = plain ? kRowBlock : 1, blocks = (length + block - 1) / block;
  // With an increment of zero all pieces of y are one element.
  const int64_t wanted = incy == 0 ? 1 : std::min(available_threads(matrix_work(m, n)), blocks);
  run_team(wanted, [=](int64_t thread, int64_t threads) {
    const piece share = piece_of(blocks, thread, threads);
    const int64_t start = share.start * block;
    const piece part = {start, std::min(share.size * block, length - start)};
    const T* const own_a = a + (plain ? start : start * lda);
    if (part.size > 0)
      kernel_calls<T>::xgemv(trans, plain ? &part.size : &m, plain ? &n : &part.size, alpha, own_a, &lda, x, &incx,
                             beta, address_of(part, length, y, incy), &incy);
  });
}

}  // namespace
}  // namespace tev::blas

#define TEV_GEMV(p, T)                                                                                           \
  void tev_blas_##p##gemv_omp(const char* trans, const int64_t* m, const int64_t* n, const T* alpha, const T* a, \
                              const int64_t* lda, const T* x, const int64_t* incx, const T* beta, T* y,          \
                              const int64_t* incy) {                                                             \
    tev::blas::gemv_omp(trans, *m, *n, alpha, a, *lda, x, *incx, beta, y, *incy);                                \
  }                                                                                                              \
  void tev_blas_##p##gemv(const char* trans, const int64_t* m, const int64_t* n, const T* alpha, const T* a,     \
                          const int64_t* lda, const T* x, const int64_t* incx, const T* beta, T* y,              \
                          const int64_t* incy) {                                                                 \
    const bool serial = tev::blas::stays_serial<T>(trans, *m, *n);                                               \
    (serial ? tev_blas_x##p##gemv : tev_blas_##p##gemv_omp)(trans, m, n, alpha, a, lda, x, incx, beta, y, incy); \
  }
TEV_FOR_EACH_PRECISION(TEV_GEMV)
