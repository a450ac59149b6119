// SPDX-License-Identifier: BSD-3-Clause
// trmm and trsm: B := alpha op(A) B and B := alpha op(A)^-1 B (side R: from the right), A triangular.
//
// All sixteen forms are one. What A meets are the "lines" of B: its rows on side L, its columns on side R; every line
// has a "place" for each right-hand side. L(i, k) is what line i takes of line k. L is lower triangular, and lines are
// solved forward, first to last; or it is upper triangular, and they are solved backward. The lines are cut into
// blocks. A block is worked out by itself, and what the other lines take of it is a matrix product:
//
//          block  rest                         solve:     block, then rest - X block
//     block  D                                 multiply:  rest + X block, then block, from the last to the first
//     rest   X    ..                           backward, the rest are the lines before the block
//
// Where lines are worked out, a register holds neighbouring places of one line, and what is broadcast comes from the
// triangle. D is packed in groups of G lines: for each line k that the group takes from, G elements side by side, then
// the corner, where the group's lines take from each other. The places of B are packed in strips of a few registers,
// line by line, and worked out in place:
//
//     group   0: corner      strip   line 0:    place 0 .. W-1 | W .. 2W-1 | 2W .. 3W-1
//             1: k < G       0       line 1:    ..
//                corner              ..
//             2: k < 2G              each group of lines: the sums over k in registers, then the corner
//                corner
#pragma once

#include "kernels/families/gemm_framework-inl.h"
#include "kernels/families/in_place-inl.h"
#include "kernels/routine_types.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

// Registers in a strip's line, lines worked out together: 3 x 8 sums of 32 registers, 3 x 4 or, where products need
// registers of their own, 2 x 4 of 16. A complex line is two of them.
inline constexpr int kStripVectors = kHasFma ? 3 : 2;
template <class T>
inline constexpr int kGroup = (kVectorRegisters == 32 ? 8 : 4) / kParts<T>;

// Places of a strip that is V registers wide.
template <class T, int V>
inline constexpr int kPlaces = V* kLanes<real_of<T>> / kParts<T>;

template <class R>
using strip_vector = vec<R, kLanes<R>>;

// Lines of a block: in memory of the allocator, where a strip and its share of the triangle stay in the second cache;
// on the stack, also when there is no memory.
inline constexpr int64_t kLargeBlock = 256, kSmallBlock = 32;

enum class triangular { multiply, solve };

// Line i takes a[i * to + k * from] of line k; one of the two is 1, the other lda.
template <class T>
struct triangular_call {
  bool left, forward, unit, conjugated;
  char trans;
  int64_t places;
  int64_t to, from, lda, ldb;

  TEV_INLINE int64_t line() const { return left ? 1 : ldb; }
  TEV_INLINE int64_t place() const { return left ? ldb : 1; }
};

// x / d = (same x + crossed (x with its parts exchanged, one negated)) / scale; of a real d only the last two count.
// reciprocal is 1 / scale, or NaN where that could not stand in for the division.
template <class R>
struct divisor {
  R same, crossed, scale, reciprocal;
};

// Where a broadcast takes a shuffle, every number of the triangle is packed as a vector of its copies.
template <class R>
inline constexpr int kCopies = kRotatesB<R> ? kLanes<R> : 1;

// A block of L and the room for a strip, in memory that the caller has.
template <class T>
struct triangle_block {
  int64_t lines;       // rounded up to whole groups; the last ones take nothing and are divided by 1
  real_of<T>* groups;  // G G (1 + 2 + .. + lines / G) elements, every number of them kCopies times
  divisor<real_of<T>>* divisors;
  T* strip;  // lines x kPlaces<T, kStripVectors>
};

TEV_INLINE constexpr int64_t whole_groups(int64_t lines, int64_t group) { return (lines + group - 1) / group * group; }

// Numbers that n elements of the packed triangle take.
template <class T>
TEV_INLINE constexpr int64_t packed_numbers(int64_t n) {
  return n * kParts<T> * kCopies<real_of<T>>;
}

template <class T>
TEV_INLINE constexpr int64_t triangle_numbers(int64_t lines) {
  return packed_numbers<T>(lines * (lines + kGroup<T>) / 2);
}

