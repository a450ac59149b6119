// SPDX-License-Identifier: BSD-3-Clause
// C := alpha A B + beta C with a small square A of real numbers and any number of columns. Where a column does not
// fill a register several of them do, and alpha A stays there, repeated for each of them. M = 4, registers of 8:
//
//   a(0..3, k)  a(0..3, k)      for each k = 0 .. 3
//   b(k, j) ..  b(k, j+1) ..    one shuffle of two columns of B
//   c(0..3, j)  c(0..3, j+1)
#pragma once

#include "kernels/families/in_place-inl.h"

namespace tev::TEV_TIER {

template <int kFirst, class R, int W, int... I>
TEV_INLINE vec<R, static_cast<int>(sizeof...(I))> lanes_from(vec<R, W> v, lanes<I...>) {
  return __builtin_shufflevector(v, v, (kFirst + I)...);
}
template <int M, int k, class R, int... I>
TEV_INLINE vec<R, static_cast<int>(sizeof...(I))> spread_row(vec<R, sizeof...(I)> v, lanes<I...>) {
  return __builtin_shufflevector(v, v, (I / M * M + k)...);
}

// N columns of M rows.
template <int M, int N, class R>
TEV_INLINE void store_columns(vec<R, M * N> v, R* x, int64_t ld) {
  if constexpr (N == 1) {
    store<M>(v, x);
  } else {
    constexpr int kHalf = M * N / 2;
    if (ld == M) return store<M * N>(v, x);
    store_columns<M, N / 2>(lanes_from<0, R, M * N>(v, all_lanes<kHalf>{}), x, ld);
    store_columns<M, N / 2>(lanes_from<kHalf, R, M * N>(v, all_lanes<kHalf>{}), x + N / 2 * ld, ld);
  }
}

// What row k of a few columns gives to all rows.
template <int M, int N, int k = 0, class R>
TEV_INLINE void add_rows(const vec<R, M * N> (&a)[M], vec<R, M * N> x, vec<R, M * N>& sum) {
  sum = fma(a[k], spread_row<M, k, R>(x, all_lanes<M * N>{}), sum);
  if constexpr (k + 1 < M) add_rows<M, N, k + 1, R>(a, x, sum);
}

// From column j on, N at a time; then, of A's columns once less often in a register, the rest.
template <int M, int N, class R>
TEV_INLINE void multiply_columns(int64_t j, int64_t n, const vec<R, M * N> (&a)[M], const R* b, int64_t ldb, R beta,
                                 R* c, int64_t ldc) {
  const bool forget = is_zero(beta);
  for (; j + N <= n; j += N) {
    R* const to = c + j * ldc;
    vec<R, M* N> sum = {};
    if (!forget) sum = load_columns<M, N>(to, ldc) * splat<M * N>(beta);
    add_rows<M, N, 0, R>(a, load_columns<M, N>(b + j * ldb, ldb), sum);
    store_columns<M, N>(sum, to, ldc);
  }
  if constexpr (N > 1) {
    vec<R, M * N / 2> half[M];
    TEV_UNROLL
    for (int k = 0; k < M; ++k) half[k] = lanes_from<0, R, M * N>(a[k], all_lanes<M * N / 2>{});
    multiply_columns<M, N / 2>(j, n, half, b, ldb, beta, c, ldc);
  }
}

template <int M, class R>
__attribute__((noinline)) void multiply_few_rows_of(int64_t n, R alpha, const R* a, const R* b, int64_t ldb, R beta,
                                                    R* c, int64_t ldc) {
  constexpr int N = kLanes<R> / M;
  vec<R, kLanes<R>> repeated[M];
  TEV_UNROLL
  for (int k = 0; k < M; ++k) {
    const vec<R, M> column = load<M>(a + k * M) * splat<M>(alpha);
    TEV_UNROLL
    for (int i = 0; i < kLanes<R>; ++i) repeated[k][i] = column[i % M];
  }
  multiply_columns<M, N>(0, n, repeated, b, ldb, beta, c, ldc);
}

// C := alpha A B + beta C, A m x m without gaps. False: m is not a power of two up to a register, nothing was computed.
template <int M = 2, class R>
TEV_INLINE bool multiply_few_rows(int64_t m, int64_t n, R alpha, const R* a, const R* b, int64_t ldb, R beta, R* c,
                                  int64_t ldc) {
  if constexpr (M > kLanes<R>) {
    return false;
  } else {
    if (m != M) return multiply_few_rows<2 * M>(m, n, alpha, a, b, ldb, beta, c, ldc);
    return multiply_few_rows_of<M>(n, alpha, a, b, ldb, beta, c, ldc), true;
  }
}

}  // namespace tev::TEV_TIER
