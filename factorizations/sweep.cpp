// SPDX-License-Identifier: BSD-3-Clause
// ?lasr: a sequence of plane rotations on the rows or columns of a matrix. Each row of a matrix whose columns turn (and
// each column where rows do) is on its own: the threads of a team share them out, and give the same bits as one.
#include <algorithm>

#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "blas_threading/vectors/level2.h"
#include "factorizations/arguments.h"
#include "factorizations/kernels.h"
#include "factorizations/matrix_view.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

// Elements for each thread of a team, which comes and goes once a sweep.
constexpr int64_t kChunk = 16384;

template <class T>
struct rotations {
  char side, pivot;
  bool forward;
  const real_of<T>*c, *s;

  // Lines i and i + 1: one pass for all.
  void sweep(const matrix_view<T>& a) const {
    constexpr int64_t kParts = blas::element<T>::kParts;
    const int64_t direction = forward, numbers = kParts * a.rows, ld = kParts * a.ld;
    if (side == 'L')
      blas::kernel_calls<T>::xsweep_rows(&direction, &a.rows, &a.columns, c, s, a.data, &a.ld);
    else
      blas::kernel_calls<real_of<T>>::xsweep_columns(&direction, &numbers, &a.columns, c, s,
                                                     reinterpret_cast<real_of<T>*>(a.data), &ld);
  }

  // Lines 0 and i + 1 (T) or i and the last (B), one after the other.
  void around_one_line(const matrix_view<T>& a) const {
    constexpr int64_t kParts = blas::element<T>::kParts;
    const int64_t last = (side == 'L' ? a.rows : a.columns) - 1, across = side == 'L' ? a.columns : a.rows;
    const int64_t apart = kParts * (side == 'L' ? 1 : a.ld), inc = kParts * (side == 'L' ? a.ld : 1);
    for (int64_t step = 0; step < last; ++step) {
      const int64_t i = forward ? step : last - 1 - step;
      const real_of<T> h[] = {c[i], -s[i], s[i], c[i]};
      if (c[i] == 1 && s[i] == 0) continue;
      for (int64_t part = 0; part < kParts; ++part) {
        real_of<T>* const lines = reinterpret_cast<real_of<T>*>(a.data) + part;
        blas::kernel_calls<real_of<T>>::xrotate(&across, lines + (pivot == 'T' ? 0 : i) * apart, &inc,
                                                lines + (pivot == 'T' ? i + 1 : last) * apart, &inc, h);
      }
    }
  }
};

template <class T>
void lasr(char side, char pivot, char direct, int64_t m, int64_t n, const real_of<T>* c, const real_of<T>* s, T* a,
          int64_t lda) {
  int64_t info;
  if (!are_right<T>("LASR", &info,
                    {{1, is_one_of(side, "LR")},
                     {2, is_one_of(pivot, "VTB")},
                     {3, is_one_of(direct, "FB")},
                     {4, m >= 0},
                     {5, n >= 0},
                     {9, holds(lda, m)}}))
    return;
  const rotations<T> all = {upper_case(side), upper_case(pivot), upper_case(direct) == 'F', c, s};
  const bool of_rows = all.side == 'L';
  if (m == 0 || n == 0 || (of_rows ? m : n) < 2) return;
  const int64_t across = of_rows ? n : m;
  const int64_t threads = std::min({blas::available_threads(blas::matrix_work(m, n)), across, m * n / kChunk});
  const auto share = [&](int64_t thread, int64_t team) {
    const blas::piece part = blas::piece_of(across, thread, team);
    if (part.size == 0) return;
    const matrix_view<T> whole = {a, m, n, lda};
    const auto own = of_rows ? whole.block(0, part.start, m, part.size) : whole.block(part.start, 0, part.size, n);
    all.pivot == 'V' ? all.sweep(own) : all.around_one_line(own);
  };
  if (threads < 2) return share(0, 1);
  blas::run_team(threads, share);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_LASR(p, T, R)                                                                              \
  void tev_lapack_##p##lasr(const char* side, const char* pivot, const char* direct, const int64_t* m, \
                            const int64_t* n, const R* c, const R* s, T* a, const int64_t* lda) {      \
    tev::lapack::lasr(*side, *pivot, *direct, *m, *n, c, s, a, *lda);                                  \
  }
TEV_LASR(s, float, float)
TEV_LASR(d, double, double)
TEV_LASR(c, tev_complex8, float)
TEV_LASR(z, tev_complex16, double)