// Where group g begins, in elements: forward a group takes from the lines up to its own, backward from its own on.
template <bool kForward, class T>
TEV_INLINE int64_t group_start(int64_t g, int64_t lines) {
  constexpr int64_t G = kGroup<T>;
  return G * G * (kForward ? g * (g + 1) / 2 : g * (lines / G) - g * (g - 1) / 2);
}

// ---- Packing -------------------------------------------------------------------------------------------------------

// Complex by Smith's method: the modulus of d is never squared, so that it can neither overflow nor vanish.
template <class T>
TEV_INLINE divisor<real_of<T>> divisor_of(T d) {
  using R = real_of<T>;
  divisor<R> by = {1, 0, 1, 1};
  if constexpr (kComplex<T>) {
    const bool real_is_larger = (d.real < 0 ? -d.real : d.real) >= (d.imag < 0 ? -d.imag : d.imag);
    const R ratio = real_is_larger ? d.imag / d.real : d.real / d.imag;
    by.same = real_is_larger ? R(1) : ratio;
    by.crossed = real_is_larger ? ratio : R(1);
    by.scale = real_is_larger ? d.real + d.imag * ratio : d.imag + d.real * ratio;
  } else {
    by.scale = d;
  }
  constexpr R kLargest = sizeof(R) == 4 ? R(0x1p120) : R(0x1p1000);
  const R size = by.scale < 0 ? -by.scale : by.scale;
  by.reciprocal = size > 1 / kLargest && size < kLargest ? 1 / by.scale : __builtin_nanf("");
  return by;
}

// `rows` lines of L over `depth` lines that they take from; lines that lack to a group take nothing.
template <class T, bool kConjugated>
TEV_INLINE void pack_lines(const triangular_call<T>& c, int64_t rows, int64_t depth, const T* a, T* to) {
  constexpr int G = kGroup<T>;
  constexpr on_the_way<T, false, kConjugated> as_it_is = {};
  if (rows == G) {
    if (c.to == 1) return copy_down_strip<T, G>(depth, a, c.from, to, as_it_is);
    return copy_right_strip<T, G>(depth, a, c.to, to, as_it_is);
  }
  for (int64_t k = 0; k < depth; ++k)
    for (int64_t i = 0; i < G; ++i)
      to[k * G + i] = i < rows ? conjugate_if(kConjugated, a[i * c.to + k * c.from]) : T{};
}

// Numbers become vectors of their copies, from the last on: they have the room behind them.
template <class R>
TEV_INLINE void spread_numbers(int64_t count, R* numbers) {
  if constexpr (kCopies < R >> 1)
    for (int64_t i = count - 1; i >= 0; --i) store<kCopies<R>>(splat<kCopies<R>>(numbers[i]), numbers + i * kCopies<R>);
}

