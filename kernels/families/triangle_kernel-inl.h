// SPDX-License-Identifier: BSD-3-Clause
// The lines of B times a packed triangle (triangle_copy-inl.h), or solved with it. A line has a "place" for each
// right-hand side. Places are packed in strips of a few registers, line by line, and worked out in place: a register
// holds neighbouring places of one line, and what is broadcast comes from the triangle:
//
//     strip 0   line 0: place 0 .. W-1 | W .. 2W-1 | 2W .. 3W-1     each group of lines: the sums over the lines that
//               line 1: ..                                          it takes from in registers, then the corner
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

enum class triangular { multiply, solve };

// Lines are the rows of B (left) or its columns.
struct line_layout {
  bool left;
  int64_t ldb;

  TEV_INLINE int64_t line() const { return left ? 1 : ldb; }
  TEV_INLINE int64_t place() const { return left ? ldb : 1; }
};

// Calls body(width<V>, first place, places) for each strip.
template <class T, int V = kStripVectors, class Body>
TEV_INLINE void for_places(int64_t places, const Body& body, int64_t first = 0) {
  constexpr int64_t P = kPlaces<T, V>;
  for (; first + P <= places; first += P) body(width<V>{}, first, P);
  if constexpr (V > 1)
    for_places<T, V - 1>(places, body, first);
  else if (first < places)
    body(width<1>{}, first, places - first);
}

// ---- Between B and strips ------------------------------------------------------------------------------------------

// The places of a strip that is one register wide, of which B has `width`; the last one stands for those that it lacks.
template <class T>
struct partial_strip {
  static constexpr int P = kPlaces<T, 1>;
  T* at[P];

  TEV_INLINE partial_strip(int64_t width, T* b, int64_t ldb) {
    TEV_UNROLL
    for (int p = 0; p < P; ++p) at[p] = b + (p < width ? p : width - 1) * ldb;
  }
};

// Between n lines of B, places from b on, and a strip; a line of B is contiguous on side R, a place on side L.
template <class T, class Map>
TEV_INLINE void load_part(line_layout b_lies, int64_t n, int64_t width, const T* b, T* strip, Map alpha) {
  using R = real_of<T>;
  constexpr int U = kParts<T>, L = kLanes<R>, P = kPlaces<T, 1>;
  if (!b_lies.left) {
    for (int64_t i = 0; i < n; ++i)
      store<L>(alpha.template operator()<L>(load_first<L>(reals(b + i * b_lies.ldb), width * U)), reals(strip + i * P));
    return;
  }
  const partial_strip<const T> place(width, b, b_lies.ldb);
  int64_t i = 0;
  for (; i < n && n >= P; i += P) {
    i = min_of(i, n - P);  // the last square overlaps the one before it
    vec<R, L> square[P];
    TEV_UNROLL
    for (int p = 0; p < P; ++p) square[p] = alpha.template operator()<L>(load<L>(reals(place.at[p] + i)));
    transpose<L, U>(square);
    TEV_UNROLL
    for (int p = 0; p < P; ++p) store<L>(square[p], reals(strip + (i + p) * P));
  }
  for (; i < n; ++i)
    for (int p = 0; p < P; ++p)
      store<U>(alpha.template operator()<U>(load<U>(reals(place.at[p] + i))), reals(strip + i * P + p));
}

template <class T>
TEV_INLINE void store_part(line_layout b_lies, int64_t n, int64_t width, const T* strip, T* b) {
  using R = real_of<T>;
  constexpr int U = kParts<T>, L = kLanes<R>, P = kPlaces<T, 1>;
  if (!b_lies.left) {
    for (int64_t i = 0; i < n; ++i) store_first<L>(load<L>(reals(strip + i * P)), reals(b + i * b_lies.ldb), width * U);
    return;
  }
  int64_t i = 0;
  for (; i < n && n >= P; i += P) {
    i = min_of(i, n - P);
    vec<R, L> square[P];
    TEV_UNROLL
    for (int p = 0; p < P; ++p) square[p] = load<L>(reals(strip + (i + p) * P));
    transpose<L, U>(square);
    TEV_UNROLL
    for (int p = 0; p < P; ++p)
      if (p < width) store<L>(square[p], reals(b + p * b_lies.ldb + i));
  }
  for (; i < n; ++i)
    for (int64_t p = 0; p < width; ++p) b[i + p * b_lies.ldb] = strip[i * P + p];
}

