// SPDX-License-Identifier: BSD-3-Clause
// The lines of B times a small triangle that stays where it lies, or solved with it. What packing and unpacking cost a
// large triangle nothing, and many lines little, is most of the work here. A triangle whose lines take from those
// behind them is counted from its last line on, with negative strides, so that all are "forward":
//
//     front     corner                1 .. G lines: what the groups leave over, most often all of them
//     group 1   takes   corner        G lines (triangle_copy-inl.h)
//     group 2   takes   takes   corner
//
// Lines that are columns of B (side R) stay where they are, too. Rows of B become lines of a strip, and back.
#pragma once

#include "kernels/families/triangle_kernel-inl.h"
#include "kernels/families/unpacked_tile-inl.h"

namespace tev::TEV_TIER {

template <class T>
struct triangular_call {
  bool forward, unit;
  char trans;
  int64_t places;
  line_strides by;  // in A
  int64_t lda;
  line_layout b_lies;

  TEV_INLINE bool conjugated() const { return (trans & ~0x20) == 'C'; }
};

// `lower`: the stored triangle.
template <class T>
TEV_INLINE triangular_call<T> describe_triangular(bool left, bool lower, char trans, bool unit, int64_t places,
                                                  int64_t lda, int64_t ldb) {
  const bool plain = is_letter(&trans, 'N');
  return {.forward = (lower == plain) == left,
          .unit = unit,
          .trans = trans,
          .places = places,
          .by = strides_of(left, plain, lda),
          .lda = lda,
          .b_lies = {left, ldb}};
}

// Lines of the largest of these triangles, fewer where a broadcast takes a shuffle: packed, that is done once.
inline constexpr int64_t kSmallBlock = kRotatesB<float> ? 32 : 64;

template <class T>
struct triangle_in_place {
  const T* at;  // the first line's element on the diagonal
  line_strides by;
  int64_t order;
  bool unit, conjugated;
  divisor<real_of<T>> divisors[kSmallBlock];  // of a solution with a diagonal that counts
};

// The factors of a group's lines for the line that begins at a.
template <class S>
struct factors_in_place {
  using R = typename S::R;
  static constexpr int kSideBySide = 1, U = S::U;
  const R* third[(S::G + 2) / 3];  // of every third line; those of the two after it are one and two strides away
  int64_t to, from;
  bool conjugated;

  TEV_INLINE factors_in_place(const typename S::T* a, line_strides by, bool conjugated_)
      : to(by.to * U), from(by.from * U), conjugated(conjugated_) {
    TEV_UNROLL
    for (int g = 0; 3 * g < S::G; ++g) {
      third[g] = reals(a) + 3 * g * to;
      TEV_OPAQUE(third[g]);
    }
  }
  TEV_INLINE R number(int i) const { return third[i / U / 3][i / U % 3 * to + i % U]; }
  TEV_INLINE vec<R, S::L> spread(int i) const { return splat<S::L>(number(i)); }
  TEV_INLINE void move(int lines) {
    TEV_UNROLL
    for (auto& at : third) at += lines * from;
  }
};

// The group that begins with line `first`; lines are `pitch` numbers apart.
template <triangular Kind, class S>
TEV_INLINE void work_out_group(const triangle_in_place<typename S::T>& t, int64_t first, typename S::R* lines,
                               int64_t pitch) {
  const factors_in_place<S> factors(t.at + first * t.by.to, t.by, t.conjugated);
  typename S::R* const own = lines + first * pitch;
  put_lines(work_out_group<Kind, true, S>(factors, t.unit, t.unit ? nullptr : t.divisors + first, own, pitch, first, 0),
            own, pitch);
}

template <triangular Kind, class T, int P, int G = kGroup<T>>
TEV_INLINE void work_out_front(int64_t count, const triangle_in_place<T>& t, real_of<T>* lines, int64_t pitch) {
  if constexpr (G > 1)
    if (count < G) return work_out_front<Kind, T, P, G - 1>(count, t, lines, pitch);
  work_out_group<Kind, line_tile<T, G, P>>(t, 0, lines, pitch);
}

// P places of all lines. Lines that others still take from are multiplied last.
template <triangular Kind, class T, int P>
__attribute__((noinline)) void work_out_lines(const triangle_in_place<T>& t, real_of<T>* lines, int64_t pitch) {
  constexpr int G = kGroup<T>;
  const int64_t front = (t.order - 1) % G + 1;
  if constexpr (Kind == triangular::multiply)
    for (int64_t i = t.order - G; i >= front; i -= G) work_out_group<Kind, line_tile<T, G, P>>(t, i, lines, pitch);
  work_out_front<Kind, T, P>(front, t, lines, pitch);
  if constexpr (Kind == triangular::solve)
    for (int64_t i = front; i < t.order; i += G) work_out_group<Kind, line_tile<T, G, P>>(t, i, lines, pitch);
}

// Calls body(width<Q>) for the smallest part of a register, P places and its halves down to 16 bytes, that has so many
// places.
template <class T, int P, class Body>
TEV_INLINE void for_few_places(int64_t places, const Body& body) {
  if constexpr (P * sizeof(T) > 16)
    if (places <= P / 2) return for_few_places<T, P / 2>(places, body);
  body(width<P>{});
}

// n lines of B, kSmallBlock at most, which meet the triangle that begins at a.
template <triangular Kind, class T>
__attribute__((noinline)) void work_out_in_place(const triangular_call<T>& c, int64_t n, T alpha, const T* a, T* b) {
  alignas(64) T strip[kSmallBlock * kPlaces<T>];
  const bool forward = c.forward, conjugated = c.conjugated();
  const line_layout b_lies = c.b_lies;
  const int64_t last = forward ? 0 : n - 1;
  triangle_in_place<T> t;
  t.at = a + last * (c.lda + 1);
  int64_t to = forward ? c.by.to : -c.by.to;
  TEV_OPAQUE(to);  // two numbers just stored do not come back as one vector without a wait
  t.by = {to, forward ? c.by.from : -c.by.from};
  t.order = n;
  t.unit = c.unit;
  t.conjugated = conjugated;
  if (Kind == triangular::solve && !t.unit)
    for (int64_t i = 0; i < n; ++i)
      t.divisors[i] = divisor_of(conjugate_if(conjugated, t.at[i * (t.by.to + t.by.from)]));
  const bool lines_stay = !b_lies.left && is_one(alpha);
  const auto strip_of = [&](auto places, int64_t first, int64_t count) TEV_LAMBDA {
    constexpr int P = decltype(places)::value;
    const auto work_out = [&](T* lines, int64_t line) TEV_LAMBDA {
      work_out_lines<Kind, T, P>(t, reals(lines + last * line), (forward ? line : -line) * kParts<T>);
    };
    T* const at = b + first * b_lies.place();
    if (lines_stay && count == P) return work_out(at, b_lies.line());
    load_lines<P>(b_lies, n, count, alpha, at, strip);
    work_out(strip, P);
    store_lines<P>(b_lies, n, count, strip, at);
  };
  constexpr int kHalf = kPlaces<T, 1> / 2;  // squares of half registers take a third of the shuffles
  if constexpr (kVectorBytes == 32 || kMasks<real_of<T>, kLanes<real_of<T>> / 2>)
    if (c.places <= kHalf)
      return for_few_places<T, kHalf>(c.places, [&](auto places) TEV_LAMBDA { strip_of(places, 0, c.places); });
  for_places<T>(c.places, [&](auto v, int64_t first, int64_t count)
                              TEV_LAMBDA { strip_of(width<kPlaces<T, decltype(v)::value>>{}, first, count); });
}

}  // namespace tev::TEV_TIER
