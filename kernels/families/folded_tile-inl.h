// SPDX-License-Identifier: BSD-3-Clause
// A tile of C (unpacked_tile-inl.h) of so few rows that a register holds F columns of A, two or four, from columns of B
// that are contiguous: F steps of k take one multiply-add. A register has F sums of each element of C, which the end
// adds up. T is real.
//
//   acc[j]      +=  a(:, p)  a(:, p+1) ..      columns of H = W / F rows
//                 * b(p, j)  b(p+1, j) ..      each repeated H times
#pragma once

#include "kernels/families/unpacked_tile-inl.h"

namespace tev::TEV_TIER {

template <int W, int F, class R, int... I>
TEV_INLINE vec<R, W> repeated(vec<R, F> v, lanes<I...>) {
  return __builtin_shufflevector(v, v, (I / (W / F))...);
}

template <int W, int F, class R>
TEV_INLINE vec<R, W / F> sum_of_columns(vec<R, W> v) {
  R all[W];
  store<W>(v, all);
  vec<R, W / F> sum = load<W / F>(all);
  TEV_UNROLL
  for (int i = W / F; i < W; i += W / F) sum += load<W / F>(all + i);
  return sum;
}

template <class T, bool kTransposed, int W, int F, int NC, class R>
TEV_INLINE void folded_tile(const block<R>& x, const R* b, R* c, const finish<R>& f) {
  constexpr int H = W / F, kSets = NC > 4 ? 1 : NC > 2 ? 2 : 4;  // enough sums to hide the latency of an addition
  vec<R, W> acc[kSets][NC] = {};
  const R* a = x.a;
  const R* const end = b + x.k;
  for (; b + kSets * F <= end; b += kSets * F) {
    TEV_UNROLL
    for (int s = 0; s < kSets; ++s, a += F * x.a_step) {
      const auto av = load_columns<H, F>(a, x.a_step);
      TEV_UNROLL
      for (int j = 0; j < NC; ++j)
        acc[s][j] = fma(av, repeated<W, F, R>(load<F>(b + s * F + j * x.b_column), all_lanes<W>{}), acc[s][j]);
    }
  }
  vec<R, H> sums[NC][1], out[NC][1];
  TEV_UNROLL
  for (int j = 0; j < NC; ++j) {
    TEV_UNROLL
    for (int s = 1; s < kSets; ++s) acc[0][j] += acc[s][j];
    sums[j][0] = sum_of_columns<W, F, R>(acc[0][j]);
  }
  for (; b < end; ++b, a += x.a_step) TEV_UNROLL
  for (int j = 0; j < NC; ++j) sums[j][0] = fma(load<H>(a), splat<H>(b[j * x.b_column]), sums[j][0]);
  TEV_UNROLL
  for (int j = 0; j < NC; ++j) scale_sums<T, H, 1, R>(sums + j, f, out[j]);
  if constexpr (kTransposed) {
    put_transposed<T, H, 1, NC, R>(out, f, c, x.ldc, H);
  } else {
    TEV_UNROLL
    for (int j = 0; j < NC; ++j) put_column<T, H, 1, R>(out[j], f, c + j * x.ldc, H);
  }
}

}  // namespace tev::TEV_TIER
