// SPDX-License-Identifier: BSD-3-Clause
// A tile of C from operands that are both contiguous along k: C(MR x NR) := alpha A B + beta C, each element a sum of
// products of vectors along k, which is reduced to one number at the end.
//
//                      b(p .. p+W-1, 0) .. b(p .. p+W-1, NR-1)
//   a(0, p .. p+W-1)   acc[0][0]        .. acc[NR-1][0]
//   a(1, p .. p+W-1)   acc[0][1]        .. acc[NR-1][1]
//   ...
//
// Complex numbers need two sums each, of a b (re re, im im: P below) and of a swap_pairs(b) (re im, im re: Q):
//   a b = (P.even - P.odd, Q.even + Q.odd),  conjugates change signs at the end only.
#pragma once

#include "kernels/families/unpacked_tile-inl.h"

namespace tev::TEV_TIER {

// The largest tile, in elements: its sums, a vector of each row of A and one of B (two, with its parts swapped) fill
// the registers.
template <class T>
inline constexpr int kDotRows = kVectorRegisters == 32     ? 6 / kParts<T>
                                : kHasFma&& kParts<T> == 1 ? 3
                                                           : 2;
template <class T>
inline constexpr int kDotColumns = kVectorRegisters == 32 || kParts<T> == 1 ? 4
                                   : kHasFma                                ? 3
                                                                            : 2;

// So many sums at least, or the additions wait for each other.
inline constexpr int kChains = 4;

// What is fetched while a tile is computed: of rows that are longer than kShortRow, so many bytes on along k; of
// shorter ones the same stretch of the rows (columns) of the next tile.
inline constexpr int kDotAhead = 768, kShortRow = 4096;

// Operands of the tiles of one block, in reals. Rows of A and columns of B are contiguous.
template <class R>
struct dot_block {
  int64_t depth;  // reals along k
  const R* a;
  int64_t a_row;
  const R* b;
  int64_t b_column;
  R* c;
  int64_t ldc;
  int64_t a_ahead, b_ahead;  // from what is used to what is fetched
  bool from_memory;
  upcoming* next = nullptr;  // what to fetch by reading::stretches, or null
};

// Sums of units (one lane, or re and im) of `count` vectors: unit i of the result is the sum of the units of v[i].
template <int W, int U, int D, class V>
TEV_INLINE V sum_tree(V (&v)[W / U]) {
  if constexpr (D > 0) {
    TEV_UNROLL
    for (int i = 0; i < D; ++i) {
      exchange<W, U, D>(v[i], v[i + D], all_lanes<W>{});
      v[i] += v[i + D];
    }
    return sum_tree<W, U, D / 2>(v);
  } else {
    return v[0];
  }
}

template <int W, class R, int... I>
TEV_INLINE vec<R, W / 2> sum_of_halves(vec<R, W> v, lanes<I...>) {
  return __builtin_shufflevector(v, v, I...) + __builtin_shufflevector(v, v, (I + W / 2)...);
}

// Lanes of the vector that holds `count` sums: not many more than it needs.
template <int W, int U>
constexpr int lanes_for(int count) {
  int lanes = W;
  while (lanes / U >= 2 * count) lanes /= 2;
  return lanes;
}

template <int U, int kCount, int W, class R, int kTo = lanes_for<W, U>(kCount)>
TEV_INLINE vec<R, kTo> sums_of(const vec<R, W> (&v)[kCount]) {
  if constexpr (kTo < W) {
    vec<R, W / 2> halves[kCount];
    TEV_UNROLL
    for (int i = 0; i < kCount; ++i) halves[i] = sum_of_halves<W, R>(v[i], all_lanes<W / 2>{});
    return sums_of<U, kCount, W / 2, R>(halves);
  } else {
    vec<R, W> square[W / U] = {};
    TEV_UNROLL
    for (int i = 0; i < kCount; ++i) square[i] = v[i];
    return sum_tree<W, U, W / U / 2>(square);
  }
}

template <int W, class R, int... I>
TEV_INLINE vec<R, W> evens(vec<R, W> x, vec<R, W> y, lanes<I...>) {
  return __builtin_shufflevector(x, y, (I % 2 == 0 ? I : W + I - 1)...);
}
template <int W, class R, int... I>
TEV_INLINE vec<R, W> odds(vec<R, W> x, vec<R, W> y, lanes<I...>) {
  return __builtin_shufflevector(x, y, (I % 2 == 0 ? I + 1 : W + I)...);
}

// kCount elements of a column of C from their sums.
template <class T, int kCount, int W, class R>
TEV_INLINE void put_sums(const vec<R, W> (&sums)[kParts<T>][kCount], const finish<R>& f, R* c) {
  constexpr int kLanes = lanes_for<W, kParts<T>>(kCount);
  auto value = sums_of<kParts<T>, kCount, W, R>(sums[0]);
  if constexpr (kParts<T> == 1) {
    value = value * splat<kLanes>(f.u[0][0]);
  } else {
    // (P.even, Q.even) and (P.odd, Q.odd): with the signs of the conjugates the two halves of the product
    const auto q = sums_of<kParts<T>, kCount, W, R>(sums[1]);
    const auto first = evens<kLanes, R>(value, q, all_lanes<kLanes>{});
    const auto second = odds<kLanes, R>(value, q, all_lanes<kLanes>{});
    value = fma(second, splat_pair<kLanes>(f.dot_odd), first * splat_pair<kLanes>(f.dot_even));
    value = times<T, kLanes>(T{f.alpha[0], f.alpha[1]}, value);
  }
  put_row<T, kCount * kParts<T>, kLanes>(value, f, c);
}

// A sum as the loop leaves it. Where only 512-bit instructions reach the upper 16 registers, the halves that the
// reduction works on lie in the lower ones; the way through memory keeps the loop from being held to those as well.
template <int W, class R>
TEV_INLINE vec<R, W> finished(vec<R, W> v) {
#if defined(__AVX512F__) && !defined(__AVX512VL__)
  __asm__("" : "+m"(v));
#endif
  return v;
}

// A line of each row and column, some time before it is used: from memory into the second cache, since more of it can
// be on its way there (on 32 KiB / 1 MiB up to 1.7 times as fast), else into the first.
template <int MR, int NR, int kInto, class R>
TEV_INLINE void fetch_ahead(const dot_block<R>& x, const R* a, const R* b) {
  TEV_UNROLL
  for (int i = 0; i < MR; ++i) __builtin_prefetch(a + i * x.a_row + x.a_ahead, 0, kInto);
  TEV_UNROLL
  for (int j = 0; j < NR; ++j) __builtin_prefetch(b + j * x.b_column + x.b_ahead, 0, kInto);
}

template <class T, int MR, int NR, reading Reading, class R>
__attribute__((noinline)) void dot_tile(const dot_block<R>& x, const R* a, const R* b, R* c, const finish<R>& f) {
  constexpr int W = kLanesOf<R>, U = kParts<T>, N = W / U;
  constexpr int kSums = kChains <= NR * U * MR ? 1 : kChains / (NR * U * MR);  // of each element
  vec<R, W> sum[kSums][NR][U][MR] = {};
  const auto step = [&](auto& acc, int64_t p, auto load_vector) TEV_LAMBDA {
    vec<R, W> av[MR];
    TEV_UNROLL
    for (int i = 0; i < MR; ++i) av[i] = load_vector(a + i * x.a_row + p);
    TEV_UNROLL
    for (int j = 0; j < NR; ++j) {
      const auto bv = load_vector(b + j * x.b_column + p);
      TEV_UNROLL
      for (int i = 0; i < MR; ++i) acc[j][0][i] = fma(av[i], bv, acc[j][0][i]);
      if constexpr (U == 2) {
        const auto swapped = swap_pairs<W, R>(bv);
        TEV_UNROLL
        for (int i = 0; i < MR; ++i) acc[j][1][i] = fma(av[i], swapped, acc[j][1][i]);
      }
    }
  };
  const auto whole = [](const R* from) TEV_LAMBDA { return load<W>(from); };
  constexpr int kLine = kLineBytes / static_cast<int>(sizeof(R));
  constexpr int kStretch = kLine > kSums * W ? kLine : kSums * W;
  int64_t p = 0;
  for (; p + kStretch <= x.depth; p += kStretch) {
    if constexpr (Reading == reading::stretches)
      if (p % (kStepsPerFetch * kLine) == 0) fetch(*x.next);
    TEV_UNROLL
    for (int q = 0; q < kStretch && Reading == reading::ahead; q += kLine) {
      x.from_memory ? fetch_ahead<MR, NR, kIntoSecondCache>(x, a + p + q, b + p + q)
                    : fetch_ahead<MR, NR, kIntoFirstCache>(x, a + p + q, b + p + q);
    }
    TEV_UNROLL
    for (int q = 0; q < kStretch; q += W) step(sum[q / W % kSums], p + q, whole);
  }
  auto& acc = sum[0];
  TEV_UNROLL
  for (int q = 1; q < kSums; ++q) TEV_UNROLL
  for (int j = 0; j < NR; ++j) TEV_UNROLL
  for (int i = 0; i < U * MR; ++i) acc[j][i / MR][i % MR] += sum[q][j][i / MR][i % MR];
  for (; p + W <= x.depth; p += W) step(acc, p, whole);
  if (p < x.depth) step(acc, p, [&](const R* from) TEV_LAMBDA { return load_first<W>(from, x.depth - p); });
  constexpr int kGroup = MR < N ? MR : N;  // as many sums as a vector holds
  TEV_UNROLL
  for (int j = 0; j < NR; ++j) {
    TEV_UNROLL
    for (int i = 0; i + kGroup <= MR; i += kGroup) {
      vec<R, W> sums[U][kGroup];
      TEV_UNROLL
      for (int q = 0; q < U * kGroup; ++q)
        sums[q / kGroup][q % kGroup] = finished<W, R>(acc[j][q / kGroup][i + q % kGroup]);
      put_sums<T, kGroup, W, R>(sums, f, c + j * x.ldc + i * U);
    }
    if constexpr (MR % kGroup != 0) {
      constexpr int kLast = MR % kGroup;
      vec<R, W> sums[U][kLast];
      TEV_UNROLL
      for (int q = 0; q < U * kLast; ++q)
        sums[q / kLast][q % kLast] = finished<W, R>(acc[j][q / kLast][MR - kLast + q % kLast]);
      put_sums<T, kLast, W, R>(sums, f, c + j * x.ldc + (MR - kLast) * U);
    }
  }
}

template <class T, int MR, int NR, class R>
TEV_INLINE void dot_tile_of(int64_t rows, int64_t columns_, const dot_block<R>& x, const R* a, const R* b, R* c,
                            const finish<R>& f) {
  if constexpr (MR > 1) {
    if (rows < MR) return dot_tile_of<T, MR - 1, NR>(rows, columns_, x, a, b, c, f);
  }
  if constexpr (NR > 1) {
    if (columns_ < NR) return dot_tile_of<T, MR, NR - 1>(rows, columns_, x, a, b, c, f);
  }
  if constexpr (2 * MR > kDotRows<T> && 2 * NR > kDotColumns<T> && kHasFma)
    if (x.next != nullptr) return dot_tile<T, MR, NR, reading::stretches>(x, a, b, c, f);
  dot_tile<T, MR, NR, reading::ahead>(x, a, b, c, f);
}

// The next `most` of what is left, the last two shares alike.
TEV_INLINE int64_t next_share(int64_t left, int64_t most) {
  return left >= 2 * most || left <= most ? (left < most ? left : most) : (left + 1) / 2;
}

// All of C(m x n). The longer side of C is the outer loop, so that its operand is streamed once. short_rows: so are the
// rows and columns that this is a stretch of.
template <class T, class R>
TEV_INLINE void by_dots(int64_t m, int64_t n, dot_block<R> x, bool short_rows, const finish<R>& f) {
  constexpr int MR = kDotRows<T>, NR = kDotColumns<T>, U = kParts<T>;
  x.a_ahead = x.b_ahead = kDotAhead / static_cast<int64_t>(sizeof(R));
  if (short_rows && m >= n && m > MR) x.a_ahead = MR * x.a_row;
  if (short_rows && m < n && n > NR) x.b_ahead = NR * x.b_column;
  if (m >= n) {
    for (int64_t i = 0, rows = 0; i < m; i += rows) {
      rows = next_share(m - i, MR);
      for (int64_t j = 0, count = 0; j < n; j += count) {
        count = next_share(n - j, NR);
        dot_tile_of<T, MR, NR>(rows, count, x, x.a + i * x.a_row, x.b + j * x.b_column, x.c + i * U + j * x.ldc, f);
      }
    }
  } else {
    for (int64_t j = 0, count = 0; j < n; j += count) {
      count = next_share(n - j, NR);
      for (int64_t i = 0, rows = 0; i < m; i += rows) {
        rows = next_share(m - i, MR);
        dot_tile_of<T, MR, NR>(rows, count, x, x.a + i * x.a_row, x.b + j * x.b_column, x.c + i * U + j * x.ldc, f);
      }
    }
  }
}

}  // namespace tev::TEV_TIER
