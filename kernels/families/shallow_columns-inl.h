// SPDX-License-Identifier: BSD-3-Clause
// Shallow products of real elements, k = 1 to 8 known to the compiler: the elements of a few columns of B, times alpha,
// stay in registers while the rows of A and C pass by.
//
//                         b(0, j) .. b(0, j+NC-1)
//                         b(1, j) ..
//   a(i .. i+W-1, 0..K-1) c(i .. i+W-1, j) ..              vectors down the rows
//
// Columns of C are written from top to bottom, as far as the segment of A goes that stays in the first cache. No sum is
// longer than K, so that nothing waits, and nothing is left to do at the end of a tile. Rows of a transposed A become
// columns of a panel first, a segment at a time.
#pragma once

#include "kernels/families/gemm_shallow.h"
#include "kernels/families/in_place-inl.h"
#include "kernels/families/transposed_strip-inl.h"

namespace tev::TEV_TIER {

// Columns whose elements of B, sums and vector of A fit into the registers, four at most, or two where they are few;
// and vectors of each that are written together: two lines next to each other come faster than one here and one there.
// A single step of k waits for C alone, and the fewer columns of it are under way the better. So do two where a C that
// comes from memory has long columns. Found on 48 KiB / 1 MiB.
template <int K>
inline constexpr int kColumnsAtDepth = K == 1                                 ? 1
                                       : K > 2 && kVectorRegisters == 16      ? 2
                                       : (kVectorRegisters - 2) / (K + 1) < 4 ? (kVectorRegisters - 2) / (K + 1)
                                                                              : 4;
template <int K>
inline constexpr int kVectorsAtDepth = K == 1                                                           ? 4
                                       : K == 2 || (K + 2) * kColumnsAtDepth<K> + 2 <= kVectorRegisters ? 2
                                                                                                        : 1;
inline constexpr int64_t kSinglyColumn = 6 * 1024, kSinglyC = 6 * 1024 * 1024;

// NC columns of C := A B or A B + beta C, alpha being in B.
template <bool kReadsC, int K, int NC, class R>
TEV_INLINE void shallow_group(const block<R>& x, const R (&b)[K][NC], R* c, R beta) {
  const auto step = [&](auto part, int64_t i) TEV_LAMBDA {
    constexpr int W = part.W;
    vec<R, W> sum[NC];
    TEV_UNROLL
    for (int p = 0; p < K; ++p) {
      const auto a = part.load(x.a + p * x.a_step + i);
      TEV_UNROLL
      for (int j = 0; j < NC; ++j) sum[j] = p == 0 ? a * splat<W>(b[p][j]) : fma(a, splat<W>(b[p][j]), sum[j]);
    }
    TEV_UNROLL
    for (int j = 0; j < NC; ++j) {
      if constexpr (kReadsC) sum[j] = fma(part.load_own(c + j * x.ldc + i), splat<W>(beta), sum[j]);
      part.store(sum[j], c + j * x.ldc + i);
    }
  };
  for_parts<R, kVectorsAtDepth<K>>(x.rows, step);
}

// The columns j to n - 1 of C, NC at a time as long as there are so many.
template <int K, int NC, class R>
TEV_INLINE int64_t shallow_groups(const block<R>& x, int64_t j, const finish<R>& f) {
  for (; j + NC <= x.n; j += NC) {
    R b[K][NC];
    TEV_UNROLL
    for (int p = 0; p < K; ++p) TEV_UNROLL
    for (int q = 0; q < NC; ++q) b[p][q] = f.alpha[0] * x.b[p * x.b_step + (j + q) * x.b_column];
    if (f.reads_c)
      shallow_group<true, K, NC>(x, b, x.c + j * x.ldc, f.beta_re[0]);
    else
      shallow_group<false, K, NC>(x, b, x.c + j * x.ldc, f.beta_re[0]);
  }
  return j;
}

template <int K, class R>
__attribute__((noinline)) void shallow_segment(const block<R>& segment, const finish<R>& f) {
  const block<R> x = segment;  // a copy, so that it stays in registers while C is written
  const int64_t column = x.rows * int64_t{sizeof(R)};
  const bool singly = K == 2 && column >= kSinglyColumn && column * x.n > kSinglyC;
  const int64_t j = singly ? 0 : shallow_groups<K, kColumnsAtDepth<K>>(x, 0, f);
  if constexpr (1 < kColumnsAtDepth<K>) shallow_groups<K, 1>(x, j, f);
}

template <int K, class R>
TEV_INLINE void shallow_segment_of_any_depth(const block<R>& x, const finish<R>& f) {
  if constexpr (K > 0) {
    if (x.k == K) return shallow_segment<K>(x, f);
    shallow_segment_of_any_depth<K - 1>(x, f);
  }
}

// C := alpha op(A) op(B) + beta C where is_written_by_columns().
template <class R>
__attribute__((noinline)) void by_shallow_columns(char transa, char transb, int64_t m, int64_t n, int64_t k, R alpha,
                                                  const R* a, int64_t lda, const R* b, int64_t ldb, R beta, R* c,
                                                  int64_t ldc) {
  constexpr int64_t kLong = kShallowSegmentBytes / static_cast<int64_t>(sizeof(R)), W = kLanesOf<R>;
  alignas(64) R panel[kLong];
  const bool ta = (transa & ~0x20) != 'N', tb = (transb & ~0x20) != 'N';
  const int64_t most = kLong / k / W * W;
  const int64_t height = (stretch(m, most) + W - 1) / W * W;
  const finish<R> f = finish_of(alpha, beta, false, false);
  block<R> x{0, n, k, nullptr, ta ? height : lda, b, tb ? ldb : 1, tb ? 1 : ldb, nullptr, ldc, 0, 0};
  for (int64_t i = 0; i < m; i += height) {
    x.rows = m - i < height ? m - i : height;
    x.a = ta ? panel : a + i;
    x.c = c + i;
    if (ta) transpose_strip<R>(x.rows, k, a + i * lda, lda, panel, height);
    shallow_segment_of_any_depth<kDeepestByColumns>(x, f);
  }
}

}  // namespace tev::TEV_TIER
