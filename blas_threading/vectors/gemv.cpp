// SPDX-License-Identifier: BSD-3-Clause
// y := alpha op(A) x + beta y: on the calling thread, or on a team. T, C: every thread has columns of A, and the
// elements of y that are theirs. N: every thread has columns and adds to a y of its own, since whole columns are what
// memory and caches deliver best; where columns are few, or so long that a part of one is as good, it has rows in
// blocks of 8 and their elements of y.
//
//      A [ 0 | 1 | 2 ]   T, C   y [ 0 | 1 | 2 ]         A [ thread 0 ]   N, few columns   y [ 0 ]
//                        N      y + y1 + y2               [ thread 1 ]                      [ 1 ]
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level2.h"
#include "blas_threading/vectors/team_sums.h"
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

// Columns for each thread from which on what is added up at the end is little, up to which length.
constexpr int64_t kWholeColumns = 64, kLongColumnBytes = 64 * 1024;

template <class T>
bool goes_by_columns(int64_t m, int64_t n, int64_t threads) {
  return n >= kWholeColumns * threads && m * static_cast<int64_t>(sizeof(T)) <= kLongColumnBytes;
}

// y := alpha A x + beta y. False: no memory, nothing was computed.
template <class T>
bool add_columns(int64_t threads, int64_t m, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x,
                 int64_t incx, const T* beta, T* y, int64_t incy) {
  const strided<T> all_y = {y - (incy < 0 ? (m - 1) * incy : 0), incy};
  return add_over_team(m, threads, all_y, [=](int64_t thread, int64_t team, const strided<T>& own) {
    const piece part = piece_of(n, thread, team);
    const T one = element_of<T>(1);
    kernel_calls<T>::xgemv("N", &m, &part.size, alpha, a + part.start * lda, &lda, address_of(part, n, x, incx), &incx,
                           thread == 0 ? beta : &one, own.address({0, m}), &own.inc);
  });
}

template <class T>
void gemv_omp(const char* trans, int64_t m, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x,
              int64_t incx, const T* beta, T* y, int64_t incy) {
  if (m < 1 || n < 1) return;
  const bool plain = kernels::transposition_code(*trans) == kernels::kNoTrans;
  const int64_t length = plain ? m : n, block = plain ? kRowBlock : 1, blocks = (length + block - 1) / block;
  // With an increment of zero all pieces of y are one element.
  const int64_t available = incy == 0 ? 1 : available_threads(matrix_work(m, n));
  if (available > 1 && plain && goes_by_columns<T>(m, n, available) &&
      add_columns(available, m, n, alpha, a, lda, x, incx, beta, y, incy))
    return;
  run_team(std::min(available, blocks), [=](int64_t thread, int64_t threads) {
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