template <int P, class T, class Map>
TEV_INLINE void load_strip(line_layout b_lies, int64_t n, int64_t width, const T* b, T* strip, Map alpha) {
  if constexpr (P == kPlaces<T, 1>)
    if (width < P) return load_part(b_lies, n, width, b, strip, alpha);
  if (b_lies.left)
    copy_right_strip<T, P>(n, b, b_lies.ldb, strip, alpha);
  else
    copy_down_strip<T, P>(n, b, b_lies.ldb, strip, alpha);
}

// n elements of each of R columns from a strip that is R wide: undoes copy_right_strip.
template <class T, int R>
TEV_INLINE void spread_strip(int64_t n, const T* strip, T* to, int64_t ld) {
  constexpr int U = kParts<T>, W = lanes_dividing<real_of<T>>(R * U), kRows = W / U;
  int64_t p = 0;
  if constexpr (kRows > 1)
    for (; p < n && n >= kRows; p += kRows) {
      p = min_of(p, n - kRows);
      TEV_UNROLL
      for (int c = 0; c < R; c += kRows) {
        vec<real_of<T>, W> square[kRows];
        TEV_UNROLL
        for (int i = 0; i < kRows; ++i) square[i] = load<W>(reals(strip + (p + i) * R + c));
        transpose<W, U>(square);
        TEV_UNROLL
        for (int i = 0; i < kRows; ++i) store<W>(square[i], reals(to + p + (c + i) * ld));
      }
    }
  for (; p < n; ++p)
    for (int c = 0; c < R; ++c) to[p + c * ld] = strip[p * R + c];
}

template <int P, class T>
TEV_INLINE void store_strip(line_layout b_lies, int64_t n, int64_t width, const T* strip, T* b) {
  if constexpr (P == kPlaces<T, 1>)
    if (width < P) return store_part(b_lies, n, width, strip, b);
  if (b_lies.left) return spread_strip<T, P>(n, strip, b, b_lies.ldb);
  constexpr int kReals = P * kParts<T>, W = lanes_dividing<real_of<T>>(kReals);
  for (int64_t i = 0; i < n; ++i, strip += P, b += b_lies.ldb) {
    TEV_UNROLL
    for (int v = 0; v < kReals; v += W) store<W>(load<W>(reals(strip) + v), reals(b) + v);
  }
}

// Into a strip, times alpha; lines that lack to a group are 0.
template <int P, class T>
__attribute__((noinline)) void load_lines(line_layout b_lies, int64_t n, int64_t width, T alpha, const T* b, T* strip) {
  if (is_one(alpha))
    load_strip<P>(b_lies, n, width, b, strip, on_the_way<T, false, false>{alpha});
  else
    load_strip<P>(b_lies, n, width, b, strip, on_the_way<T, true, false>{alpha});
  for (int64_t i = n * P; i < whole_groups(n, kGroup<T>) * P; ++i) strip[i] = T{};
}

template <int P, class T>
__attribute__((noinline)) void store_lines(line_layout b_lies, int64_t n, int64_t width, const T* strip, T* b) {
  store_strip<P>(b_lies, n, width, strip, b);
}

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

// Number i of a packed triangle.
template <int L, class R>
TEV_INLINE auto factor_of(const R* t, int i) {
  if constexpr (kCopies < R >> 1)
    return load<L>(t + i * kCopies<R>);
  else
    return splat<L>(t[i]);
}

