// SPDX-License-Identifier: BSD-3-Clause
// Packing: copies a block of a matrix into strips (strips-inl.h draws them), every element multiplied by a scalar on
// the way. The strips run along the contiguous dimension of the source or across its columns:
//
//   down<R>                      right<R>
//   strip: R rows                strip: R columns            walked: the other dimension, one position after another
//   walked: columns              walked: rows
//
//   |r0|..|..|   each column     |c0 c1 .. cR-1|  each row
//   |r1|..|..|   gives R         |-- -- .. ----|  gives R
//   |..|..|..|   elements        |-- -- .. ----|  elements
//
//   a plain vector copy          W rows of W columns at a time: loaded as columns, transposed in registers, stored as
//                                rows of the strip
#pragma once

#include "kernels/families/strips-inl.h"

namespace tev::TEV_TIER {

// What happens to an element on the way: scalar * x or scalar * conj(x); a scalar of one is not multiplied, which
// keeps infinities of complex elements from turning into NaN.
template <class T, bool kScaled, bool kConjugated>
struct on_the_way {
  T scalar;
  template <int W>
  TEV_INLINE vec<real_of<T>, W> operator()(vec<real_of<T>, W> x) const {
    if constexpr (kConjugated) x = conjugate<W>(x);
    if constexpr (kScaled) x = times<T, W>(scalar, x);
    return x;
  }
};

// N strips side by side.
template <class T, int R, int N = 1, class Map>
TEV_INLINE void copy_down_strip(int64_t depth, const T* source, int64_t ld, T* to, Map map) {
  constexpr int kReals = R * kParts<T>, W = lanes_dividing<real_of<T>>(kReals);
  for (int64_t p = 0; p < depth; ++p, source += ld, to += R) {
    TEV_UNROLL
    for (int n = 0; n < N; ++n) TEV_UNROLL
    for (int i = 0; i < kReals; i += W)
      store<W>(map.template operator()<W>(load<W>(reals(source + n * R) + i)), reals(to + n * R * depth) + i);
  }
}

// A narrow strip is short work: the next one is fetched meanwhile.
inline constexpr int kNarrow = 8;

template <class T, int R, class Map>
TEV_INLINE void copy_right_strip(int64_t depth, const T* source, int64_t ld, T* to, Map map) {
  constexpr int U = kParts<T>, W = lanes_dividing<real_of<T>>(R * U), kRows = W / U;
  int64_t p = 0;
  if constexpr (kRows > 1) {
    // The last square overlaps the one before it.
    for (const int64_t last = depth - kRows; p < depth && last >= 0; p += kRows) {
      if (p > last) p = last;
      if (R <= kNarrow && p * sizeof(T) % kLineBytes == 0) {
        TEV_UNROLL
        for (int c = 0; c < R; ++c) __builtin_prefetch(source + p + (c + R) * ld, 0, kIntoSecondCache);
      }
      TEV_UNROLL
      for (int c = 0; c < R; c += kRows) {
        vec<real_of<T>, W> square[kRows];
        TEV_UNROLL
        for (int i = 0; i < kRows; ++i)
          square[i] = map.template operator()<W>(load<W>(reals(source + p + (c + i) * ld)));
        transpose<W, U>(square);
        TEV_UNROLL
        for (int i = 0; i < kRows; ++i) store<W>(square[i], reals(to + (p + i) * R + c));
      }
    }
  }
  for (; p < depth; ++p)
    for (int c = 0; c < R; ++c)
      store<U>(map.template operator()<U>(load<U>(reals(source + p + c * ld))), reals(to + p * R + c));
}

enum class direction { down, right };

// Strips that share a cache line are packed together: columns far apart may drive it out before the next one comes.
template <class T, int R>
inline constexpr int kTogether = R * sizeof(T) < kLineBytes ? kLineBytes / (R * static_cast<int>(sizeof(T))) : 1;

template <class T, int R, direction D, class Map>
void copy_strips(int64_t walked, int64_t across, const T* source, int64_t ld, T* to, Map map) {
  if constexpr (constexpr int N = kTogether<T, R>; D == direction::down && N > 1)
    for (; across >= N * R; across -= N * R, source += N * R, to += N * R * walked)
      copy_down_strip<T, R, N>(walked, source, ld, to, map);
  for_strips<R>(
      across, [=](auto strip, int64_t s) __attribute__((always_inline)) {
        if constexpr (D == direction::down)
          copy_down_strip<T, decltype(strip)::value>(walked, source + s, ld, to + s * walked, map);
        else
          copy_right_strip<T, decltype(strip)::value>(walked, source + s * ld, ld, to + s * walked, map);
      });
}

// Packs `across` elements in strips of R over `walked` positions.
template <class T, int R, direction D, bool kConjugated>
TEV_INLINE void copy_ea(int64_t walked, int64_t across, const T* source, int64_t ld, T* to, T scalar) {
  if (is_one(scalar))
    copy_strips<T, R, D>(walked, across, source, ld, to, on_the_way<T, false, kConjugated>{scalar});
  else
    copy_strips<T, R, D>(walked, across, source, ld, to, on_the_way<T, true, kConjugated>{scalar});
}

}  // namespace tev::TEV_TIER
