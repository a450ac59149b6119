// SPDX-License-Identifier: BSD-3-Clause
// Products whose k is known to the compiler, 1 to 12: a strip of A, one vector high and K deep, stays in registers
// while the columns of C pass by.
//
//   a[0] a[1] .. a[K-1]     vectors down the rows: K registers
//   for each column j:      c(:, j) := alpha (a[0] b(0, j) + a[1] b(1, j) + ...) + beta c(:, j)
//
// The columns do not depend on each other, so that the processor overlaps them; no sum is ever longer than K.
#pragma once

#include "kernels/families/gemm_tiny.h"
#include "kernels/families/gemm_unpacked-inl.h"

namespace tev::TEV_TIER {

inline constexpr int kDeepestFixed = 12;

// The strip of op(A). Transposed: rows lie along k, x.a_step apart, and squares of vectors are transposed; what
// stands for rows beyond the last one is never stored.
template <class T, bool kTransposed, int K, int W, class R>
TEV_INLINE void load_op_a(const block<R>& x, vec<R, W> (&a)[K]) {
  if constexpr (!kTransposed) {
    TEV_UNROLL
    for (int p = 0; p < K; ++p) a[p] = load_rows<W, 1>(x.a + p * x.a_step, 0, x.rows);
  } else {
    constexpr int U = kParts<T>, N = W / U;
    const R* const last = x.a + (x.rows / U - 1) * x.a_step;
    TEV_UNROLL
    for (int p = 0; p < K; p += N) {
      vec<R, W> square[N];
      TEV_UNROLL
      for (int i = 0; i < N; ++i) {
        const R* const row = i < x.rows / U ? x.a + i * x.a_step : last;
        square[i] = load_first<W>(row + p * U, (K - p < N ? K - p : N) * U);
      }
      transpose<W, U>(square);
      TEV_UNROLL
      for (int q = 0; q < N && p + q < K; ++q) a[p + q] = square[q];
    }
  }
}

template <class T, bool kTransposed, int K, int W, class R>
TEV_INLINE void fixed_strip(const block<R>& x, const finish<R>& f) {
  vec<R, W> a[K];
  load_op_a<T, kTransposed, K, W>(x, a);
  const R* b = x.b;
  R* c = x.c;
  const auto column = [&](vec<R, W>(&out)[1]) TEV_LAMBDA {
    vec<R, W> sums[kParts<T>][1] = {};
    const R* from = b;
    TEV_UNROLL
    for (int p = 0; p < K; ++p, from += x.b_step) TEV_UNROLL
    for (int part = 0; part < kParts<T>; ++part) sums[part][0] = fma(a[p], splat<W>(from[part]), sums[part][0]);
    scale_sums<T, W, 1, R>(sums, f, out);
  };
  vec<R, W> out[1];
  if (kMaskedEdges && W == kLanesOf<R> && f.reads_c && x.rows < W) {  // many are read first, as in update_masked
    constexpr int64_t kTogether = 16;
    alignas(64) R old[kTogether * W];
    for (int64_t left = x.n; left > 0; left -= kTogether) {
      const int64_t count = min_of(left, kTogether);
      for (int64_t j = 0; j < count; ++j) store<W>(load_rows<W, 1>(c + j * x.ldc, 0, x.rows), old + j * W);
      for (int64_t j = 0; j < count; ++j, b += x.b_column, c += x.ldc) {
        column(out);
        store_rows<W, 1, R>(plus_beta<T, W>(out[0], load<W>(old + j * W), f), c, 0, x.rows);
      }
    }
    return;
  }
  for (int64_t j = 0; j < x.n; ++j, b += x.b_column, c += x.ldc) {
    column(out);
    put_column<T, W, 1, R>(out, f, c, x.rows);
  }
}

// Strips of W rows, then, where vectors cannot be masked, narrower ones. A is transposed when its rows are not
// contiguous.
template <class T, int K, int W, class R>
TEV_INLINE void fixed_strips(int64_t rows, bool transposed, walk<R> a, block<R> x, const finish<R>& f) {
  constexpr bool kMasked = kMaskedEdges && W == kLanesOf<R>;
  alignas(64) R panel[kDeepestFixed * kLanesOf<R>];
  for (; kMasked ? rows > 0 : rows >= W; rows -= x.rows) {
    x.rows = rows < W ? rows : W;
    x.a = a.at;
    if (transposed) {
      transpose_strip<T>(x.rows, K, a.at, a.row, panel, kLanesOf<R>);
      x.a = panel;
    }
    fixed_strip<T, false, K, W>(x, f);
    a.at += x.rows / kParts<T> * a.row;
    x.c += x.rows;
  }
  if constexpr (!kMasked && W > kParts<T>) {
    if (rows > 0) fixed_strips<T, K, W / 2>(rows, transposed, a, x, f);
  }
}

// C := alpha op(A) op(B) + beta C with k = K.
template <class T, int K>
void gemm_fixed(char transa, char transb, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* b,
                int64_t ldb, T beta, T* c, int64_t ldc) {
  using R = real_of<T>;
  if (m < 1 || n < 1) return;
  if (is_zero(alpha)) return scale_c<T>(m, n, beta, c, ldc);
  const char ta = static_cast<char>(transa & ~0x20), tb = static_cast<char>(transb & ~0x20);
  const walk<R> aw = walk_of(a, ta != 'N', lda), bw = walk_of(b, tb != 'N', ldb);
  const bool transposed = ta != 'N';
  const block<R> x{
      0, n, K, aw.at, transposed ? kLanesOf<R> : aw.column, bw.at, bw.row, bw.column, reals(c), ldc * kParts<T>, 0, 0};
  fixed_strips<T, K, kLanesOf<R>>(m * kParts<T>, transposed, aw, x, finish_of<T>(alpha, beta, ta == 'C', tb == 'C'));
}

// The strip whose depth is x.k, 1 to K.
template <class T, bool kTransposed, int K, class R>
TEV_INLINE void strip_of_any_depth(const block<R>& x, const finish<R>& f) {
  if constexpr (K > 0) {
    if (x.k == K) return fixed_strip<T, kTransposed, K, kLanesOf<R>>(x, f);
    strip_of_any_depth<T, kTransposed, K - 1>(x, f);
  }
}

// A product that is_tiny(). All is inlined and stays in registers: the calls and records of the general way would take
// longer than the sums.
template <class T, bool kTransposed>
TEV_INLINE void gemm_tiny_of(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a,
                             int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  using R = real_of<T>;
  const char ta = static_cast<char>(transa & ~0x20), tb = static_cast<char>(transb & ~0x20);
  const walk<R> aw = walk_of(a, false, lda), bw = walk_of(b, tb != 'N', ldb);
  const block<R> x{m * kParts<T>, n, k, aw.at, aw.column, bw.at, bw.row, bw.column, reals(c), ldc * kParts<T>, 0, 0};
  strip_of_any_depth<T, kTransposed, kTinyDepth>(x, finish_of<T>(alpha, beta, kTransposed && ta == 'C', tb == 'C'));
}

template <class T>
TEV_INLINE void gemm_tiny(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                          const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  if ((transa & ~0x20) == 'N')
    return gemm_tiny_of<T, false>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  gemm_tiny_of<T, true>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace tev::TEV_TIER
