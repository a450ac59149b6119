// SPDX-License-Identifier: BSD-3-Clause
// Matrix-vector products and rank-1 updates over the OpenMP team: when a team is worth forming, the drivers that form
// one, and what routines of other matrices take from them.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "tev/blas.h"

namespace tev::blas {

// Rows of y that threads share out: a cache line of doubles.
inline constexpr int64_t kRowBlock = 8;

// What counts elements below is told for doubles; the other types have the same limits in bytes.
template <class T>
constexpr int64_t doubles(int64_t count) {
  return count * 8 / static_cast<int64_t>(sizeof(T));
}

// Never worth a team, whatever the machine.
template <class T>
bool gemv_is_small(int64_t m, int64_t n) {
  return m < doubles<T>(64) && n < doubles<T>(64);
}

// Is an m x n product worth a team of `threads`? Up to 12 threads a share must be large enough; beyond that, in dynamic
// mode, it only must not be empty.
template <class T>
bool gemv_deserves_team(bool plain, int64_t m, int64_t n, int64_t threads, bool dynamic) {
  if (threads < 2 || gemv_is_small<T>(m, n)) return false;
  const bool few = threads <= 12;
  if (!plain) {
    if (m >= doubles<T>(10000) && n <= doubles<T>(100)) return true;
    const int64_t columns = n / threads, share = m * columns;
    if (few) return share >= (columns < doubles<T>(64) ? doubles<T>(2048) : doubles<T>(4096));
    return share >= doubles<T>(4096) || (columns > 0 && dynamic);
  }
  const int64_t rows = m / threads, whole_rows = rows / kRowBlock * kRowBlock;
  if (rows <= doubles<T>(500) && n >= doubles<T>(64) * threads) return true;
  if (few) return whole_rows * n >= (whole_rows < doubles<T>(64) ? doubles<T>(1536) : doubles<T>(3072));
  return rows * n >= doubles<T>(4096) || (rows > 0 && dynamic);
}

// Work of a call that uses each element of an m x n matrix once.
inline double matrix_work(int64_t m, int64_t n) { return kElementWork * product_work(m, n, 1); }

// Bytes of a matrix that is used once, for each thread of a team, which forms from twice as many on. One thread takes
// 4 to 6 us for those. A region costs 0.3 us where two cores share a cache, and 1 us where they do not; what both
// threads touch of the vectors costs as much again.
inline constexpr int64_t kMatrixChunkBytes = 240 * 1024;

// Elements of type T in that.
template <class T>
inline constexpr int64_t kMatrixChunk = kMatrixChunkBytes / static_cast<int64_t>(sizeof(T));

// Threads for an m x n rank-1 update, which is split by columns; it reads and writes the matrix.
template <class T>
int32_t rank1_threads(int64_t m, int64_t n) {
  constexpr int64_t kChunk = kMatrixChunk<T> / 2;
  const int64_t elements = m * n;
  if (elements < 2 * kChunk) return 1;
  return static_cast<int32_t>(std::min({available_threads(matrix_work(m, n)), n, ceil_div(elements, kChunk)}));
}

// update(columns) for all columns of one thread's share [begin, end) of a matrix that is written. What a processor
// fetches ahead of a thread that walks towards its neighbour's columns are lines that the neighbour writes, and has to
// get back. So every other thread of a team walks backwards, away from the one behind it: two threads part from where
// they meet; of more, every second boundary gains.
template <class Update>
void walk_apart(int64_t thread, int64_t team, const span& columns, const Update& update) {
  constexpr int64_t kTogether = 16;
  if (thread % 2 != 0 || team < 2) return update(columns);
  for (int64_t end = columns.end; end > columns.begin; end -= kTogether)
    update(span{std::max(columns.begin, end - kTogether), end});
}

}  // namespace tev::blas

extern "C" {

// tev_blas_?gemv and tev_blas_?gemmger once the decision for a team is taken. They have a region also when the team is
// of one thread, and compute the whole result on whatever team forms.
#define TEV_LEVEL2_DRIVERS(p, T)                   \
  tev::kernels::gemv_fn<T> tev_blas_##p##gemv_omp; \
  tev::kernels::gemmger_fn<T> tev_blas_##p##gemmger_omp;
TEV_FOR_EACH_PRECISION(TEV_LEVEL2_DRIVERS)
#undef TEV_LEVEL2_DRIVERS

}  // extern "C"

namespace tev::blas {

// tev_blas_?gemv.
template <class T>
inline constexpr kernels::gemv_fn<T>* kGemv = nullptr;
template <>
inline constexpr kernels::gemv_fn<float>* kGemv<float> = tev_blas_sgemv;
template <>
inline constexpr kernels::gemv_fn<double>* kGemv<double> = tev_blas_dgemv;
template <>
inline constexpr kernels::gemv_fn<tev_complex8>* kGemv<tev_complex8> = tev_blas_cgemv;
template <>
inline constexpr kernels::gemv_fn<tev_complex16>* kGemv<tev_complex16> = tev_blas_zgemv;

// y := beta y; zero forgets y. A product with alpha = 0 does just that.
template <class T>
void scale_result(int64_t n, const T& beta, T* y, int64_t incy) {
  constexpr int64_t kOne = 1;
  const T zero = element_of<T>(0);
  kernel_calls<T>::xgemv("N", &n, &kOne, &zero, nullptr, &n, nullptr, &kOne, &beta, y, &incy);
}

}  // namespace tev::blas
