// SPDX-License-Identifier: BSD-3-Clause
// x := alpha x, y := x, y := alpha x + y: on the calling thread, or, when the vector is long, by pieces on a team.
#include "blas_threading/vectors/level1.h"

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

template <class T>
void scal(int64_t n, const T* alpha, T* x, int64_t incx) {
  if (n < 1) return;
  const int32_t threads = level1_threads(n, kScalChunkBytes / sizeof(T), incx != 0);
  if (threads < 2) return kernel_calls<T>::xscal(&n, alpha, x, &incx);
  level1_call<T> call = {
      n, *alpha, nullptr, 0, x, incx, tev_serv_cpu_detect(), threads, [](const level1_call<T>& c, piece part) {
        kernel_calls<T>::xscal(&part.size, &c.alpha, address_of(part, c.n, c.y, c.incy), &c.incy);
      }};
  run_on_team(call);
}

// A complex vector without gaps is a real one of twice the length; real and imaginary parts of others are scaled apart.
template <class T, class R>
void scal_by_real(int64_t n, const R* alpha, T* x, int64_t incx) {
  R* const parts = reinterpret_cast<R*>(x);
  if (incx < 1) return;
  if (incx == 1) return scal(2 * n, alpha, parts, 1);
  for (int64_t part = 0; part < 2; ++part) scal(n, alpha, parts + part, 2 * incx);
}

template <class T>
void copy(int64_t n, const T* x, int64_t incx, T* y, int64_t incy) {
  if (n < 1) return;
  const int32_t threads = level1_threads(n, kPairChunkBytes / sizeof(T), incx != 0 && incy != 0);
  if (threads < 2) return kernel_calls<T>::xcopy(&n, x, &incx, y, &incy);
  level1_call<T> call = {
      n, T{}, x, incx, y, incy, tev_serv_cpu_detect(), threads, [](const level1_call<T>& c, piece part) {
        kernel_calls<T>::xcopy(&part.size, address_of(part, c.n, c.x, c.incx), &c.incx,
                               address_of(part, c.n, c.y, c.incy), &c.incy);
      }};
  run_on_team(call);
}

template <class T>
void axpy(int64_t n, const T* alpha, const T* x, int64_t incx, T* y, int64_t incy) {
  if (n < 1 || is_value(*alpha, 0)) return;
  const int32_t threads = level1_threads(n, kPairChunkBytes / sizeof(T), incx != 0 && incy != 0);
  if (threads < 2) return kernel_calls<T>::xaxpy(&n, alpha, x, &incx, y, &incy);
  level1_call<T> call = {
      n, *alpha, x, incx, y, incy, tev_serv_cpu_detect(), threads, [](const level1_call<T>& c, piece part) {
        kernel_calls<T>::xaxpy(&part.size, &c.alpha, address_of(part, c.n, c.x, c.incx), &c.incx,
                               address_of(part, c.n, c.y, c.incy), &c.incy);
      }};
  run_on_team(call);
}

}  // namespace
}  // namespace tev::blas

#define TEV_LEVEL1(p, T)                                                                                  \
  void tev_blas_##p##scal(const int64_t* n, const T* alpha, T* x, const int64_t* incx) {                  \
    if (tev::blas::is_short<T>(*n)) return tev_blas_x##p##scal(n, alpha, x, incx);                        \
    tev::blas::scal(*n, alpha, x, *incx);                                                                 \
  }                                                                                                       \
  void tev_blas_##p##copy(const int64_t* n, const T* x, const int64_t* incx, T* y, const int64_t* incy) { \
    if (tev::blas::is_short<T>(*n)) return tev_blas_x##p##copy(n, x, incx, y, incy);                      \
    tev::blas::copy(*n, x, *incx, y, *incy);                                                              \
  }                                                                                                       \
  void tev_blas_##p##axpy(const int64_t* n, const T* alpha, const T* x, const int64_t* incx, T* y,        \
                          const int64_t* incy) {                                                          \
    if (tev::blas::is_short<T>(*n)) return tev_blas_x##p##axpy(n, alpha, x, incx, y, incy);               \
    tev::blas::axpy(*n, alpha, x, *incx, y, *incy);                                                       \
  }
TEV_FOR_EACH_PRECISION(TEV_LEVEL1)

#define TEV_SCAL_BY_REAL(name, T, R)                                                  \
  void tev_blas_##name(const int64_t* n, const R* alpha, T* x, const int64_t* incx) { \
    tev::blas::scal_by_real(*n, alpha, x, *incx);                                     \
  }
TEV_SCAL_BY_REAL(csscal, tev_complex8, float)
TEV_SCAL_BY_REAL(zdscal, tev_complex16, double)
