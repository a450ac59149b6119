// SPDX-License-Identifier: BSD-3-Clause
// The lines of B that meet a triangle, packed. A line has a "place" for each right-hand side. Places are packed in
// strips of a few registers, line by line: a register holds neighbouring places of one line.
//
//     strip 0   line 0: place 0 .. W-1 | W .. 2W-1 | 2W .. 3W-1
//               line 1: ..
//               ..
//     last strips: of two registers, of one, of one that is not full
#pragma once

#include "kernels/families/triangle_copy-inl.h"

namespace tev::TEV_TIER {

// Registers of a strip's line.
inline constexpr int kStripVectors = kHasFma ? 3 : 2;

// Places of a strip that is V registers wide, and of the widest.
template <class T, int V = kStripVectors>
inline constexpr int kPlaces = V* kLanes<real_of<T>> / kParts<T>;

// Lines are the rows of B (left) or its columns.
struct line_layout {
  bool left;
  int64_t ldb;

  TEV_INLINE int64_t line() const { return left ? 1 : ldb; }
  TEV_INLINE int64_t place() const { return left ? ldb : 1; }
};

// Calls body(width<V>, first place, places) for each strip: full ones, then one for the rest, of as many registers as
// that takes.
template <class T, int V, class Body>
TEV_INLINE void for_last_places(int64_t places, const Body& body, int64_t first) {
  if constexpr (V > 1)
    if (places - first <= kPlaces<T, V - 1>) return for_last_places<T, V - 1>(places, body, first);
  body(width<V>{}, first, places - first);
}
template <class T, class Body>
TEV_INLINE void for_places(int64_t places, const Body& body) {
  int64_t first = 0;
  for (; first + kPlaces<T> <= places; first += kPlaces<T>) body(width<kStripVectors>{}, first, kPlaces<T>);
  if (first < places) for_last_places<T, kStripVectors>(places, body, first);
}

// ---- Between B and strips ------------------------------------------------------------------------------------------

// A register of a strip's line: `width` places of it. A square: element j of place i in unit j of vector i.
template <class T_, int P>
struct strip_register {
  using T = T_;
  using R = real_of<T>;
  static constexpr int U = kParts<T>, L = lanes_dividing<R>(P * U), N = L / U;  // units of U in L lanes
  line_layout b_lies;
  int64_t n, width;

  // The first `count` elements of a place or of a line.
  TEV_INLINE static vec<R, L> load_row(const T* from, int64_t count) {
    return count >= N ? load<L>(reals(from)) : load_first<L>(reals(from), count * U);
  }
  TEV_INLINE static void store_row(vec<R, L> row, int64_t count, T* to) {
    if (count >= N)
      store<L>(row, reals(to));
    else
      store_first<L>(row, reals(to), count * U);
  }
  // The last square overlaps the one before it.
  TEV_INLINE int64_t square_at(int64_t next) const { return n < N ? 0 : min_of(next, n - N); }

  // From n lines of B; a line is contiguous on side R, a place on side L. The last place stands for those that B lacks.
  template <class Map>
  TEV_INLINE void load_lines(const T* b, T* strip, Map alpha) const {
    if (!b_lies.left) {
      for (int64_t i = 0; i < n; ++i)
        store<L>(alpha.template operator()<L>(load_row(b + i * b_lies.ldb, width)), reals(strip + i * P));
      return;
    }
    const T* place[N];
    TEV_UNROLL
    for (int p = 0; p < N; ++p) place[p] = b + (p < width ? p : width - 1) * b_lies.ldb;
    for (int64_t next = 0; next < n; next += N) {
      const int64_t i = square_at(next);
      vec<R, L> square[N];
      TEV_UNROLL
      for (int p = 0; p < N; ++p) square[p] = alpha.template operator()<L>(load_row(place[p] + i, n));
      transpose<L, U>(square);
      TEV_UNROLL
      for (int p = 0; p < N; ++p)
        if (p < n) store<L>(square[p], reals(strip + (i + p) * P));
    }
  }
  TEV_INLINE void store_lines(const T* strip, T* b) const {
    if (!b_lies.left) {
      for (int64_t i = 0; i < n; ++i) store_row(load<L>(reals(strip + i * P)), width, b + i * b_lies.ldb);
      return;
    }
    for (int64_t next = 0; next < n; next += N) {
      const int64_t i = square_at(next);
      vec<R, L> square[N];
      TEV_UNROLL
      for (int p = 0; p < N; ++p) square[p] = p < n ? load<L>(reals(strip + (i + p) * P)) : vec<R, L>{};
      transpose<L, U>(square);
      TEV_UNROLL
      for (int p = 0; p < N; ++p)
        if (p < width) store_row(square[p], n, b + p * b_lies.ldb + i);
    }
  }
};

// Into a strip, times alpha.
template <int P, class T, class Map>
TEV_INLINE void load_strip(line_layout b_lies, int64_t n, int64_t width, const T* b, T* strip, Map alpha) {
  using part = strip_register<T, P>;
  if (!b_lies.left && width == P) return copy_down_strip<T, P>(n, b, b_lies.ldb, strip, alpha);
  for (int p = 0; p < P; p += part::N)
    part{b_lies, n, min_of(width - p, part::N)}.load_lines(b + p * b_lies.place(), strip + p, alpha);
}
template <int P, class T>
__attribute__((noinline)) void load_lines(line_layout b_lies, int64_t n, int64_t width, T alpha, const T* b, T* strip) {
  if (is_one(alpha))
    load_strip<P>(b_lies, n, width, b, strip, on_the_way<T, false, false>{alpha});
  else
    load_strip<P>(b_lies, n, width, b, strip, on_the_way<T, true, false>{alpha});
}

template <int P, class T>
__attribute__((noinline)) void store_lines(line_layout b_lies, int64_t n, int64_t width, const T* strip, T* b) {
  using part = strip_register<T, P>;
  for (int p = 0; p < P; p += part::N)
    part{b_lies, n, min_of(width - p, part::N)}.store_lines(strip + p, b + p * b_lies.place());
}

// Lines that lack to a group are 0.
template <int P, class T>
TEV_INLINE void fill_group(int64_t n, T* strip) {
  for (int64_t i = n * P; i < whole_groups(n, kGroup<T>) * P; ++i) strip[i] = T{};
}

}  // namespace tev::TEV_TIER