// What lies on the other side of the diagonal is copied with a corner, and used by nobody.
template <triangular Kind, bool kForward, bool kConjugated, class T>
__attribute__((noinline)) void pack_triangle(const triangular_call<T>& c, int64_t n, const T* a,
                                             const triangle_block<T>& block) {
  constexpr int64_t G = kGroup<T>;
  real_of<T>* group = block.groups;
  for (int64_t i = 0; i < block.lines; i += G) {
    const int64_t rows = min_of(n - i, G), first = kForward ? 0 : i, end = kForward ? i + rows : n;
    const int64_t depth = end - first, whole_depth = (kForward ? i + G : block.lines) - first;
    T* const to = reinterpret_cast<T*>(group);
    pack_lines<T, kConjugated>(c, rows, depth, a + i * c.to + first * c.from, to);
    for (int64_t k = depth * G; k < whole_depth * G; ++k) to[k] = T{};
    spread_numbers(whole_depth * G * kParts<T>, group);
    group += packed_numbers<T>(whole_depth * G);
  }
  if (Kind == triangular::multiply || c.unit) return;
  for (int64_t i = 0; i < block.lines; ++i)
    block.divisors[i] = divisor_of(i < n ? conjugate_if(kConjugated, a[i * (c.to + c.from)]) : real_element<T>(1));
}

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
TEV_INLINE void load_part(const triangular_call<T>& c, int64_t n, int64_t width, const T* b, T* strip, Map alpha) {
  using R = real_of<T>;
  constexpr int U = kParts<T>, L = kLanes<R>, P = kPlaces<T, 1>;
  if (!c.left) {
    for (int64_t i = 0; i < n; ++i)
      store<L>(alpha.template operator()<L>(load_first<L>(reals(b + i * c.ldb), width * U)), reals(strip + i * P));
    return;
  }
  const partial_strip<const T> place(width, b, c.ldb);
  int64_t i = 0;
  for (; i < n && n >= P; i += P) {
    i = min_of(i, n - P);  // the last square overlaps the one before it
    strip_vector<R> square[P];
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
__attribute__((noinline)) void store_part(const triangular_call<T>& c, int64_t n, int64_t width, const T* strip, T* b) {
  using R = real_of<T>;
  constexpr int U = kParts<T>, L = kLanes<R>, P = kPlaces<T, 1>;
  if (!c.left) {
    for (int64_t i = 0; i < n; ++i) store_first<L>(load<L>(reals(strip + i * P)), reals(b + i * c.ldb), width * U);
    return;
  }
  int64_t i = 0;
  for (; i < n && n >= P; i += P) {
    i = min_of(i, n - P);
    strip_vector<R> square[P];
    TEV_UNROLL
    for (int p = 0; p < P; ++p) square[p] = load<L>(reals(strip + (i + p) * P));
    transpose<L, U>(square);
    TEV_UNROLL
    for (int p = 0; p < P; ++p)
      if (p < width) store<L>(square[p], reals(b + p * c.ldb + i));
  }
  for (; i < n; ++i)
    for (int64_t p = 0; p < width; ++p) b[i + p * c.ldb] = strip[i * P + p];
}

template <class T, int P, class Map>
TEV_INLINE void load_mapped(const triangular_call<T>& c, int64_t n, int64_t width, const T* b, T* strip, Map alpha) {
  if constexpr (P == kPlaces<T, 1>)
    if (width < P) return load_part(c, n, width, b, strip, alpha);
  if (c.left)
    copy_right_strip<T, P>(n, b, c.ldb, strip, alpha);
  else
    copy_down_strip<T, P>(n, b, c.ldb, strip, alpha);
}

// Times alpha on the way in.
template <class T, int P>
__attribute__((noinline)) void load_strip(const triangular_call<T>& c, int64_t n, int64_t width, T alpha, const T* b,
                                          T* strip) {
  if (is_one(alpha))
    load_mapped<T, P>(c, n, width, b, strip, on_the_way<T, false, false>{alpha});
  else
    load_mapped<T, P>(c, n, width, b, strip, on_the_way<T, true, false>{alpha});
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

template <class T, int P>
__attribute__((noinline)) void store_strip(const triangular_call<T>& c, int64_t n, int64_t width, const T* strip,
                                           T* b) {
  if constexpr (P == kPlaces<T, 1>)
    if (width < P) return store_part(c, n, width, strip, b);
  if (c.left) return spread_strip<T, P>(n, strip, b, c.ldb);
  constexpr int kReals = P * kParts<T>, W = lanes_dividing<real_of<T>>(kReals);
  for (int64_t i = 0; i < n; ++i, strip += P, b += c.ldb) {
    TEV_UNROLL
    for (int v = 0; v < kReals; v += W) store<W>(load<W>(reals(strip) + v), reals(b) + v);
  }
}

// ---- A group of lines of one strip ---------------------------------------------------------------------------------

// Sums of products t x: of a complex t with its real part, and with its imaginary part.
template <class T, int V>
struct line_sums {
  strip_vector<real_of<T>> of[kGroup<T> * kParts<T>][V];
};

template <class T, int V>
struct line_values {
  strip_vector<real_of<T>> of[kGroup<T>][V];
};

// Number i of a packed triangle.
template <class R>
TEV_INLINE auto factor_of(const R* t, int i) {
  if constexpr (kCopies < R >> 1)
    return load<kLanes<R>>(t + i * kCopies<R>);
  else
    return splat<kLanes<R>>(t[i]);
}

// What lines kFirst .. kEnd-1 of the group take of the line x; t holds its G factors.
template <int kFirst, int kEnd, class T, int V>
TEV_INLINE void take(const real_of<T>* t, const real_of<T>* x, line_sums<T, V>& s) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  strip_vector<R> line[V];
  TEV_UNROLL
  for (int v = 0; v < V; ++v) line[v] = load<L>(x + v * L);
  TEV_UNROLL
  for (int i = kFirst * kParts<T>; i < kEnd * kParts<T>; ++i) {
    const auto factor = factor_of(t, i);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) s.of[i][v] = fma(line[v], factor, s.of[i][v]);
  }
}

template <class T, int V>
TEV_INLINE void take_all(int64_t depth, const real_of<T>* t, const real_of<T>* x, line_sums<T, V>& s) {
  constexpr int G = kGroup<T>, L = kLanes<real_of<T>>, kStep = packed_numbers<T>(G);
  int64_t k = 0;
  for (; k + 4 <= depth; k += 4) TEV_UNROLL
  for (int u = 0; u < 4; ++u, t += kStep, x += V * L) take<0, G>(t, x, s);
  for (; k < depth; ++k, t += kStep, x += V * L) take<0, G>(t, x, s);
}

template <class T, int V>
TEV_INLINE auto sum_of(const line_sums<T, V>& s, int i, int v) {
  using R = real_of<T>;
  if constexpr (kComplex<T>)
    return s.of[2 * i][v] + swap_pairs<kLanes<R>, R>(s.of[2 * i + 1][v]) * alternate<kLanes<R>>(R(-1), R(1));
  else
    return s.of[i][v];
}

// x := x / d. The quotient by the reciprocal and one correction is the rounded one (P. Markstein, IBM J. Res. Dev. 34,
// 1990) where nothing leaves the range of numbers; where something did, it is a NaN, and the division proper follows.
template <class T, int V>
TEV_INLINE void divide(const divisor<real_of<T>>& d, strip_vector<real_of<T>> (&x)[V]) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  const auto scale = splat<L>(d.scale);
  if constexpr (kComplex<T>) {
    const auto same = splat<L>(d.same), crossed = alternate<L>(d.crossed, -d.crossed);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) x[v] = fma(swap_pairs<L, R>(x[v]), crossed, x[v] * same);
  }
  if constexpr (kHasFma) {
    const auto reciprocal = splat<L>(d.reciprocal);
    strip_vector<R> quotient[V], check = {};
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
template <bool kForward, int i, class T, int V>
TEV_INLINE void solve_corner(const real_of<T>* corner, const divisor<real_of<T>>* divisors, line_values<T, V>& x) {
  constexpr int G = kGroup<T>, L = kLanes<real_of<T>>;
  if (divisors != nullptr) divide<T, V>(divisors[i], x.of[i]);
  constexpr int kFrom = kForward ? i + 1 : 0, kEnd = kForward ? G : i;
  TEV_UNROLL
  for (int j = kFrom; j < kEnd; ++j) {
    const real_of<T>* const packed = corner + packed_numbers<T>(i * G + j);
    T t;
    if constexpr (kComplex<T>)
      t = {-packed[0], -packed[kCopies<real_of<T>>]};
    else
      t = -packed[0];
    const auto factor = multiplier_of<L>(t);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) x.of[j][v] = plus_product(x.of[j][v], factor, x.of[i][v]);
  }
  if constexpr (kForward ? i + 1 < G : i > 0) solve_corner<kForward, kForward ? i + 1 : i - 1>(corner, divisors, x);
}

