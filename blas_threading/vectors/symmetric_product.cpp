// SPDX-License-Identifier: BSD-3-Clause
// ?symv, ?hemv, ?sbmv, ?hbmv, ?spmv, ?hpmv: y := alpha A x + beta y, A symmetric or Hermitian, of which one triangle is
// stored. A stored column gives to y twice: what it is multiplied with, and its own product with x. The threads of a
// team have columns of their own.
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/team_sums.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

template <class T>
struct product {
  triangle<const T> a;
  T alpha;
  strided<const T> x;
};

// y += alpha A x, as far as it comes from these columns.
template <class T>
void add_columns(const product<T>& p, const span& columns, const strided<T>& y) {
  if (p.a.kind == storage::full && p.x.inc == 1 && y.inc == 1)
    return kernel_calls<T>::xhemv_columns(p.a.upper ? "U" : "L", &p.a.n, &columns.begin, &columns.end, &p.alpha,
                                          p.a.data, &p.a.ld, p.x.first, y.first);
  kernel_calls<T>::xsymmetric_by_columns(&p.a, &columns.begin, &columns.end, &p.alpha, p.x.first, &p.x.inc, y.first,
                                         &y.inc);
}

template <class T>
void symmetric_product(const triangle<const T>& a, T alpha, const T* x, int64_t incx, T beta, T* y, int64_t incy) {
  scale_result(a.n, beta, y, incy);
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx);
  const gapless<T> all_y(a.n, y, incy);
  const product<T> p = {a, alpha, all_x.elements()};
  const int64_t threads = triangle_threads(a, used::twice);
  const auto add_share = [=](int64_t thread, int64_t team, const strided<T>& own) {
    add_columns(p, share_of_columns(a, thread, team), own);
  };
  if (threads > 1 && add_over_team(a.n, threads, all_y.elements(), add_share)) return;
  add_columns(p, {0, a.n}, all_y.elements());
}

}  // namespace
}  // namespace tev::blas

#define TEV_SYMMETRIC(T, p, sy, sb, sp, SY, SB, SP)                                                                 \
  void tev_blas_##p##sy##mv(const char* uplo, const int64_t* n, const T* alpha, const T* a, const int64_t* lda,     \
                            const T* x, const int64_t* incx, const T* beta, T* y, const int64_t* incy) {            \
    using namespace tev::blas;                                                                                      \
    if (arguments_are_right<T>(                                                                                     \
            SY, {{1, is_uplo(*uplo)}, {2, *n >= 0}, {5, holds_rows(*lda, *n)}, {7, *incx != 0}, {10, *incy != 0}})) \
      symmetric_product(full_triangle(*uplo, *n, a, *lda), *alpha, x, *incx, *beta, y, *incy);                      \
  }                                                                                                                 \
  void tev_blas_##p##sb##mv(const char* uplo, const int64_t* n, const int64_t* k, const T* alpha, const T* a,       \
                            const int64_t* lda, const T* x, const int64_t* incx, const T* beta, T* y,               \
                            const int64_t* incy) {                                                                  \
    using namespace tev::blas;                                                                                      \
    if (arguments_are_right<T>(SB, {{1, is_uplo(*uplo)},                                                            \
                                    {2, *n >= 0},                                                                   \
                                    {3, *k >= 0},                                                                   \
                                    {6, holds_rows(*lda, *k + 1)},                                                  \
                                    {8, *incx != 0},                                                                \
                                    {11, *incy != 0}}))                                                             \
      symmetric_product(band_triangle(*uplo, *n, *k, a, *lda), *alpha, x, *incx, *beta, y, *incy);                  \
  }                                                                                                                 \
  void tev_blas_##p##sp##mv(const char* uplo, const int64_t* n, const T* alpha, const T* ap, const T* x,            \
                            const int64_t* incx, const T* beta, T* y, const int64_t* incy) {                        \
    using namespace tev::blas;                                                                                      \
    if (arguments_are_right<T>(SP, {{1, is_uplo(*uplo)}, {2, *n >= 0}, {6, *incx != 0}, {9, *incy != 0}}))          \
      symmetric_product(packed_triangle(*uplo, *n, ap), *alpha, x, *incx, *beta, y, *incy);                         \
  }
TEV_SYMMETRIC(float, s, sy, sb, sp, "SYMV", "SBMV", "SPMV")
TEV_SYMMETRIC(double, d, sy, sb, sp, "SYMV", "SBMV", "SPMV")
TEV_SYMMETRIC(tev_complex8, c, he, hb, hp, "HEMV", "HBMV", "HPMV")
TEV_SYMMETRIC(tev_complex16, z, he, hb, hp, "HEMV", "HBMV", "HPMV")
