// SPDX-License-Identifier: BSD-3-Clause
// ?symv, ?hemv, ?sbmv, ?hbmv, ?spmv, ?hpmv: y := alpha A x + beta y, A symmetric or Hermitian, of which one triangle is
// stored. A stored column gives to y twice: what it is multiplied with, and its own product with x.
//
// On a team every thread takes columns and adds to a vector of its own; these are put together row by row, in the order
// of the threads.
#include "blas_threading/team/barrier.h"
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

constexpr int64_t kOne = 1;

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
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    const span rows = p.a.beside(j);
    const int64_t count = rows.size();
    const T* const column = p.a.at(rows.begin, j);
    const T factor = multiply(p.alpha, p.x[j]);
    T own = multiply(factor, real_part_of(*p.a.diagonal(j)));
    if (count > 0) {
      kernel_calls<T>::xaxpy(&count, &factor, column, &kOne, y.address(rows), &y.inc);
      own = add(own, multiply(p.alpha, kernel_calls<T>::xdotc(&count, column, &kOne, p.x.address(rows), &p.x.inc)));
    }
    y[j] = add(y[j], own);
  }
}

// False: no memory for the threads' vectors, nothing was computed.
template <class T>
bool add_over_team(const product<T>& p, int64_t threads, const strided<T>& y) {
  const int64_t n = p.a.n, distance = round_up(n, 64);
  T* const sums = static_cast<T*>(tev_serv_allocate((threads - 1) * distance * static_cast<int64_t>(sizeof(T)), 4096));
  if (sums == nullptr) return false;
  barrier_block all_summed = {};
  run_team(threads, [&](int64_t thread, int64_t team) {
    T* const own = sums + (thread - 1) * distance;
    if (thread > 0) std::fill_n(own, n, T{});
    add_columns(p, share_of_columns(p.a, thread, team), thread > 0 ? strided<T>{own, 1} : y);
    tev_barrier_wait(&all_summed, thread, team);
    const piece part = piece_of(n, thread, team);
    const T one = element_of<T>(1);
    for (int64_t other = 1; other < team && part.size > 0; ++other)
      kernel_calls<T>::xaxpy(&part.size, &one, sums + (other - 1) * distance + part.start, &kOne,
                             y.address({part.start, part.start + part.size}), &y.inc);
  });
  tev_serv_deallocate(sums);
  return true;
}

template <class T>
void symmetric_product(const triangle<const T>& a, T alpha, const T* x, int64_t incx, T beta, T* y, int64_t incy) {
  scale_result(a.n, beta, y, incy);
  if (a.n == 0 || is_value(alpha, 0)) return;
  const gapless<const T> all_x(a.n, x, incx);
  const gapless<T> all_y(a.n, y, incy);
  const product<T> p = {a, alpha, all_x.elements()};
  const int64_t threads = triangle_threads(a);
  if (threads > 1 && add_over_team(p, threads, all_y.elements())) return;
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
