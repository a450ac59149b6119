// SPDX-License-Identifier: BSD-3-Clause
// ?syr, ?her, ?spr, ?hpr: A := alpha x x^T + A. ?syr2, ?her2, ?spr2, ?hpr2: A := alpha x y^T + alpha y x^T + A. Of A
// one triangle is stored; the Hermitian ones conjugate what they transpose, and alpha in the second term. To column j
// are added x times one number and y times another. The threads of a team have columns of their own.
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

constexpr int64_t kOne = 1;

template <class T>
void add_to_column(const triangle<T>& a, int64_t j, const T& factor, const strided<const T>& x) {
  const span rows = a.rows(j);
  const int64_t count = rows.size();
  kernel_calls<T>::xaxpy(&count, &factor, x.address(rows), &x.inc, a.at(rows.begin, j), &kOne);
}

// Where there is no column, update_column has nothing to do.
template <class T, class UpdateColumn>
void on_columns(const triangle<T>& a, const UpdateColumn& update_column) {
  const auto update = [&](const span& columns) {
    for (int64_t j = columns.begin; j < columns.end; ++j) {
      update_column(j);
      if constexpr (kComplex<T>) a.diagonal(j)->imag = 0;
    }
  };
  const int64_t threads = triangle_threads(a);
  if (threads < 2) return update({0, a.n});
  run_team(threads, [&](int64_t thread, int64_t team) { update(share_of_columns(a, thread, team)); });
}

template <class T>
void rank_1(const triangle<T>& a, T alpha, const T* x, int64_t incx) {
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx);
  const strided<const T> xs = all_x.elements();
  on_columns(a, [&](int64_t j) { add_to_column(a, j, multiply(alpha, conjugate(xs[j])), xs); });
}

template <class T>
void rank_2(const triangle<T>& a, T alpha, const T* x, int64_t incx, const T* y, int64_t incy) {
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx), all_y(a.n, y, incy);
  const strided<const T> xs = all_x.elements(), ys = all_y.elements();
  on_columns(a, [&](int64_t j) {
    add_to_column(a, j, multiply(alpha, conjugate(ys[j])), xs);
    add_to_column(a, j, conjugate(multiply(alpha, xs[j])), ys);
  });
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
