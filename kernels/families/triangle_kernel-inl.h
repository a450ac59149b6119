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

// Half a register behind a mask, where the tier has such masks; whole ones as load_first and store_first say.
#if defined(__AVX512VL__)
inline constexpr bool kMasksHalves = true;
#else
inline constexpr bool kMasksHalves = false;
#endif
template <int W, class R>
TEV_INLINE vec<R, W> load_some(const R* from, int64_t n) {
#if defined(__AVX512VL__)
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 8)
    return _mm256_maskz_loadu_pd(static_cast<__mmask8>((1u << n) - 1), from);
  else if constexpr (sizeof(R) * W == 32)
    return _mm256_maskz_loadu_ps(static_cast<__mmask8>((1u << n) - 1), from);
#endif
  return load_first<W>(from, n);
}
template <int W, class R>
TEV_INLINE void store_some(vec<R, W> value, R* to, int64_t n) {
#if defined(__AVX512VL__)
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 8)
    return _mm256_mask_storeu_pd(to, static_cast<__mmask8>((1u << n) - 1), value);
  else if constexpr (sizeof(R) * W == 32)
    return _mm256_mask_storeu_ps(to, static_cast<__mmask8>((1u << n) - 1), value);
#endif
  store_first<W>(value, to, n);
}

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
    return count >= N ? load<L>(reals(from)) : load_some<L>(reals(from), count * U);
  }
  TEV_INLINE static void store_row(vec<R, L> row, int64_t count, T* to) {
    if (count >= N)
      store<L>(row, reals(to));
    else
      store_some<L>(row, reals(to), count * U);
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

// Lanes first .. first+W-1 of a register.
template <int W, class R, class V>
TEV_INLINE vec<R, W> lanes_from(const V& v, int first) {
  vec<R, W> part;
  TEV_UNROLL
  for (int i = 0; i < W; ++i) part[i] = v[first + i];
  return part;
}

// Lines first .. first+G-1 as rows of B, in squares of registers or parts of them.
template <class S, class T>
TEV_INLINE void put_rows(const line_values<S>& x, int64_t first, const lines_of_b<T>& b) {
  using R = typename S::R;
  constexpr int N = S::L / S::U, Q = S::G < N ? S::G : N, W = Q * S::U;
  TEV_UNROLL
  for (int i = 0; i < S::G; i += Q) TEV_UNROLL
  for (int p = 0; p < S::P; p += Q) {
    vec<R, W> square[Q];
    TEV_UNROLL
    for (int q = 0; q < Q; ++q) square[q] = lanes_from<W, R>(x.of[i + q][p / N], p % N * S::U);
    transpose<W, S::U>(square);
    const int64_t lines = b.lines - first - i;
    TEV_UNROLL
    for (int q = 0; q < Q; ++q) {
      if (p + q >= b.width) break;
      R* const to = reals(b.at + first + i + (p + q) * b.lie.ldb);
      if (lines >= Q)
        store<W>(square[q], to);
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
                               typename S::R* strip, const lines_of_b<typename S::T>& b) {
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
  if (Kind == triangular::solve || b.at == nullptr) {
    TEV_UNROLL
    for (int i = 0; i < G; ++i) TEV_UNROLL
    for (int v = 0; v < V; ++v) store<L>(x.of[i][v], own + (i * V + v) * L);
  }
  if (b.at == nullptr) return;
  if (b.lie.left)
    put_rows(x, first, b);
  else
    put_columns(x, first, b);
}

// All lines of a strip of P places. The strip is used up by a product that goes to B.
template <triangular Kind, bool kForward, int G, int P, class T>
__attribute__((noinline)) void work_out_strip(const triangle_block<T>& block, bool unit, T* strip,
                                              const lines_of_b<T>& b) {
  const int64_t lines = block.head->lines, groups = lines / G;
  // Lines that others still take from are multiplied last.
  constexpr bool kUpwards = kForward == (Kind == triangular::solve);
  for (int64_t i = 0; i < groups; ++i)
    work_out_group<Kind, kForward, line_tile<T, G, P>>(block, lines, unit, kUpwards ? i : groups - 1 - i, reals(strip),
                                                       b);
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
