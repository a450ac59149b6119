// SPDX-License-Identifier: BSD-3-Clause
// The lines of B (triangle_lines-inl.h) times a triangle, or solved with it, in place, a group of lines at a time: the
// sums over the lines that the group takes from stay in registers, then comes the corner, where its lines take from
// each other. What is broadcast comes from the triangle, packed (triangle_copy-inl.h) or where it lies
// (triangle_in_place-inl.h).
#pragma once

#include "kernels/families/triangle_lines-inl.h"

namespace tev::TEV_TIER {

enum class triangular { multiply, solve };

// ---- A group of lines of one strip ---------------------------------------------------------------------------------

// G lines, P places of each.
template <class T_, int G_, int P_>
struct line_tile {
  using T = T_;
  using R = real_of<T>;
  static constexpr int U = kParts<T>, G = G_, P = P_;
  static constexpr int L = lanes_dividing<R>(P * U), V = P * U / L;  // V vectors of L numbers
};

// Sums of products t x: of a complex t with its real part, and with its imaginary part.
template <class S>
struct line_sums {
  vec<typename S::R, S::L> of[S::G * S::U][S::V];
};

template <class S>
struct line_values {
  vec<typename S::R, S::L> of[S::G][S::V];
};

// Where finished lines go: `width` places of each of them.
template <class T>
struct lines_of_b {
  line_layout lie;
  int64_t lines, width;
  T* at;  // null: nowhere, they are wanted as a strip
};

// A group of lines is one or several squares of rows of B. Else rows wait in the strip for the other groups: parts of
// cache lines that a power of two lies between drive each other out.
template <class S>
inline constexpr bool kGroupsAreSquares = S::G* S::U % S::L == 0;

// Lines first .. first+G-1 as rows of B.
template <class S, class T>
TEV_INLINE void put_rows(const line_values<S>& x, int64_t first, const lines_of_b<T>& b) {
  using R = typename S::R;
  constexpr int L = S::L, N = L / S::U;
  TEV_UNROLL
  for (int i = 0; i < S::G; i += N) TEV_UNROLL
  for (int v = 0; v < S::V; ++v) {
    vec<R, L> square[N];
    TEV_UNROLL
    for (int q = 0; q < N; ++q) square[q] = x.of[i + q][v];
    transpose<L, S::U>(square);
    const int64_t lines = b.lines - first - i;
    TEV_UNROLL
    for (int q = 0; q < N; ++q) {
      if (v * N + q >= b.width) break;
      R* const to = reals(b.at + first + i + (v * N + q) * b.lie.ldb);
      if (lines >= N)
        store<L>(square[q], to);
      else
        for (int64_t l = 0; l < lines * S::U; ++l) to[l] = square[q][l];
    }
  }
}

template <class S, class T>
TEV_INLINE void put_columns(const line_values<S>& x, int64_t first, const lines_of_b<T>& b) {
  constexpr int L = S::L, N = L / S::U;
  TEV_UNROLL
  for (int i = 0; i < S::G; ++i) {
    if (first + i >= b.lines) return;
    TEV_UNROLL
    for (int v = 0; v < S::V; ++v) {
      auto* const to = reals(b.at + (first + i) * b.lie.ldb + v * N);
      if (b.width >= (v + 1) * N)
        store<L>(x.of[i][v], to);
      else if (b.width > v * N)
        store_first<L>(x.of[i][v], to, (b.width - v * N) * S::U);
    }
  }
}

// ---- What a group takes --------------------------------------------------------------------------------------------

// The factors of a group's lines for one line that they take from, of a packed triangle. Number i is part i % U of line
// i / U. A triangle that stays where it lies has another such reader (triangle_in_place-inl.h).
template <class S>
struct packed_factors {
  using R = typename S::R;
  static constexpr int kSideBySide = 4;      // lines that are taken without a branch between them
  static constexpr bool conjugated = false;  // what a packed triangle holds is as it is needed
  const R* at;

