// SPDX-License-Identifier: BSD-3-Clause
// Row interchanges. The pivots are looked at once, before anything moves, so that a bad one ends the interchanges at
// the same place in every column, whoever has it; its report follows when all columns are done.
//
//   real       column by column          complex    blocks of 16 columns, a row of the block at a time
//   | 1 | 2 | 3 | ...                               | 1 . . . . . . | 2 . . . . . . |
//   each thread a contiguous range of columns       each thread a contiguous range of blocks
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/team/team.h"
#include "lapack_workers/team.h"
#include "service/xerbla.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::lapack {
namespace {

using blas::element;
using blas::kComplex;

constexpr int64_t kSerialColumns = 128, kBlockColumns = 16;
constexpr int64_t kPivotsAtATime = 4;
constexpr int32_t kPivotArgument = 6;

// Interchange i exchanges row `first + i step` with row `pivots[i distance]`, both counted from 1.
struct interchanges {
  int64_t first, step;
  const int64_t* pivots;
  int64_t distance;  // has the sign of `step`
  int64_t count;     // up to the first bad one
  bool sound;        // there is no bad one

  int64_t row(int64_t i) const { return first + i * step; }
  int64_t pivot(int64_t i) const { return pivots[i * distance]; }
};

interchanges read_pivots(int64_t lda, int64_t k1, int64_t k2, const int64_t* ipiv, int64_t incx) {
  interchanges all = {incx > 0 ? k1 : k2, incx > 0 ? 1 : -1, ipiv, incx, 0, true};
  if (incx == 0 || k1 > k2) return all;
  const auto is_row = [=](int64_t i) { return i >= 1 && i <= lda; };
  all.sound = is_row(all.first);
  if (!all.sound) return all;
  all.pivots = ipiv + (k1 - 1) + (all.first - k1) * std::abs(incx);
  const int64_t last = incx > 0 ? k2 : k1;
  for (int64_t row = all.first;; row += all.step) {
    all.sound = is_row(row) && is_row(all.pivot(all.count));
    if (!all.sound) return all;
    ++all.count;
    if (row == last) return all;
  }
}

// ---- By columns ----------------------------------------------------------------------------------------------------

// The pivots of a group are read before anything is written, and the group is known to the compiler. Meanwhile the same
// lines of the next column, so many bytes away, are fetched: a store that waits for its line holds up all after it, and
// without this a matrix that comes from memory takes three to five times as long.
template <class T>
void interchange_column(const interchanges& all, T* column, int64_t next) {
  T* const from_one = column - 1;
  const auto fetch = [next](T* x) { __builtin_prefetch(reinterpret_cast<char*>(x) + next, 1); };
  int64_t i = 0;
  for (; i + kPivotsAtATime <= all.count; i += kPivotsAtATime) {
    T* to[kPivotsAtATime];
    for (int64_t q = 0; q < kPivotsAtATime; ++q) to[q] = from_one + all.pivot(i + q);
    for (int64_t q = 0; q < kPivotsAtATime; ++q) {
      fetch(to[q]);
      std::swap(from_one[all.row(i + q)], *to[q]);
    }
  }
  for (; i < all.count; ++i) std::swap(from_one[all.row(i)], from_one[all.pivot(i)]);
}

// Column j of n; the last has no next one.
template <class T>
void interchange_column_of(const interchanges& all, int64_t j, int64_t n, T* a, int64_t lda) {
  interchange_column(all, a + j * lda, j + 1 < n ? lda * static_cast<int64_t>(sizeof(T)) : 0);
}

template <class T>
void interchange_columns(const interchanges& all, int64_t n, T* a, int64_t lda) {
  for (int64_t j = 0; j < n; ++j) interchange_column_of(all, j, n, a, lda);
}

// ---- By blocks of columns ------------------------------------------------------------------------------------------

template <class T>
struct swap_kernel;
template <>
struct swap_kernel<tev_complex8> {
  static constexpr auto call = tev_blas_xcswap;
};
template <>
struct swap_kernel<tev_complex16> {
  static constexpr auto call = tev_blas_xzswap;
};

template <class T>
void interchange_block(const interchanges& all, int64_t n, T* a, int64_t lda, int64_t block) {
  const int64_t begin = block * kBlockColumns, columns = std::min(kBlockColumns, n - begin);
  T* const from_one = a + begin * lda - 1;
  for (int64_t i = 0; i < all.count; ++i) {
    if (i + 1 < all.count)
      for (int64_t j = 0; j < columns; ++j) __builtin_prefetch(from_one + all.pivot(i + 1) + j * lda, 1);
    if (all.row(i) != all.pivot(i))
      swap_kernel<T>::call(&columns, from_one + all.row(i), &lda, from_one + all.pivot(i), &lda);
  }
}

// ---- The team ------------------------------------------------------------------------------------------------------

template <class T>
void interchange_over_team(const interchanges& all, int64_t n, T* a, int64_t lda) {
  const double moved = 2.0 * static_cast<double>(n) * static_cast<double>(all.count);
  blas::run_team(blas::available_threads(blas::kElementWork * moved), [&](int64_t, int64_t) {
    if constexpr (kComplex<T>) {
      tev_lapack_omp_parallel_enter();
#pragma omp for schedule(static) nowait
      for (int64_t block = 0; block < blas::ceil_div(n, kBlockColumns); ++block)
        interchange_block(all, n, a, lda, block);
      tev_lapack_omp_parallel_exit();
    } else {
#pragma omp for schedule(static) nowait
      for (int64_t j = 0; j < n; ++j) interchange_column_of(all, j, n, a, lda);
    }
  });
}

template <class T>
void interchange(const interchanges& all, int64_t n, T* a, int64_t lda) {
  if constexpr (kComplex<T>) {
    if (all.step > 0) return interchange_over_team(all, n, a, lda);
    for (int64_t block = 0; block < blas::ceil_div(n, kBlockColumns); ++block) interchange_block(all, n, a, lda, block);
  } else {
    if (all.distance == 1) return interchange_over_team(all, n, a, lda);
    interchange_columns(all, n, a, lda);
  }
}

template <class T>
void report(const interchanges& all) {
  if (all.sound) return;
  char name[] = "?LASWP";
  name[0] = element<T>::kLetter;
  tev_serv_xerbla(name, &kPivotArgument, sizeof(name) - 1);
}

template <class T>
void laswp(int64_t n, T* a, int64_t lda, int64_t k1, int64_t k2, const int64_t* ipiv, int64_t incx, bool alone) {
  if (n < 1) return;
  const interchanges all = read_pivots(lda, k1, k2, ipiv, incx);
  if (alone || n <= kSerialColumns || tev_serv_get_max_threads() == 1)
    interchange_columns(all, n, a, lda);
  else
    interchange(all, n, a, lda);
  report<T>(all);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_LASWP(p, T)                                                                                         \
  void tev_lapack_##p##laswp(const int64_t* n, T* a, const int64_t* lda, const int64_t* k1, const int64_t* k2,  \
                             const int64_t* ipiv, const int64_t* incx) {                                        \
    tev::lapack::laswp(*n, a, *lda, *k1, *k2, ipiv, *incx, false);                                              \
  }                                                                                                             \
  void tev_lapack_x##p##laswp(const int64_t* n, T* a, const int64_t* lda, const int64_t* k1, const int64_t* k2, \
                              const int64_t* ipiv, const int64_t* incx) {                                       \
    tev::lapack::laswp(*n, a, *lda, *k1, *k2, ipiv, *incx, true);                                               \
  }
TEV_LASWP(s, float)
TEV_LASWP(d, double)
TEV_LASWP(c, tev_complex8)
TEV_LASWP(z, tev_complex16)