// What the lines take of the group's own line k; with a unit diagonal line k takes itself whole, later.
template <bool kForward, int k, class T, int V>
TEV_INLINE void take_corner(bool unit, const real_of<T>* corner, const real_of<T>* own, line_sums<T, V>& s) {
  constexpr int G = kGroup<T>, L = kLanes<real_of<T>>;
  if constexpr (k < G) {
    const real_of<T>* const line = own + k * V * L;
    take<kForward ? k + 1 : 0, kForward ? G : k>(corner + packed_numbers<T>(k * G), line, s);
    if (!unit) take<k, k + 1>(corner + packed_numbers<T>(k * G), line, s);
    take_corner<kForward, k + 1>(unit, corner, own, s);
  }
}

template <triangular Kind, bool kForward, class T, int V>
TEV_INLINE void work_out_group(const triangle_block<T>& block, bool unit, int64_t g, real_of<T>* strip) {
  using R = real_of<T>;
  constexpr int G = kGroup<T>, L = kLanes<R>;
  const int64_t first = g * G, before = kForward ? first : 0, behind = kForward ? 0 : block.lines - first - G;
  const R* const t = block.groups + packed_numbers<T>(group_start<kForward, T>(g, block.lines));
  const R* const corner = t + packed_numbers<T>(before * G);
  R* const own = strip + first * V * L;
  line_sums<T, V> s = {};
  take_all(before, t, strip, s);
  take_all(behind, corner + packed_numbers<T>(G * G), own + G * V * L, s);
  if constexpr (Kind == triangular::multiply) take_corner<kForward, 0>(unit, corner, own, s);
  line_values<T, V> x;
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

template <triangular Kind, bool kForward, class T, int V>
__attribute__((noinline)) void work_out_strip(const triangle_block<T>& block, bool unit, T* strip) {
  const int64_t groups = block.lines / kGroup<T>;
  // Lines that others still take from are multiplied last.
  constexpr bool kUpwards = kForward == (Kind == triangular::solve);
  for (int64_t i = 0; i < groups; ++i)
    work_out_group<Kind, kForward, T, V>(block, unit, kUpwards ? i : groups - 1 - i, reals(strip));
}

// ---- A block of lines ----------------------------------------------------------------------------------------------

template <triangular Kind, bool kForward, int V, class T>
TEV_INLINE void work_out_places(const triangular_call<T>& c, int64_t n, int64_t width, T alpha, T* b,
                                const triangle_block<T>& block) {
  constexpr int P = kPlaces<T, V>;
  load_strip<T, P>(c, n, width, alpha, b, block.strip);
  for (int64_t i = n * P; i < block.lines * P; ++i) block.strip[i] = T{};
  work_out_strip<Kind, kForward, T, V>(block, c.unit, block.strip);
  store_strip<T, P>(c, n, width, block.strip, b);
}

// Whole registers of places as long as there are any, then the rest in one.
template <triangular Kind, bool kForward, int V, class T>
TEV_INLINE void work_out_rest(const triangular_call<T>& c, int64_t n, int64_t places, T alpha, T* b,
                              const triangle_block<T>& block) {
  constexpr int P = kPlaces<T, V>;
  for (; places >= P; places -= P, b += P * c.place()) work_out_places<Kind, kForward, V>(c, n, P, alpha, b, block);
  if constexpr (V > 1)
    work_out_rest<Kind, kForward, V - 1>(c, n, places, alpha, b, block);
  else if (places > 0)
    work_out_places<Kind, kForward, V>(c, n, places, alpha, b, block);
}

template <triangular Kind, bool kForward, class T>
__attribute__((noinline)) void work_out_block(const triangular_call<T>& c, int64_t n, T alpha, const T* a, T* b,
                                              triangle_block<T> block) {
  block.lines = whole_groups(n, kGroup<T>);
  if (c.conjugated)
    pack_triangle<Kind, kForward, kComplex<T>>(c, n, a, block);
  else
    pack_triangle<Kind, kForward, false>(c, n, a, block);
  work_out_rest<Kind, kForward, kStripVectors>(c, n, c.places, alpha, b, block);
}

// Lines i .. i+count-1 take from lines k .. k+depth-1: B(i) := scalar L(i, k) B(k) + beta B(i).
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void take_from_block(const triangular_call<T>& c, int64_t i, int64_t count, int64_t k, int64_t depth,
                                T scalar, const T* a, T beta, T* b) {
  if (count < 1) return;
  const char plain = 'N';
  const T* const x = a + i * c.to + k * c.from;
  const T* const from = b + k * c.line();
  T* const to = b + i * c.line();
  if (c.left)
    Gemm(&c.trans, &plain, &count, &c.places, &depth, &scalar, x, &c.lda, from, &c.ldb, &beta, to, &c.ldb);
  else
    Gemm(&plain, &c.trans, &c.places, &count, &depth, &scalar, from, &c.ldb, x, &c.lda, &beta, to, &c.ldb);
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
void block_by_block(const triangular_call<T>& c, int64_t order, int64_t step, T alpha, const T* a, T* b,
                    const triangle_block<T>& block) {
  const T one = real_element<T>(1);
  const int64_t blocks = (order + step - 1) / step;
  const bool upwards = c.forward == (Kind == triangular::solve);
  for (int64_t q = 0; q < blocks; ++q) {
    const int64_t k = (upwards ? q : blocks - 1 - q) * step, depth = order - k < step ? order - k : step;
    const int64_t rest = c.forward ? k + depth : 0, count = c.forward ? order - rest : k;
    const auto own = [&](T factor) TEV_LAMBDA {
      (c.forward ? work_out_block<Kind, true, T>
                 : work_out_block<Kind, false, T>)(c, depth, factor, a + k * (c.to + c.from), b + k * c.line(), block);
    };
    if constexpr (Kind == triangular::solve) {
      own(q == 0 ? alpha : one);
      take_from_block<T, Gemm>(c, rest, count, k, depth, real_element<T>(-1), a, q == 0 ? alpha : one, b);
    } else {
      take_from_block<T, Gemm>(c, rest, count, k, depth, alpha, a, one, b);
      own(alpha);
    }
  }
}

// Bytes for blocks of so many lines, whole groups of them.
template <class T>
TEV_INLINE constexpr int64_t block_bytes(int64_t lines) {
  using R = real_of<T>;
  return (triangle_numbers<T>(lines) + lines * kStripVectors * kLanes<R>)*static_cast<int64_t>(sizeof(R)) +
         lines * static_cast<int64_t>(sizeof(divisor<R>));
}

template <class T>
TEV_INLINE triangle_block<T> place_block(void* memory, int64_t lines) {
  T* const strip = static_cast<T*>(memory);
  real_of<T>* const groups = reals(strip + lines * kPlaces<T, kStripVectors>);
  return {.lines = lines,
          .groups = groups,
          .divisors = reinterpret_cast<divisor<real_of<T>>*>(groups + triangle_numbers<T>(lines)),
          .strip = strip};
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void in_small_blocks(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b) {
  alignas(64) char memory[block_bytes<T>(kSmallBlock)];
  block_by_block<Kind, T, Gemm>(c, order, kSmallBlock, alpha, a, b, place_block<T>(memory, kSmallBlock));
}

// Blocks of about the same size.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) bool in_large_blocks(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b) {
  const int64_t blocks = (order + kLargeBlock - 1) / kLargeBlock;
  const int64_t step = whole_groups((order + blocks - 1) / blocks, kGroup<T>);
  void* const memory = tev_serv_allocate(block_bytes<T>(step), 128);
  if (memory == nullptr) return false;
  block_by_block<Kind, T, Gemm>(c, order, step, alpha, a, b, place_block<T>(memory, step));
  tev_serv_deallocate(memory);
  return true;
}

// A packed triangle is read once per strip: a few places do not repay it.
template <class T>
inline constexpr int64_t kFewPlaces = kPlaces<T, 1>;

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void triangular_call_of(const char* side, const char* uplo, const char* transa, const char* diag, int64_t m,
                                   int64_t n, T alpha, const T* a, int64_t lda, T* b, int64_t ldb) {
  if (m < 1 || n < 1) return;
  if (is_zero(alpha)) {
    for (int64_t j = 0; j < n; ++j)
      for (int64_t i = 0; i < m; ++i) b[i + j * ldb] = T{};
    return;
  }
  const bool left = is_letter(side, 'L'), plain = is_letter(transa, 'N'), lower = is_letter(uplo, 'U') != plain;
  const bool down_a_column = left == plain;  // line i takes of line k: A(i, k), else A(k, i)
  const triangular_call<T> c = {.left = left,
                                .forward = lower == left,
                                .unit = is_letter(diag, 'U'),
                                .conjugated = kComplex<T> && is_letter(transa, 'C'),
                                .trans = *transa,
                                .places = left ? n : m,
                                .to = down_a_column ? 1 : lda,
                                .from = down_a_column ? lda : 1,
                                .lda = lda,
                                .ldb = ldb};
  const int64_t order = left ? m : n;
  if (order > kSmallBlock && c.places > kFewPlaces<T> && in_large_blocks<Kind, T, Gemm>(c, order, alpha, a, b)) return;
  in_small_blocks<Kind, T, Gemm>(c, order, alpha, a, b);
}

}  // namespace tev::TEV_TIER