// What lines kFirst .. kEnd-1 of the group take of the line x; t holds its G factors.
template <int kFirst, int kEnd, class S, class R>
TEV_INLINE void take(const R* t, const R* x, line_sums<S>& s) {
  constexpr int L = S::L, V = S::V;
  vec<R, L> line[V];
  TEV_UNROLL
  for (int v = 0; v < V; ++v) line[v] = load<L>(x + v * L);
  TEV_UNROLL
  for (int i = kFirst * S::U; i < kEnd * S::U; ++i) {
    const auto factor = factor_of<L>(t, i);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) s.of[i][v] = fma(line[v], factor, s.of[i][v]);
  }
}

template <class S, class R>
TEV_INLINE void take_all(int64_t depth, const R* t, const R* x, line_sums<S>& s) {
  constexpr int kLine = S::V * S::L, kStep = packed_numbers<typename S::T>(S::G);
  int64_t k = 0;
  for (; k + 4 <= depth; k += 4) TEV_UNROLL
  for (int u = 0; u < 4; ++u, t += kStep, x += kLine) take<0, S::G>(t, x, s);
  for (; k < depth; ++k, t += kStep, x += kLine) take<0, S::G>(t, x, s);
}

template <class S>
TEV_INLINE auto sum_of(const line_sums<S>& s, int i, int v) {
  using R = typename S::R;
  if constexpr (S::U == 2)
    return s.of[2 * i][v] + swap_pairs<S::L, R>(s.of[2 * i + 1][v]) * alternate<S::L>(R(-1), R(1));
  else
    return s.of[i][v];
}

// x := x / d. The quotient by the reciprocal and one correction is the rounded one (P. Markstein, IBM J. Res. Dev. 34,
// 1990) where nothing leaves the range of numbers; where something did, it is a NaN, and the division proper follows.
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
      const auto first = x[v] * reciprocal;
      quotient[v] = fma(fma(-first, scale, x[v]), reciprocal, first);
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

// Of the solved line i the lines after it in the order of solution take their share.
template <bool kForward, int i, class S, class R>
TEV_INLINE void solve_corner(const R* corner, const divisor<R>* divisors, line_values<S>& x) {
  using T = typename S::T;
  constexpr int G = S::G;
  if (divisors != nullptr) divide<S>(divisors[i], x.of[i]);
  constexpr int kFrom = kForward ? i + 1 : 0, kEnd = kForward ? G : i;
  TEV_UNROLL
  for (int j = kFrom; j < kEnd; ++j) {
    const R* const packed = corner + packed_numbers<T>(i * G + j);
    T t;
    if constexpr (kComplex<T>)
      t = {-packed[0], -packed[kCopies<R>]};
    else
      t = -packed[0];
    const auto factor = multiplier_of<S::L>(t);
    TEV_UNROLL
    for (int v = 0; v < S::V; ++v) x.of[j][v] = plus_product(x.of[j][v], factor, x.of[i][v]);
  }
  if constexpr (kForward ? i + 1 < G : i > 0) solve_corner<kForward, kForward ? i + 1 : i - 1>(corner, divisors, x);
}

// What the lines take of the group's own line k; with a unit diagonal line k takes itself whole, later.
template <bool kForward, int k, class S, class R>
TEV_INLINE void take_corner(bool unit, const R* corner, const R* own, line_sums<S>& s) {
  constexpr int G = S::G;
  if constexpr (k < G) {
    const R* const line = own + k * S::V * S::L;
    const R* const factors = corner + packed_numbers<typename S::T>(k * G);
    take<kForward ? k + 1 : 0, kForward ? G : k>(factors, line, s);
    if (!unit) take<k, k + 1>(factors, line, s);
    take_corner<kForward, k + 1>(unit, corner, own, s);
  }
}

