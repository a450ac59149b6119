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
//
// A solution's lines wait for each other. In groups behind the front real ones give their share undivided, times t / d,
// and are divided when all of the group have given.
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
inline constexpr bool kDividesLate = kHasFma && !kComplex<T>;

// shares[k][i]: what line i of a group takes of line k before k is divided, its t over k's divisor.
template <class R, int G>
struct late_divisors {
  R scales[G], reciprocals[G], shares[G][G];
};

template <class T>
struct triangle_in_place {
  const T* at;  // the first line's element on the diagonal
  line_strides by;
  int64_t order;
  bool unit, conjugated;

  // Of a solution with a diagonal that counts: of the lines that are divided at once; of the groups that are not.
  divisor<real_of<T>> divisors[kDividesLate<T> ? kGroup<T> : kSmallBlock];
  late_divisors<real_of<T>, kGroup<T>> late[kDividesLate<T> ? kSmallBlock / kGroup<T> : 1];

  TEV_INLINE int64_t front() const { return (order - 1) % kGroup<T> + 1; }
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

// ---- Divided late --------------------------------------------------------------------------------------------------

// t / d with two roundings; NaN where the range of numbers takes more.
template <int L, class R>
TEV_INLINE vec<R, L> shares_of(vec<R, L> t, R reciprocal) {
  constexpr R kLeastNormal = sizeof(R) == 4 ? R(0x1p-126) : R(0x1p-1022);
  const auto share = t * splat<L>(reciprocal);
  return nan_where<L, R>(((share > -kLeastNormal) & (share < kLeastNormal) & (t != 0)), share);
}

// Of the group that begins with line `first`. Its corner is read as columns or rows, whatever lies side by side.
template <class T, int G>
TEV_INLINE void set_late(const triangle_in_place<T>& t, int64_t first, late_divisors<T, G>& late) {
  const bool down = t.by.to == 1 || t.by.to == -1;
  const T* from = t.at + first * (t.by.to + t.by.from);
  vec<T, G> taken[G], scales = {};
  TEV_UNROLL
  for (int k = 0; k < G; ++k) {
    taken[k] = t.by.to > 0 ? load<G>(from) : reversed<G, T>(load<G>(from - (G - 1)));
    scales[k] = taken[k][k];
    from += down ? t.by.from : t.by.to;
  }
  if (!down) transpose<G, 1>(taken);
  const auto size = scales < 0 ? -scales : scales;
  store<G>(scales, late.scales);
  const auto stands_not_in = (size <= 1 / kLargestDivisor<T>) | (size >= kLargestDivisor<T>);
  store<G>(nan_where<G, T>(stands_not_in, 1 / scales), late.reciprocals);
  TEV_UNROLL
  for (int k = 0; k < G; ++k) store<G>(shares_of<G, T>(taken[k], late.reciprocals[k]), late.shares[k]);
}

// As divide(). False: something left the range of numbers.
template <class S, class R, int G>
TEV_INLINE bool divide_lines(const late_divisors<R, G>& late, line_values<S>& x) {
  constexpr int L = S::L, V = S::V;
  vec<R, L> check[V] = {};
  TEV_UNROLL
  for (int i = 0; i < G; ++i) {
    const auto scale = splat<L>(late.scales[i]), reciprocal = splat<L>(late.reciprocals[i]);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) {
      x.of[i][v] = quotient_by<L, R>(x.of[i][v], scale, reciprocal);
      check[v] += x.of[i][v];
    }
  }
  TEV_UNROLL
  for (int v = 1; v < V; ++v) check[0] += check[v];
  return __builtin_expect(!any_nan<L, R>(check[0]), 1);
}