  TEV_INLINE R number(int i) const { return at[i * kCopies<R>]; }
  TEV_INLINE vec<R, S::L> spread(int i) const {
    if constexpr (1 < kCopies<R>)
      return load<S::L>(at + i * kCopies<R>);
    else
      return splat<S::L>(at[i]);
  }
  // To those for the line that comes `lines` later.
  TEV_INLINE void move(int lines) { at += lines * packed_numbers<typename S::T>(S::G); }
};

// What lines kFirst .. kEnd-1 of the group take of the line x.
template <int kFirst, int kEnd, class S, class Factors, class R>
TEV_INLINE void take(const Factors& factor, const R* x, line_sums<S>& s) {
  constexpr int L = S::L, V = S::V;
  vec<R, L> line[V];
  TEV_UNROLL
  for (int v = 0; v < V; ++v) line[v] = load<L>(x + v * L);
  TEV_UNROLL
  for (int i = kFirst * S::U; i < kEnd * S::U; ++i) {
    const auto number = factor.spread(i);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) s.of[i][v] = fma(line[v], number, s.of[i][v]);
  }
}

// What the group takes of `count` lines from x on, which are `pitch` numbers apart. The factors move behind them.
template <class S, class Factors, class R>
TEV_INLINE void take_lines(Factors& factor, int64_t count, const R* x, int64_t pitch, line_sums<S>& s) {
  constexpr int kSide = Factors::kSideBySide;
  const auto take_one = [&]() TEV_LAMBDA {
    take<0, S::G>(factor, x, s);
    factor.move(1);
    x += pitch;
  };
  if constexpr (kSide > 1)
    for (; count >= kSide; count -= kSide) TEV_UNROLL
  for (int u = 0; u < kSide; ++u) take_one();
  for (; count > 0; --count) take_one();
}

// What the lines take of the group's own line k; with a unit diagonal line k takes itself whole, later.
template <bool kForward, int k, class S, class Factors, class R>
TEV_INLINE void take_corner(bool unit, Factors factor, const R* own, int64_t pitch, line_sums<S>& s) {
  constexpr int G = S::G;
  if constexpr (k < G) {
    take<kForward ? k + 1 : 0, kForward ? G : k>(factor, own, s);
    if (!unit) take<k, k + 1>(factor, own, s);
    factor.move(1);
    take_corner<kForward, k + 1>(unit, factor, own + pitch, pitch, s);
  }
}

template <class S>
TEV_INLINE auto sum_of(const line_sums<S>& s, bool conjugated, int i, int v) {
  using R = typename S::R;
  if constexpr (S::U == 2)
    return s.of[2 * i][v] + swap_pairs<S::L, R>(s.of[2 * i + 1][v]) *
                                (conjugated ? alternate<S::L>(R(1), R(-1)) : alternate<S::L>(R(-1), R(1)));
  else
    return s.of[i][v];
}

// x / scale by the reciprocal and one correction: the rounded quotient (P. Markstein, IBM J. Res. Dev. 34, 1990) where
// nothing leaves the range of numbers, a NaN where something did.
template <int L, class R>
TEV_INLINE vec<R, L> quotient_by(vec<R, L> x, vec<R, L> scale, vec<R, L> reciprocal) {
  const auto first = x * reciprocal;
  return fma(fma(-first, scale, x), reciprocal, first);
}

// x := x / d: quotient_by(), the division proper where that is a NaN.
template <class S, class R = typename S::R>
TEV_INLINE void divide(const divisor<R>& d, vec<R, S::L> (&x)[S::V]) {
  constexpr int L = S::L, V = S::V;
  const auto scale = splat<L>(d.scale);
  if constexpr (S::U == 2) {
    const auto same = splat<L>(d.same), crossed = alternate<L>(d.crossed, -d.crossed);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) x[v] = fma(swap_pairs<L, R>(x[v]), crossed, x[v] * same);
  }
  if constexpr (kHasFma) {
    const auto reciprocal = splat<L>(d.reciprocal);
    vec<R, L> quotient[V], check = {};
    TEV_UNROLL
    for (int v = 0; v < V; ++v) {
      quotient[v] = quotient_by<L, R>(x[v], scale, reciprocal);
      check = v == 0 ? quotient[v] : check + quotient[v];
    }
    if (__builtin_expect(!any_nan<L, R>(check), 1)) {
      TEV_UNROLL
      for (int v = 0; v < V; ++v) x[v] = quotient[v];
      return;
    }
  }
  TEV_UNROLL
  for (int v = 0; v < V; ++v) x[v] = x[v] / scale;
}