template <triangular Kind, bool kForward, class S>
TEV_INLINE void work_out_group(const triangle_block<typename S::T>& block, int64_t lines, bool unit, int64_t g,
                               typename S::R* strip) {
  using T = typename S::T;
  using R = typename S::R;
  constexpr int G = S::G, L = S::L, V = S::V;
  const int64_t first = g * G, before = kForward ? first : 0, behind = kForward ? 0 : lines - first - G;
  const R* const t = block.groups + packed_numbers<T>(group_start<kForward, G>(g, lines));
  const R* const corner = t + packed_numbers<T>(before * G);
  R* const own = strip + first * V * L;
  line_sums<S> s = {};
  take_all(before, t, strip, s);
  take_all(behind, corner + packed_numbers<T>(G * G), own + G * V * L, s);
  if constexpr (Kind == triangular::multiply) take_corner<kForward, 0>(unit, corner, own, s);
  line_values<S> x;
  TEV_UNROLL
  for (int i = 0; i < G; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    x.of[i][v] = sum_of(s, i, v);
    if constexpr (Kind == triangular::solve)
      x.of[i][v] = load<L>(own + (i * V + v) * L) - x.of[i][v];
    else if (unit)
      x.of[i][v] += load<L>(own + (i * V + v) * L);
  }
  if constexpr (Kind == triangular::solve)
    solve_corner<kForward, kForward ? 0 : G - 1>(corner, unit ? nullptr : block.divisors + first, x);
  TEV_UNROLL
  for (int i = 0; i < G; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) store<L>(x.of[i][v], own + (i * V + v) * L);
}

// All lines of a strip of P places.
template <triangular Kind, bool kForward, int G, int P, class T>
__attribute__((noinline)) void work_out_strip(const triangle_block<T>& block, bool unit, T* strip) {
  const int64_t lines = block.head->lines, groups = lines / G;
  // Lines that others still take from are multiplied last.
  constexpr bool kUpwards = kForward == (Kind == triangular::solve);
  for (int64_t i = 0; i < groups; ++i)
    work_out_group<Kind, kForward, line_tile<T, G, P>>(block, lines, unit, kUpwards ? i : groups - 1 - i, reals(strip));
}

// All strips, one after another.
template <triangular Kind, bool kForward, class T>
TEV_INLINE void work_out_strips(int64_t places, const T* triangle, T* strips) {
  constexpr int G = kGroup<T>;
  const triangle_block<T> block = packed_triangle<T, G>(triangle);
  const bool unit = block.head->unit != 0;
  for_places<T>(places, [&](auto v, int64_t first, int64_t) TEV_LAMBDA {
    work_out_strip<Kind, kForward, G, kPlaces<T, decltype(v)::value>>(block, unit, strips + first * block.head->lines);
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
    load_lines<kPlaces<T, decltype(v)::value>>(b_lies, n, width, *scalar, b + first * b_lies.place(),
                                               strips + first * whole_groups(n, kGroup<T>));
  });
}

// The packed lines are worked out where they are, whichever of the panels that is, and stored to C.
template <bool kLeft, class T>
TEV_INLINE void triangular_kernel(triangle_kernel_fn<T>* kernel_0, const T* a_panel, const T* b_panel,
                                  const operand* c) {
  const line_layout b_lies = {kLeft, c->ld};
  const int64_t places = kLeft ? c->columns : c->rows, n = kLeft ? c->rows : c->columns;
  T *const strips = const_cast<T*>(kLeft ? b_panel : a_panel), *const b = static_cast<T*>(c->data);
  kernel_0(&places, kLeft ? a_panel : b_panel, strips);
  for_places<T>(places, [&](auto v, int64_t first, int64_t width) TEV_LAMBDA {
    store_lines<kPlaces<T, decltype(v)::value>>(b_lies, n, width, strips + first * whole_groups(n, kGroup<T>),
                                                b + first * b_lies.place());
  });
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
  work_out_strip<triangular::solve, kForward, G, P>(packed_triangle<T, G>(triangle), unit, strip);
}

}  // namespace tev::TEV_TIER