// The group that begins with line `first`, P places of it, line by line with true divisions.
template <class T>
__attribute__((noinline)) void solve_line_by_line(const triangle_in_place<T>& t, int64_t first, int64_t places,
                                                  T* lines, int64_t pitch) {
  T sum[kPlaces<T>];
  for (int64_t i = first; i < first + kGroup<T>; ++i) {
    const T* const taken = t.at + i * t.by.to;
    for (T& s : sum) s = 0;
    for (int64_t k = 0; k < i; ++k)
      for (int64_t p = 0; p < places; ++p) sum[p] += taken[k * t.by.from] * lines[k * pitch + p];
    for (int64_t p = 0; p < places; ++p) lines[i * pitch + p] = (lines[i * pitch + p] - sum[p]) / taken[i * t.by.from];
  }
}

template <class S, class T = typename S::T>
TEV_INLINE void solve_group_late(const triangle_in_place<T>& t, int64_t first, const late_divisors<T, S::G>& late,
                                 T* lines, int64_t pitch) {
  constexpr int G = S::G, L = S::L, V = S::V;
  factors_in_place<S> factors(t.at + first * t.by.to, t.by, false);
  line_sums<S> s = {};
  take_lines(factors, first, lines, pitch, s);
  T* const own = lines + first * pitch;
  line_values<S> x;
  TEV_UNROLL
  for (int i = 0; i < G; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) x.of[i][v] = load<L>(own + i * pitch + v * L) - s.of[i][v];
  TEV_UNROLL
  for (int k = 0; k < G; ++k) TEV_UNROLL
  for (int i = k + 1; i < G; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) x.of[i][v] = fma(-splat<L>(late.shares[k][i]), x.of[k][v], x.of[i][v]);
  if (divide_lines(late, x))
    put_lines(x, own, pitch);
  else
    solve_line_by_line(t, first, S::P, lines, pitch);
}

// ---- All lines -----------------------------------------------------------------------------------------------------

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
  const int64_t front = t.front();
  if constexpr (Kind == triangular::multiply)
    for (int64_t i = t.order - G; i >= front; i -= G) work_out_group<Kind, line_tile<T, G, P>>(t, i, lines, pitch);
  work_out_front<Kind, T, P>(front, t, lines, pitch);
  if constexpr (Kind == triangular::solve) {
    int64_t i = front;
    if constexpr (kDividesLate<T>)
      if (!t.unit)
        for (const auto* late = t.late; i < t.order; i += G)
          solve_group_late<line_tile<T, G, P>>(t, i, *late++, lines, pitch);
    for (; i < t.order; i += G) work_out_group<Kind, line_tile<T, G, P>>(t, i, lines, pitch);
  }
}

template <class T>
TEV_INLINE void set_divisors(triangle_in_place<T>& t) {
  const int64_t at_once = kDividesLate<T> ? t.front() : t.order;
  for (int64_t i = 0; i < at_once; ++i)
    t.divisors[i] = divisor_of(conjugate_if(t.conjugated, t.at[i * (t.by.to + t.by.from)]));
  if constexpr (kDividesLate<T>) {
    auto* late = t.late;
    for (int64_t i = at_once; i < t.order; i += kGroup<T>) set_late(t, i, *late++);
  }
}

// Calls body(width<Q>) for the smallest part of a register, P places and its halves down to 16 bytes, that has so many
// places.
template <class T, int P, class Body>
TEV_INLINE void for_few_places(int64_t places, const Body& body) {
  if constexpr (P * sizeof(T) > 16)
    if (places <= P / 2) return for_few_places<T, P / 2>(places, body);
  body(width<P>{});
}

// Lines of B that meet a small triangle, and where there is room for a strip of them.
template <class T>
struct lines_in_place {
  const triangular_call<T>& call;
  const triangle_in_place<T>& triangle;
  int64_t last;  // the first line to be worked out
  T alpha;
  T* b;
  T* strip;
};