// Divides the line x as quotient_by() does, and adds t x to the next one. All lines wait for that one after another; it
// takes t times the quotient and t times the correction apart, so that it does not wait for their sum.
template <class S, class R>
TEV_INLINE void divide_and_share(const divisor<R>& d, R t, vec<R, S::L> (&x)[S::V], vec<R, S::L> (&next)[S::V]) {
  constexpr int L = S::L, V = S::V;
  const R of_rest = t * d.reciprocal;
  const auto scale = splat<L>(d.scale), reciprocal = splat<L>(d.reciprocal), share = splat<L>(t);
  vec<R, L> quotient[V], given[V], check = splat<L>(of_rest * 0);  // NaN where it overflowed
  TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    const auto first = x[v] * reciprocal, rest = fma(-first, scale, x[v]);
    given[v] = fma(rest, splat<L>(of_rest), fma(first, share, next[v]));
    quotient[v] = fma(rest, reciprocal, first);
    check += quotient[v];
  }
  if (__builtin_expect(!any_nan<L, R>(check), 1)) {
    TEV_UNROLL
    for (int v = 0; v < V; ++v) x[v] = quotient[v], next[v] = given[v];
    return;
  }
  TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    x[v] = x[v] / scale;
    next[v] = fma(x[v], share, next[v]);
  }
}

// Of the solved line i the lines after it in the order of solution take their share.
template <bool kForward, int i, class S, class Factors, class R>
TEV_INLINE void solve_corner(Factors factor, const divisor<R>* divisors, line_values<S>& x) {
  using T = typename S::T;
  constexpr int G = S::G, kFrom = kForward ? i + 1 : 0, kEnd = kForward ? G : i, kStep = kForward ? 1 : -1;
  constexpr bool kSharesEarly = kHasFma && !kComplex<T> && kFrom < kEnd;
  if (divisors != nullptr) {
    if constexpr (kSharesEarly)
      divide_and_share<S>(divisors[i], -factor.number(i + kStep), x.of[i], x.of[i + kStep]);
    else
      divide<S>(divisors[i], x.of[i]);
  }
  TEV_UNROLL
  for (int j = kFrom; j < kEnd; ++j) {
    if (kSharesEarly && divisors != nullptr && j == i + kStep) continue;
    T t;
    if constexpr (kComplex<T>)
      t = {-factor.number(2 * j), factor.conjugated ? factor.number(2 * j + 1) : -factor.number(2 * j + 1)};
    else
      t = -factor.number(j);
    const auto share = multiplier_of<S::L>(t);
    TEV_UNROLL
    for (int v = 0; v < S::V; ++v) x.of[j][v] = plus_product(x.of[j][v], share, x.of[i][v]);
  }
  if constexpr (kFrom < kEnd) {
    factor.move(kStep);
    solve_corner<kForward, i + kStep>(factor, divisors, x);
  }
}

