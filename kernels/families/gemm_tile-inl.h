// SPDX-License-Identifier: BSD-3-Clause
// The packed inner kernel: C(m x n) := beta C + A B from strips of A and of B (strips-inl.h). For each strip of A, kept
// in the first cache, all strips of B pass by; the tile of C they make stays in registers for the whole k loop.
//
//                  b[0] .. b[NR-1]          one row of the B strip, broadcast
//   a[0 .. W-1]    acc[0][0] .. acc[NR-1][0]
//   a[W .. 2W-1]   acc[0][1] .. acc[NR-1][1]        256-bit d, 12x4: 12 acc + 3 of A + 1 of B = 16 of 16 registers
//   a[2W .. 3W-1]  acc[0][2] .. acc[NR-1][2]        512-bit d, 24x8: 24 + 3 + 1 = 28 of 32
//
// A complex tile is the real tile of (2 mr) x (2 nr): the strips already hold re, im, re, im ...; only the write-back
// differs, where the columns for b.re and b.im are combined.
#pragma once

#include "kernels/families/last_rows-inl.h"

namespace tev::TEV_TIER {

// Sizes in reals. kHeight rows of each of kStrips strips of A, which are kStripHeight tall, by NR columns: of one strip
// of B, which is kPitch wide, or of several whole ones.
template <class R_, int kStrips_, int kHeight_, int kStripHeight_, int NR_, int kPitch_>
struct tile_shape {
  using R = R_;
  static constexpr int kStrips = kStrips_, kHeight = kHeight_, kStripHeight = kStripHeight_, NR = NR_, kPitch = kPitch_;
  static constexpr int W = lanes_dividing<R>(kHeight), kPerStrip = kHeight / W, V = kStrips * kPerStrip;
  static constexpr int MR = kStrips * kHeight;
  static_assert(NR <= kPitch || NR % kPitch == 0);
};

template <class S>
struct tile {
  vec<typename S::R, S::W> acc[S::NR][S::V];
};

template <class S>
TEV_INLINE void clear(tile<S>& t) {
  TEV_UNROLL
  for (auto& column : t.acc) {
    TEV_UNROLL
    for (auto& lanes_of_column : column) lanes_of_column = {};
  }
}

// Where a broadcast costs a shuffle of its own the row of B is rotated instead: W columns take W - 1 shuffles, and lane
// l of their accumulators holds the column that the lane met.
//
//   W = 2:   (a0, a1) (b0, b1) -> acc[0]: column 0, column 1      (a0, a1) (b1, b0) -> acc[1]: column 1, column 0
template <class S>
inline constexpr bool kRotated = kRotatesB<typename S::R>&& S::W > 1 && S::NR % S::W == 0 && S::kPitch % S::W == 0;

template <int kBy, class V, int... I>
TEV_INLINE V rotate(V v, lanes<I...>) {
  return __builtin_shufflevector(v, v, ((I + kBy) % static_cast<int>(sizeof...(I)))...);
}

template <int kColumn, class S, class V>
TEV_INLINE void multiply_rotated(const V (&row)[S::V], V columns, tile<S>& t) {
  const V factor = rotate<kColumn % S::W>(columns, all_lanes<S::W>{});
  TEV_UNROLL
  for (int i = 0; i < S::V; ++i) t.acc[kColumn][i] = fma(row[i], factor, t.acc[kColumn][i]);
  if constexpr ((kColumn + 1) % S::W != 0) multiply_rotated<kColumn + 1>(row, columns, t);
}

template <int kColumn, class S, class R, class V>
TEV_INLINE void step_rotated(const V (&row)[S::V], const R* b, int64_t apart, tile<S>& t) {
  multiply_rotated<kColumn>(row, load<S::W>(b + kColumn / S::kPitch * apart + kColumn % S::kPitch), t);
  if constexpr (kColumn + S::W < S::NR) step_rotated<kColumn + S::W>(row, b, apart, t);
}

// Puts the lanes of rotated accumulators into their columns.
template <class S>
TEV_INLINE void unrotate(tile<S>& t) {
  TEV_UNROLL
  for (int first = 0; first < S::NR; first += S::W) {
    TEV_UNROLL
    for (int i = 0; i < S::V; ++i) {
      vec<typename S::R, S::W> met[S::W];
      TEV_UNROLL
      for (int q = 0; q < S::W; ++q) met[q] = t.acc[first + q][i];
      TEV_UNROLL
      for (int q = 0; q < S::W; ++q) {
        TEV_UNROLL
        for (int l = 0; l < S::W; ++l) t.acc[first + q][i][l] = met[(q + S::W - l) % S::W][l];
      }
    }
  }
}

// One step along strips that are k deep.
template <class S, class R>
TEV_INLINE void step(int64_t k, const R* a, const R* b, tile<S>& t) {
  vec<R, S::W> row[S::V];
  TEV_UNROLL
  for (int i = 0; i < S::V; ++i)
    row[i] = load<S::W>(a + i / S::kPerStrip * (k * S::kStripHeight) + i % S::kPerStrip * S::W);
  if constexpr (kRotated<S>) {
    step_rotated<0>(row, b, k * S::kPitch, t);
  } else {
    TEV_UNROLL
    for (int j = 0; j < S::NR; ++j) {
      const auto factor = splat<S::W>(b[j / S::kPitch * (k * S::kPitch) + j % S::kPitch]);
      TEV_UNROLL
      for (int i = 0; i < S::V; ++i) t.acc[j][i] = fma(row[i], factor, t.acc[j][i]);
    }
  }
}

// Strips of A times columns of one of B. The lines of C are fetched one per step at first, then one line of the next
// strip of A every fourth step; where a strip of A is too large for the first cache, its own lines ahead of use. k
// steps of strips that are `depth` deep.
template <class S, int kColumns, class R>
TEV_INLINE void accumulate(int64_t k, int64_t depth, const R* a, const R* b, const R* c, int64_t ldc, const char* next,
                           tile<S>& t) {
  constexpr int kLine = kLineBytes / sizeof(R), kAhead = 8;
  int64_t p = 0;
  for (int line = 0; line < S::MR; line += kLine)
    for (int j = 0; j < kColumns && p < k; ++j, ++p, a += S::kStripHeight, b += S::kPitch) {
      __builtin_prefetch(c + line + j * ldc, 1);
      step(depth, a, b, t);
    }
  for (; p + 4 <= k; p += 4) {
    __builtin_prefetch(next, 0, kIntoSecondCache);
    next += kLineBytes;
    TEV_UNROLL
    for (int u = 0; u < 4; ++u, a += S::kStripHeight, b += S::kPitch) {
      if constexpr (kLargeStrips) {
        TEV_UNROLL
        for (int i = 0; i < S::MR; i += kLine)
          __builtin_prefetch(a + (i / S::kHeight * depth + kAhead) * S::kStripHeight + i % S::kHeight);
      }
      step(depth, a, b, t);
    }
  }
  for (; p < k; ++p, a += S::kStripHeight, b += S::kPitch) step(depth, a, b, t);
}

// Column j of the product, vector i of it.
template <class T, class S>
TEV_INLINE auto product_of(const tile<S>& t, int j, int i) {
  using R = real_of<T>;
  if constexpr (kParts<T> == 1)
    return t.acc[j][i];
  else
    return t.acc[2 * j][i] + swap_pairs<S::W, R>(t.acc[2 * j + 1][i]) * alternate<S::W>(R(-1), R(1));
}

template <class T, beta_class kBeta, class S>
TEV_INLINE void write_back(const tile<S>& t, T beta, real_of<T>* c, int64_t ldc) {
  TEV_UNROLL
  for (int j = 0; j < S::NR / kParts<T>; ++j, c += ldc) {
    TEV_UNROLL
    for (int i = 0; i < S::V; ++i) {
      auto x = product_of<T>(t, j, i);
      real_of<T>* const to = c + i * S::W;
      if constexpr (kBeta == beta_class::one) x += load<S::W>(to);
      if constexpr (kBeta == beta_class::general) x += times<T, S::W>(beta, load<S::W>(to));
      store<S::W>(x, to);
    }
  }
}

// Elements of T: kHeight rows of kStrips strips of A times kColumns of strips of B that are kPitch wide. k steps of
// strips that are `depth` deep. ldc in reals.
template <class T, int kStrips, int kHeight, int kColumns, int kPitch, int kStripHeight = kHeight>
__attribute__((noinline)) void multiply_strips(int64_t k, int64_t depth, const real_of<T>* a, const real_of<T>* b,
                                               const T* beta, beta_class kind, real_of<T>* c, int64_t ldc,
                                               const char* next) {
  constexpr int P = kParts<T>;
  using shape = tile_shape<real_of<T>, kStrips, P * kHeight, P * kStripHeight, P * kColumns, P * kPitch>;
  tile<shape> t;
  clear(t);
  accumulate<shape, kColumns>(k, depth, a, b, c, ldc, next, t);
  if constexpr (kRotated<shape>) unrotate(t);
  if (kind == beta_class::zero)
    write_back<T, beta_class::zero>(t, *beta, c, ldc);
  else if (kind == beta_class::one)
    write_back<T, beta_class::one>(t, *beta, c, ldc);
  else
    write_back<T, beta_class::general>(t, *beta, c, ldc);
}

// Calls body(width<columns>, width<pitch>, start) for the strips of B: for several whole ones at once where a tile of
// kHeight has too few sums to keep the multipliers busy, then one by one.
template <class T, int kHeight, int NR, class Body>
TEV_INLINE void for_columns(int64_t n, const Body& body) {
  constexpr int W = kVectorBytes / static_cast<int>(sizeof(T)), V = (kHeight + W - 1) / W;
  constexpr int kFit = (kVectorRegisters - V - 2) / (V * NR * kParts<T>),
                kTogether = kHasFma && kFit > 1 ? kFit * NR : 0;
  int64_t j = 0;
  if constexpr (kTogether > 0)
    for (; j + kTogether <= n; j += kTogether) body(width<kTogether>{}, width<NR>{}, j);
  for_strips<NR>(
      n - j, [&](auto strip, int64_t s) __attribute__((always_inline)) { body(strip, strip, j + s); });
}

// kStrips strips of A against the panel of B: n columns.
template <class T, int kStrips, int kHeight, int NR>
TEV_INLINE void multiply_row(int64_t n, int64_t k, const T* a, const T* b, const T* beta, beta_class kind, T* c,
                             int64_t ldc) {
  constexpr int P = kParts<T>;
  const auto* next = reinterpret_cast<const char*>(a + kStrips * kHeight * k);
  for_columns<T, kStrips * kHeight, NR>(
      n, [&](auto columns, auto pitch, int64_t j) __attribute__((always_inline)) {
        constexpr int kAll = decltype(columns)::value, kPitch = decltype(pitch)::value;
        constexpr int kColumns = kStrips > 1 && kAll * kStrips > NR ? kAll / kStrips : kAll;
        for (int half = 0; half < kAll; half += kColumns) {
          multiply_strips<T, kStrips, kHeight, kColumns, kPitch>(k, k, reals(a), reals(b + j * k + half), beta, kind,
                                                                 reals(c + (j + half) * ldc), P * ldc, next);
          next += k / 4 * kLineBytes;
        }
      });
}

// Several strips of A against one strip of B after the other, down the columns of C: row by row the tiles of a shallow
// product would touch a new page of C for every few cycles of work.
inline constexpr int kStripsDown = 8;
template <class T, int MR, int NR>
TEV_INLINE void multiply_down(int64_t strips, int64_t n, int64_t k, const T* a, const T* b, const T* beta,
                              beta_class kind, T* c, int64_t ldc) {
  constexpr int P = kParts<T>;
  for_columns<T, MR, NR>(
      n, [&](auto columns, auto pitch, int64_t j) __attribute__((always_inline)) {
        constexpr int kColumns = decltype(columns)::value, kPitch = decltype(pitch)::value;
        const auto* next = reinterpret_cast<const char*>(b + (j + kColumns) * k);
        for (int64_t s = 0; s < strips; ++s, next += k / 4 * kLineBytes)
          multiply_strips<T, 1, MR, kColumns, kPitch>(k, k, reals(a + s * MR * k), reals(b + j * k), beta, kind,
                                                      reals(c + s * MR + j * ldc), P * ldc, next);
      });
}

// That pays as long as a strip of A and one of B fit in the smallest first cache together.
template <class T, int MR, int NR>
TEV_INLINE bool is_walked_down(int64_t k) {
  constexpr int64_t kFirstCache = 32 * 1024;
  return kLargeStrips && k * (MR + NR) * static_cast<int64_t>(sizeof(T)) <= kFirstCache;
}

template <class T, int MR, int NR>
void packed_kernel(int64_t m, int64_t n, int64_t k, const T* a, const T* b, T beta, beta_class kind, T* c,
                   int64_t ldc) {
  int64_t i = 0;
  if constexpr (kLargeStrips)
    if (is_walked_down<T, MR, NR>(k))
      for (int64_t strips; (strips = (m - i) / MR) > 0; i += strips * MR) {
        if (strips > kStripsDown) strips = kStripsDown;
        multiply_down<T, MR, NR>(strips, n, k, a + i * k, b, &beta, kind, c + i, ldc);
      }
  if constexpr (kStripsTogether > 1)
    for (; i + kStripsTogether * MR <= m; i += kStripsTogether * MR)
      multiply_row<T, kStripsTogether, MR, NR>(n, k, a + i * k, b, &beta, kind, c + i, ldc);
  constexpr int kRegister = kVectorBytes / static_cast<int>(sizeof(T));
  i += for_strips<MR, kRegister>(
      m - i, [&](auto height, int64_t s) __attribute__((always_inline)) {
        multiply_row<T, 1, decltype(height)::value, NR>(n, k, a + (i + s) * k, b, &beta, kind, c + i + s, ldc);
      });
  if constexpr (kRegister > 1)
    if (i < m) multiply_last_rows<T, NR>(m - i, n, k, a + i * k, b, &beta, kind, c + i, ldc);
}

}  // namespace tev::TEV_TIER