// `count` of P places, from place `first` on.
template <triangular Kind, class T, int P>
TEV_INLINE void work_out_places(const lines_in_place<T>& x, int64_t first, int64_t count) {
  const line_layout b_lies = x.call.b_lies;
  const int64_t n = x.triangle.order;
  const auto work_out = [&](T* lines, int64_t line) TEV_LAMBDA {
    work_out_lines<Kind, T, P>(x.triangle, reals(lines + x.last * line), (x.call.forward ? line : -line) * kParts<T>);
  };
  T* const at = x.b + first * b_lies.place();
  if (!b_lies.left && is_one(x.alpha) && count == P) return work_out(at, b_lies.line());  // lines stay where they are
  load_lines<P>(b_lies, n, count, x.alpha, at, x.strip);
  work_out(x.strip, P);
  store_lines<P>(b_lies, n, count, x.strip, at);
}

// Processors that compute halves of registers one after the other, and a last register that is half full at most: what
// full strips leave over goes by half registers, three of them and one. Another strip costs a complex solution more
// than an empty half does.
template <triangular Kind, class T>
TEV_INLINE bool goes_by_halves(int64_t places) {
  constexpr int64_t kRegister = kPlaces<T, 1>, kHalf = kRegister / 2;
  if ((places - 1) % kRegister >= kHalf) return false;
  const bool in_one_strip = (places - 1) % kPlaces<T> < 3 * kHalf;
  const bool pays = in_one_strip || Kind == triangular::multiply || !kComplex<T>;
  return pays && tev_serv_cpuhalves512() != 0;
}
template <triangular Kind, class T>
__attribute__((noinline)) void work_out_by_halves(const lines_in_place<T>& x) {
  constexpr int kHalf = kPlaces<T, 1> / 2;
  const int64_t places = x.call.places;
  int64_t first = 0;
  for (; first + kPlaces<T> <= places; first += kPlaces<T>) work_out_places<Kind, T, kPlaces<T>>(x, first, kPlaces<T>);
  const int64_t left = places - first;
  if (left <= kHalf)
    return for_few_places<T, kHalf>(
        left, [&](auto few) TEV_LAMBDA { work_out_places<Kind, T, decltype(few)::value>(x, first, left); });
  work_out_places<Kind, T, 3 * kHalf>(x, first, min_of(left, 3 * kHalf));
  if (left > 3 * kHalf) work_out_places<Kind, T, 2 * kHalf>(x, first + 3 * kHalf, left - 3 * kHalf);
}

// n lines of B, kSmallBlock at most, which meet the triangle that begins at a.
template <triangular Kind, class T>
__attribute__((noinline)) void work_out_in_place(const triangular_call<T>& c, int64_t n, T alpha, const T* a, T* b) {
  alignas(64) T strip[kSmallBlock * kPlaces<T>];
  const bool forward = c.forward;
  const int64_t last = forward ? 0 : n - 1;
  triangle_in_place<T> t;
  t.at = a + last * (c.lda + 1);
  int64_t to = forward ? c.by.to : -c.by.to;
  TEV_OPAQUE(to);  // two numbers just stored do not come back as one vector without a wait
  t.by = {to, forward ? c.by.from : -c.by.from};
  t.order = n;
  t.unit = c.unit;
  t.conjugated = c.conjugated();
  if (Kind == triangular::solve && !t.unit) set_divisors(t);
  const lines_in_place<T> x{c, t, last, alpha, b, strip};
  constexpr int kHalf = kPlaces<T, 1> / 2;  // squares of half registers take a third of the shuffles
  if constexpr (kVectorBytes == 32 || kMasks<real_of<T>, kLanes<real_of<T>> / 2>)
    if (c.places <= kHalf)
      return for_few_places<T, kHalf>(
          c.places, [&](auto places) TEV_LAMBDA { work_out_places<Kind, T, decltype(places)::value>(x, 0, c.places); });
  if constexpr (kHalvesEdges)
    if (goes_by_halves<Kind, T>(c.places))
      return work_out_by_halves<Kind>(lines_in_place<T>(x));  // a copy, so that x stays in registers
  for_places<T>(c.places, [&](auto v, int64_t first, int64_t count) TEV_LAMBDA {
    work_out_places<Kind, T, kPlaces<T, decltype(v)::value>>(x, first, count);
  });
}

}  // namespace tev::TEV_TIER
