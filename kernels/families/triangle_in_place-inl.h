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

// Lines of the largest of these triangles.
inline constexpr int64_t kSmallBlock = 32;

template <class T>
struct triangle_in_place {
  const T* at;  // the first line's element on the diagonal
  line_strides by;
  int64_t order;
  bool unit, conjugated;
  divisor<real_of<T>> divisors[kSmallBlock];  // of a solution with a diagonal that counts
};

// What the lines of a group take from a line: element (i, 0), then those of the lines that follow.
template <class S>
struct group_factors {
  using T = typename S::T;
  using R = typename S::R;
  const R* third[(S::G + 2) / 3];  // every third line; the two after it are one and two strides away
  int64_t to, from;

  TEV_INLINE group_factors(const T* a, line_strides by) : to(by.to * S::U), from(by.from * S::U) {
    TEV_UNROLL
    for (int g = 0; 3 * g < S::G; ++g) {
      third[g] = reals(a) + 3 * g * to;
      TEV_OPAQUE(third[g]);
    }
  }
  TEV_INLINE R operator()(int i, int part) const { return third[i / 3][i % 3 * to + part]; }
  TEV_INLINE void next_line() {
    TEV_UNROLL
    for (auto& at : third) at += from;
  }
};

// Lines kFirst .. kEnd-1 of the group take from the line x.
template <int kFirst, int kEnd, class S, class R>
TEV_INLINE void take(const group_factors<S>& factor, const R* x, line_sums<S>& s) {
  constexpr int L = S::L, V = S::V, U = S::U;
  vec<R, L> line[V];
  TEV_UNROLL
  for (int v = 0; v < V; ++v) line[v] = load<L>(x + v * L);
  TEV_UNROLL
  for (int i = kFirst * U; i < kEnd * U; ++i) {
    const auto one = splat<L>(factor(i / U, i % U));
    TEV_UNROLL
    for (int v = 0; v < V; ++v) s.of[i][v] = fma(line[v], one, s.of[i][v]);
  }
}

// As the triangle is, or with its elements conjugated.
template <class S>
TEV_INLINE auto sum_of(const line_sums<S>& s, bool conjugated, int i, int v) {
  using R = typename S::R;
  if constexpr (S::U == 2)
    return s.of[2 * i][v] + swap_pairs<S::L, R>(s.of[2 * i + 1][v]) *
                                (conjugated ? alternate<S::L>(R(1), R(-1)) : alternate<S::L>(R(-1), R(1)));
  else
    return s.of[i][v];
}

// What the group's lines take from its own line k; with a unit diagonal line k takes itself whole, later.
template <int k, class S, class R>
TEV_INLINE void take_corner(bool unit, group_factors<S> factor, const R* own, int64_t pitch, line_sums<S>& s) {
  if constexpr (k < S::G) {
    take<k + 1, S::G>(factor, own, s);
    if (!unit) take<k, k + 1>(factor, own, s);
    factor.next_line();
    take_corner<k + 1>(unit, factor, own + pitch, pitch, s);
  }
}

// Of the solved line i the lines behind it take their share.
template <int i, class S, class R>
TEV_INLINE void solve_corner(bool conjugated, group_factors<S> factor, const divisor<R>* divisors, line_values<S>& x) {
  using T = typename S::T;
  if (divisors != nullptr) divide<S>(divisors[i], x.of[i]);
  if constexpr (i + 1 < S::G) {
    TEV_UNROLL
    for (int j = i + 1; j < S::G; ++j) {
      T t;
      if constexpr (kComplex<T>)
        t = {-factor(j, 0), conjugated ? factor(j, 1) : -factor(j, 1)};
      else
        t = -factor(j, 0);
      const auto share = multiplier_of<S::L>(t);
      TEV_UNROLL
      for (int v = 0; v < S::V; ++v) x.of[j][v] = plus_product(x.of[j][v], share, x.of[i][v]);
    }
    factor.next_line();
    solve_corner<i + 1>(conjugated, factor, divisors, x);
  }
}

// The group that begins with line `first`; lines are `pitch` numbers apart.
template <triangular Kind, class S>
TEV_INLINE void work_out_group(const triangle_in_place<typename S::T>& t, int64_t first, typename S::R* lines,
                               int64_t pitch) {
  using R = typename S::R;
  constexpr int G = S::G, L = S::L, V = S::V;
  group_factors<S> factor(t.at + first * t.by.to, t.by);
  R *own = lines + first * pitch, *at = lines;
  line_sums<S> s = {};
  for (; at != own; at += pitch, factor.next_line()) take<0, G>(factor, at, s);
  if constexpr (Kind == triangular::multiply) take_corner<0>(t.unit, factor, own, pitch, s);
  line_values<S> x;
  TEV_UNROLL
  for (int i = 0; i < G; ++i, at += pitch) TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    x.of[i][v] = sum_of(s, t.conjugated, i, v);
    if constexpr (Kind == triangular::solve)
      x.of[i][v] = load<L>(at + v * L) - x.of[i][v];
    else if (t.unit)
      x.of[i][v] += load<L>(at + v * L);
  }
  if constexpr (Kind == triangular::solve)
    solve_corner<0>(t.conjugated, factor, t.unit ? nullptr : t.divisors + first, x);
  TEV_UNROLL
  for (int i = 0; i < G; ++i, own += pitch) TEV_UNROLL
  for (int v = 0; v < V; ++v) store<L>(x.of[i][v], own + v * L);
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

// n lines of B, kSmallBlock at most, which meet the triangle that begins at a.
template <triangular Kind, class T>
__attribute__((noinline)) void work_out_in_place(const triangular_call<T>& c, int64_t n, T alpha, const T* a, T* b) {
  alignas(64) T strip[kSmallBlock * kPlaces<T>];
  const bool forward = c.forward, conjugated = c.conjugated();
  const line_layout b_lies = c.b_lies;
  const int64_t last = forward ? 0 : n - 1;
  triangle_in_place<T> t;
  t.at = a + last * (c.lda + 1);
  t.by = forward ? c.by : line_strides{-c.by.to, -c.by.from};
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
  if constexpr (kMasksHalves)
    if (c.places <= kHalf) return strip_of(width<kHalf>{}, 0, c.places);
  for_places<T>(c.places, [&](auto v, int64_t first, int64_t count)
                              TEV_LAMBDA { strip_of(width<kPlaces<T, decltype(v)::value>>{}, first, count); });
}

}  // namespace tev::TEV_TIER
