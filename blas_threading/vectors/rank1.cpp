// SPDX-License-Identifier: BSD-3-Clause
// A := alpha x op(y)^T + A, and C := alpha op(x) op(y)^T + beta C (a matrix product with k = 1): on the calling thread,
// or on a team of which each thread has some columns of the matrix and their elements of y.
#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level2.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// A matrix from this size on comes from memory, which delivers more along one column than along several; the kernels
// have the same limit for one thread (kCachedElements).
constexpr int64_t kCachedBytes = 16 << 20;

// update(part) for all n columns of `bytes` each, every thread some of them.
template <class Update>
void on_columns(int64_t n, int64_t bytes, int32_t threads, const Update& update) {
  run_team(threads, [=](int64_t thread, int64_t team) {
    const piece part = piece_of(n, thread, team);
    const span columns = {part.start, part.start + part.size};
    if (n * bytes < kCachedBytes)
      return walk_apart(thread, team, columns, [&](const span& some) { update(piece{some.begin, some.size()}); });
    for (int64_t j = columns.begin; j < columns.end; ++j) update(piece{j, 1});
  });
}

template <class T>
void ger(kernels::ger_fn<T>* xger, int64_t m, int64_t n, const T* alpha, const T* x, int64_t incx, const T* y,
         int64_t incy, T* a, int64_t lda) {
  if (m < 1 || n < 1 || is_value(*alpha, 0)) return;
  const int32_t threads = rank1_threads<T>(m, n);
  if (threads < 2) return xger(&m, &n, alpha, x, &incx, y, &incy, a, &lda);
  on_columns(n, m * int64_t{sizeof(T)}, threads, [=](piece part) {
    xger(&m, &part.size, alpha, x, &incx, address_of(part, n, y, incy), &incy, a + part.start * lda, &lda);
  });
}

template <class T>
void gemmger_omp(const char* transa, const char* transb, int64_t m, int64_t n, const T* alpha, const T* x, int64_t incx,
                 const T* y, int64_t incy, const T* beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  on_columns(n, m * int64_t{sizeof(T)}, rank1_threads<T>(m, n), [=](piece part) {
    kernel_calls<T>::xgemmger(transa, transb, &m, &part.size, alpha, x, &incx, address_of(part, n, y, incy), &incy,
                              beta, c + part.start * ldc, &ldc);
  });
}

}  // namespace
}  // namespace tev::blas

#define TEV_GER(T, name)                                                                                    \
  void tev_blas_##name(const int64_t* m, const int64_t* n, const T* alpha, const T* x, const int64_t* incx, \
                       const T* y, const int64_t* incy, T* a, const int64_t* lda) {                         \
    tev::blas::ger(tev_blas_x##name, *m, *n, alpha, x, *incx, y, *incy, a, *lda);                           \
  }
TEV_GER(float, sger)
TEV_GER(double, dger)
TEV_GER(tev_complex8, cgeru)
TEV_GER(tev_complex16, zgeru)
TEV_GER(tev_complex8, cgerc)
TEV_GER(tev_complex16, zgerc)

#define TEV_GEMMGER(p, T)                                                                                              \
  void tev_blas_##p##gemmger_omp(const char* transa, const char* transb, const int64_t* m, const int64_t* n,           \
                                 const T* alpha, const T* x, const int64_t* incx, const T* y, const int64_t* incy,     \
                                 const T* beta, T* c, const int64_t* ldc) {                                            \
    tev::blas::gemmger_omp(transa, transb, *m, *n, alpha, x, *incx, y, *incy, beta, c, *ldc);                          \
  }                                                                                                                    \
  void tev_blas_##p##gemmger(const char* transa, const char* transb, const int64_t* m, const int64_t* n,               \
                             const T* alpha, const T* x, const int64_t* incx, const T* y, const int64_t* incy,         \
                             const T* beta, T* c, const int64_t* ldc) {                                                \
    const bool serial = *m < 1 || *n < 1 || tev::blas::rank1_threads<T>(*m, *n) < 2;                                   \
    (serial ? tev_blas_x##p##gemmger : tev_blas_##p##gemmger_omp)(transa, transb, m, n, alpha, x, incx, y, incy, beta, \
                                                                  c, ldc);                                             \
  }
TEV_FOR_EACH_PRECISION(TEV_GEMMGER)