// The group whose first line is `own`, with the lines that it takes from before and behind it. `factor`: of the first
// of them all; divisors: null where the diagonal is 1.
template <triangular Kind, bool kForward, class S, class Factors, class R>
TEV_INLINE line_values<S> work_out_group(Factors factor, bool unit, const divisor<R>* divisors, const R* own,
                                         int64_t pitch, int64_t before, int64_t behind) {
  constexpr int G = S::G, L = S::L, V = S::V;
  line_sums<S> s = {};
  take_lines(factor, before, own - before * pitch, pitch, s);
  Factors corner = factor;
  factor.move(G);
  take_lines(factor, behind, own + G * pitch, pitch, s);
  if constexpr (Kind == triangular::multiply) take_corner<kForward, 0>(unit, corner, own, pitch, s);
  line_values<S> x;
  TEV_UNROLL
  for (int i = 0; i < G; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    x.of[i][v] = sum_of(s, factor.conjugated, i, v);
    if constexpr (Kind == triangular::solve)
      x.of[i][v] = load<L>(own + i * pitch + v * L) - x.of[i][v];
    else if (unit)
      x.of[i][v] += load<L>(own + i * pitch + v * L);
  }
  if constexpr (Kind == triangular::solve) {
    if constexpr (!kForward) corner.move(G - 1);
    solve_corner<kForward, kForward ? 0 : G - 1>(corner, divisors, x);
  }
  return x;
}

template <class S, class R>
TEV_INLINE void put_lines(const line_values<S>& x, R* own, int64_t pitch) {
  TEV_UNROLL
  for (int i = 0; i < S::G; ++i) TEV_UNROLL
  for (int v = 0; v < S::V; ++v) store<S::L>(x.of[i][v], own + i * pitch + v * S::L);
}

// ---- Packed --------------------------------------------------------------------------------------------------------

template <triangular Kind, bool kForward, class S>
TEV_INLINE void work_out_packed(const triangle_block<typename S::T>& block, int64_t lines, bool unit, int64_t g,
                                typename S::R* strip, const lines_of_b<typename S::T>& b) {
  constexpr int G = S::G, kPitch = S::V * S::L;
  const int64_t first = g * G, before = kForward ? first : 0, behind = kForward ? 0 : lines - first - G;
  const packed_factors<S> factors = {block.groups + packed_numbers<typename S::T>(group_start<kForward, G>(g, lines))};
  typename S::R* const own = strip + first * kPitch;
  const line_values<S> x = work_out_group<Kind, kForward, S>(factors, unit, unit ? nullptr : block.divisors + first,
                                                             own, kPitch, before, behind);
  const bool wait = b.lie.left && !kGroupsAreSquares<S>;
  if (Kind == triangular::solve || b.at == nullptr || wait) put_lines(x, own, kPitch);
  if (b.at == nullptr || wait) return;
  if constexpr (kGroupsAreSquares<S>)
    if (b.lie.left) return put_rows(x, first, b);
  put_columns(x, first, b);
}

// The group's lines of the strip that comes next are on their way from memory meanwhile; few of them follow another.
template <class S, class T>
TEV_INLINE void prefetch_next(const lines_of_b<T>& b, int64_t first) {
  constexpr int64_t kLine = kLineBytes / sizeof(T);
  const T* const next = b.at + S::P * b.lie.place() + first * b.lie.line();
  if (b.lie.left)
    for (int p = 0; p < S::P; ++p) __builtin_prefetch(next + p * b.lie.ldb, 0, kIntoSecondCache);
  else
    for (int i = 0; i < S::G; ++i) TEV_UNROLL
  for (int p = 0; p < S::P; p += kLine) __builtin_prefetch(next + i * b.lie.ldb + p, 0, kIntoSecondCache);
}

// All lines of a strip of P places. The strip is used up by a product that goes to B.
template <triangular Kind, bool kForward, int G, int P, class T>
__attribute__((noinline)) void work_out_strip(const triangle_block<T>& block, bool unit, T* strip,
                                              const lines_of_b<T>& b) {
  const int64_t lines = block.head->lines, groups = lines / G;
  // Lines that others still take from are multiplied last.
  constexpr bool kUpwards = kForward == (Kind == triangular::solve);
  using S = line_tile<T, G, P>;
  for (int64_t i = 0; i < groups; ++i) {
    const int64_t g = kUpwards ? i : groups - 1 - i;
    if (P == kPlaces<T> && b.at != nullptr) prefetch_next<S>(b, g * G);
    work_out_packed<Kind, kForward, S>(block, lines, unit, g, reals(strip), b);
  }
  if constexpr (!kGroupsAreSquares<S>)
    if (b.at != nullptr && b.lie.left) store_lines<P>(b.lie, b.lines, b.width, strip, b.at);
}

