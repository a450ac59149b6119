// SPDX-License-Identifier: BSD-3-Clause
// ?gbmv: y := alpha op(A) x + beta y, A a band matrix of kl diagonals below the main one and ku above it. m = 5, n = 4,
// kl = 1, ku = 2:
//
//   00 01 02  .        ..  ..  02 13
//   10 11 12 13        ..  01  12 23      column j of A is column j of the array, from row ku - j on
//    . 21 22 23        00  11  22 33
//    .  . 32 33        10  21  32 43
//    .  .  . 43
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/level2.h"

namespace tev::blas {
namespace {

constexpr int64_t kOne = 1;

template <class T>
struct band {
  const T* data;
  int64_t m, n, kl, ku, ld;

  span rows(int64_t j) const { return {std::max(j - ku, int64_t{0}), std::min(m, j + kl + 1)}; }
  const T* at(int64_t i, int64_t j) const { return data + (ku + i - j) + j * ld; }
};

// y += alpha op(A) x, no gaps: the threads of a team share y, in whole cache lines.
template <class T>
void add_parts(const band<T>& a, char trans, const T& alpha, const T* x, T* y) {
  const int64_t elements = a.n * (a.kl + a.ku + 1), of_y = trans == 'N' ? a.m : a.n;
  const int64_t threads =
      elements < 2 * kMatrixChunk<T>
          ? 1
          : std::min(available_threads(kElementWork * static_cast<double>(elements)), elements / kMatrixChunk<T>);
  const auto add_part = [=](const span& part) {
    kernel_calls<T>::xgbmv_part(&trans, &a.m, &a.n, &a.kl, &a.ku, &part.begin, &part.end, &alpha, a.data, &a.ld, x, y);
  };
  if (threads < 2) return add_part({0, of_y});
  run_team(threads, [=](int64_t thread, int64_t team) { add_part(part_of(thread, team, of_y, 16)); });
}

// The same where elements are apart, for want of memory; x and y do not overlap.
template <class T>
void add_columns(const band<T>& a, char trans, T alpha, const strided<const T>& x, const strided<T>& y) {
  const auto dot = trans == 'C' ? kernel_calls<T>::xdotc : kernel_calls<T>::xdotu;
  for (int64_t j = 0; j < std::min(a.n, a.m + a.ku); ++j) {
    const span rows = a.rows(j);
    const int64_t count = rows.size();
    const T* const column = a.at(rows.begin, j);
    if (trans == 'N') {
      const T factor = multiply(alpha, x[j]);
      kernel_calls<T>::xaxpy(&count, &factor, column, &kOne, y.address(rows), &y.inc);
    } else {
      y[j] = add(y[j], multiply(alpha, dot(&count, column, &kOne, x.address(rows), &x.inc)));
    }
  }
}

template <class T>
void gbmv(char trans, const band<T>& a, T alpha, const T* x, int64_t incx, T beta, T* y, int64_t incy) {
  if (a.m == 0 || a.n == 0) return;
  const bool plain = trans == 'N';
  const int64_t of_x = plain ? a.n : a.m, of_y = plain ? a.m : a.n;
  scale_result(of_y, beta, y, incy);
  if (is_value(alpha, 0)) return;
  const gapless<const T> all_x(of_x, x, incx);
  const gapless<T> all_y(of_y, y, incy);
  if (all_x.elements().inc == 1 && all_y.elements().inc == 1)
    return add_parts(a, trans, alpha, all_x.elements().first, all_y.elements().first);
  add_columns(a, trans, alpha, all_x.elements(), all_y.elements());
}

}  // namespace
}  // namespace tev::blas

#define TEV_GBMV(p, T)                                                                                                 \
  void tev_blas_##p##gbmv(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl, const int64_t* ku, \
                          const T* alpha, const T* a, const int64_t* lda, const T* x, const int64_t* incx,             \
                          const T* beta, T* y, const int64_t* incy) {                                                  \
    using namespace tev::blas;                                                                                         \
    if (arguments_are_right<T>("GBMV", {{1, is_trans(*trans)},                                                         \
                                        {2, *m >= 0},                                                                  \
                                        {3, *n >= 0},                                                                  \
                                        {4, *kl >= 0},                                                                 \
                                        {5, *ku >= 0},                                                                 \
                                        {8, *lda > *kl + *ku},                                                         \
                                        {10, *incx != 0},                                                              \
                                        {13, *incy != 0}}))                                                            \
      gbmv(tev::kernels::upper_case(*trans), {a, *m, *n, *kl, *ku, *lda}, *alpha, x, *incx, *beta, y, *incy);          \
  }
TEV_GBMV(s, float)
TEV_GBMV(d, double)
TEV_GBMV(c, tev_complex8)
TEV_GBMV(z, tev_complex16)
