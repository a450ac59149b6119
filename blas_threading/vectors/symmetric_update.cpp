// SPDX-License-Identifier: BSD-3-Clause
// ?syr, ?her, ?spr, ?hpr: A := alpha x x^T + A. ?syr2, ?her2, ?spr2, ?hpr2: A := alpha x y^T + alpha y x^T + A. Of A
// one triangle is stored; the Hermitian ones conjugate what they transpose, and alpha in the second term. The threads
// of a team have columns of their own.
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

// Without y: a rank-1 update.
template <class T>
void update(const triangle<T>& a, const T& alpha, const strided<const T>& x, const strided<const T>& y) {
  const auto update_columns = [=](const span& columns) {
    kernel_calls<T>::xupdate_columns(&a, &columns.begin, &columns.end, &alpha, x.first, &x.inc, y.first, &y.inc);
  };
  const int64_t threads = triangle_threads(a, used::twice);
  if (threads < 2) return update_columns({0, a.n});
  run_team(threads, [=](int64_t thread, int64_t team) {
    walk_apart(thread, team, share_of_columns(a, thread, team), update_columns);
  });
}

template <class T>
void rank_1(const triangle<T>& a, T alpha, const T* x, int64_t incx) {
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx);
  update(a, alpha, all_x.elements(), {nullptr, 1});
}

template <class T>
void rank_2(const triangle<T>& a, T alpha, const T* x, int64_t incx, const T* y, int64_t incy) {
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx), all_y(a.n, y, incy);
  update(a, alpha, all_x.elements(), all_y.elements());
}

}  // namespace
}  // namespace tev::blas

// real(alpha) is the one that rank-1 updates of Hermitian matrices have.
#define TEV_UPDATES(T, R, p, sy, sp, SY, SP)                                                                          \
  void tev_blas_##p##sy##r(const char* uplo, const int64_t* n, const R* alpha, const T* x, const int64_t* incx, T* a, \
                           const int64_t* lda) {                                                                      \
    using namespace tev::blas;                                                                                        \
    if (arguments_are_right<T>(SY "R",                                                                                \
                               {{1, is_uplo(*uplo)}, {2, *n >= 0}, {5, *incx != 0}, {7, holds_rows(*lda, *n)}}))      \
      rank_1(full_triangle(*uplo, *n, a, *lda), real_element<T>(*alpha), x, *incx);                                   \
  }                                                                                                                   \
  void tev_blas_##p##sp##r(const char* uplo, const int64_t* n, const R* alpha, const T* x, const int64_t* incx,       \
                           T* ap) {                                                                                   \
    using namespace tev::blas;                                                                                        \
    if (arguments_are_right<T>(SP "R", {{1, is_uplo(*uplo)}, {2, *n >= 0}, {5, *incx != 0}}))                         \
      rank_1(packed_triangle(*uplo, *n, ap), real_element<T>(*alpha), x, *incx);                                      \
  }                                                                                                                   \
  void tev_blas_##p##sy##r2(const char* uplo, const int64_t* n, const T* alpha, const T* x, const int64_t* incx,      \
                            const T* y, const int64_t* incy, T* a, const int64_t* lda) {                              \
    using namespace tev::blas;                                                                                        \
    if (arguments_are_right<T>(                                                                                       \
            SY "R2",                                                                                                  \
            {{1, is_uplo(*uplo)}, {2, *n >= 0}, {5, *incx != 0}, {7, *incy != 0}, {9, holds_rows(*lda, *n)}}))        \
      rank_2(full_triangle(*uplo, *n, a, *lda), *alpha, x, *incx, y, *incy);                                          \
  }                                                                                                                   \
  void tev_blas_##p##sp##r2(const char* uplo, const int64_t* n, const T* alpha, const T* x, const int64_t* incx,      \
                            const T* y, const int64_t* incy, T* ap) {                                                 \
    using namespace tev::blas;                                                                                        \
    if (arguments_are_right<T>(SP "R2", {{1, is_uplo(*uplo)}, {2, *n >= 0}, {5, *incx != 0}, {7, *incy != 0}}))       \
      rank_2(packed_triangle(*uplo, *n, ap), *alpha, x, *incx, y, *incy);                                             \
  }
TEV_UPDATES(float, float, s, sy, sp, "SY", "SP")
TEV_UPDATES(double, double, d, sy, sp, "SY", "SP")
TEV_UPDATES(tev_complex8, float, c, he, hp, "HE", "HP")
TEV_UPDATES(tev_complex16, double, z, he, hp, "HE", "HP")