// All strips, one after another; b: the first one's lines.
template <triangular Kind, bool kForward, class T>
TEV_INLINE void work_out_strips(int64_t places, const T* triangle, T* strips, lines_of_b<T> b) {
  constexpr int G = kGroup<T>;
  const triangle_block<T> block = packed_triangle<T, G>(triangle);
  const bool unit = block.head->unit != 0;
  for_places<T>(places, [&](auto v, int64_t first, int64_t width) TEV_LAMBDA {
    constexpr int P = kPlaces<T, decltype(v)::value>;
    b.width = width;
    work_out_strip<Kind, kForward, G, P>(block, unit, strips + first * block.head->lines, b);
    if (b.at != nullptr) b.at += P * b.lie.place();
  });
}

// ---- As the records know them --------------------------------------------------------------------------------------

// The block of B's lines that `source` is.
template <class T, bool kLeft>
void places_copy(const operand* source, packed* target, const T* scalar) {
  const line_layout b_lies = {kLeft, source->ld};
  const int64_t n = kLeft ? source->rows : source->columns, places = kLeft ? source->columns : source->rows;
  const T* const b = static_cast<const T*>(source->data);
  T* const strips = static_cast<T*>(target->data);
  target->depth = n;
  target->width = places;
  for_places<T>(places, [&](auto v, int64_t first, int64_t width) TEV_LAMBDA {
    constexpr int P = kPlaces<T, decltype(v)::value>;
    T* const strip = strips + first * whole_groups(n, kGroup<T>);
    load_lines<P>(b_lies, n, width, *scalar, b + first * b_lies.place(), strip);
    fill_group<P>(n, strip);
  });
}

// The packed lines, whichever of the panels they are, are worked out to C and used up.
template <triangular Kind, bool kLeft, bool kForward, class T>
TEV_INLINE void triangular_kernel(const T* a_panel, const T* b_panel, const operand* c) {
  const int64_t places = kLeft ? c->columns : c->rows, n = kLeft ? c->rows : c->columns;
  work_out_strips<Kind, kForward>(places, kLeft ? a_panel : b_panel, const_cast<T*>(kLeft ? b_panel : a_panel),
                                  {{kLeft, c->ld}, n, 0, static_cast<T*>(c->data)});
}

// ---- Solutions of other tiles --------------------------------------------------------------------------------------

// The triangle in groups of G lines, with its divisors; without reciprocals a solution divides in earnest.
template <class T, int G, bool kReciprocals>
TEV_INLINE void copy_for_tiles(char side, const operand* source, packed* target) {
  const bool left = is_letter(&side, 'L');
  const char trans = stored_transposition(source);
  const bool lower = (stored_triangle(source) == 'L') == (trans == 'N');
  const int64_t n = target->depth = target->width = source->rows;
  const T* const a = static_cast<const T*>(source->data);
  copy_triangle<G>(lower == left, trans == 'C', strides_of(left, trans == 'N', source->ld), n, a, target->data);
  set_divisors<G>(trans == 'C', n, a, source->ld, target->data);
  if constexpr (!kReciprocals) {
    const triangle_block<T> block = packed_triangle<T, G>(target->data);
    for (int64_t i = 0; i < block.head->lines; ++i) block.divisors[i].reciprocal = __builtin_nanf("");
  }
}

template <class T, bool kForward, int G, int P>
TEV_INLINE void solve_tiles(bool unit, const T* triangle, T* strip) {
  work_out_strip<triangular::solve, kForward, G, P>(packed_triangle<T, G>(triangle), unit, strip, {});
}

}  // namespace tev::TEV_TIER
