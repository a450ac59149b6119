// SPDX-License-Identifier: BSD-3-Clause
// A triangular matrix op(A), packed for the kernels of triangle_kernel-inl.h. What meets it are the lines of B: its
// rows where A multiplies or divides from the left, its columns where it does from the right. L(i, k) is what line i
// takes of line k: L is op(A) on the left, its transposed on the right. If L is lower triangular, lines take from those
// before them, "forward"; else "backward".
//
// The lines are cut into groups of G. Of each group the packed triangle has, for each line k that it takes from, G
// elements side by side, and the corner, where the group's lines take from each other:
//
//     head      how many lines, whole groups; is the diagonal 1?
//     group 0   forward:  corner                  backward:  corner
//               ..                                           k >= G
//     group 1   k < G                                        corner
//               corner                                       k >= 2G
//     ..
//     divisors  one for each line, where the triangle is solved with
#pragma once

#include "kernels/families/gemm_framework-inl.h"
#include "kernels/families/in_place-inl.h"
#include "kernels/triangle_routines.h"

namespace tev::TEV_TIER {

// Lines worked out together: with the registers of a strip's line (triangle_kernel-inl.h) 3 x 8 sums of 32 registers,
// 3 x 4 or, where products need registers of their own, 2 x 4 of 16. A complex line is two of them.
template <class T>
inline constexpr int kGroup = (kVectorRegisters == 32 ? 8 : 4) / kParts<T>;

TEV_INLINE constexpr int64_t whole_groups(int64_t lines, int64_t group) { return (lines + group - 1) / group * group; }

// x / d = (same x + crossed (x with its parts exchanged, one negated)) / scale; of a real d only the last two count.
// reciprocal is 1 / scale, or NaN where that could not stand in for the division.
template <class R>
struct divisor {
  R same, crossed, scale, reciprocal;
};

// Where a broadcast takes a shuffle, every number of the triangle is packed as a vector of its copies.
template <class R>
inline constexpr int kCopies = kRotatesB<R> ? kLanes<R> : 1;

struct triangle_head {
  int64_t lines;
  int64_t unit;  // nonzero: the diagonal is 1, whatever was packed there
  int64_t unused[6];
};

// A packed triangle, taken apart.
template <class T>
struct triangle_block {
  triangle_head* head;
  real_of<T>* groups;  // G G (1 + 2 + .. + lines / G) elements, every number of them kCopies times
  divisor<real_of<T>>* divisors;
};

// Numbers that n elements of the packed triangle take.
template <class T>
TEV_INLINE constexpr int64_t packed_numbers(int64_t n) {
  return n * kParts<T> * kCopies<real_of<T>>;
}

template <class T, int G>
TEV_INLINE constexpr int64_t triangle_numbers(int64_t lines) {
  return packed_numbers<T>(lines * (lines + G) / 2);
}

template <class T, int G>
TEV_INLINE constexpr int64_t triangle_bytes(int64_t lines) {
  using R = real_of<T>;
  return static_cast<int64_t>(sizeof(triangle_head) + triangle_numbers<T, G>(lines) * sizeof(R) +
                              lines * sizeof(divisor<R>));
}

template <class T, int G>
TEV_INLINE triangle_block<T> triangle_at(void* packed, int64_t lines) {
  auto* const head = static_cast<triangle_head*>(packed);
  auto* const groups = reinterpret_cast<real_of<T>*>(head + 1);
  return {head, groups, reinterpret_cast<divisor<real_of<T>>*>(groups + triangle_numbers<T, G>(lines))};
}
template <class T, int G>
TEV_INLINE triangle_block<T> packed_triangle(const void* packed) {
  return triangle_at<T, G>(const_cast<void*>(packed), static_cast<const triangle_head*>(packed)->lines);
}

// Where group g begins, in elements: forward a group takes from the lines up to its own, backward from its own on.
template <bool kForward, int G>
TEV_INLINE int64_t group_start(int64_t g, int64_t lines) {
  return G * G * (kForward ? g * (g + 1) / 2 : g * (lines / G) - g * (g - 1) / 2);
}

// Line i takes a[i * to + k * from] of line k; one of the two is 1, the other lda.
struct line_strides {
  int64_t to, from;
};
TEV_INLINE line_strides strides_of(bool left, bool plain, int64_t lda) {
  const bool down_a_column = left == plain;
  return {down_a_column ? 1 : lda, down_a_column ? lda : 1};
}

// ---- Copy ----------------------------------------------------------------------------------------------------------

// `rows` lines of L over `depth` lines that they take from; lines that lack to a group take nothing.
template <class T, int G, bool kConjugated>
TEV_INLINE void pack_lines(line_strides by, int64_t rows, int64_t depth, const T* a, T* to) {
  constexpr on_the_way<T, false, kConjugated> as_it_is = {};
  if (rows == G) {
    if (by.to == 1) return copy_down_strip<T, G>(depth, a, by.from, to, as_it_is);
    return copy_right_strip<T, G>(depth, a, by.to, to, as_it_is);
  }
  for (int64_t k = 0; k < depth; ++k)
    for (int64_t i = 0; i < G; ++i)
      to[k * G + i] = i < rows ? conjugate_if(kConjugated, a[i * by.to + k * by.from]) : T{};
}

// Numbers become vectors of their copies, from the last on: they have the room behind them.
template <class R>
TEV_INLINE void spread_numbers(int64_t count, R* numbers) {
  if constexpr (1 < kCopies<R>)
    for (int64_t i = count - 1; i >= 0; --i) store<kCopies<R>>(splat<kCopies<R>>(numbers[i]), numbers + i * kCopies<R>);
}

// Whole groups side by side over `depth` lines that all of them take from.
template <class T, int G, bool kConjugated, int N>
TEV_INLINE void pack_groups(int64_t ld, int64_t depth, const T* a, T* const (&groups)[N]) {
  for (int64_t k = 0; k < depth; ++k) TEV_UNROLL
  for (int q = 0; q < N; ++q)
    copy_down_strip<T, G>(1, a + k * ld + q * G, ld, groups[q] + k * G, on_the_way<T, false, kConjugated>{});
}

// What lies on the other side of the diagonal is copied with a corner, and used by nobody.
template <bool kForward, bool kConjugated, int G, class T>
__attribute__((noinline)) void pack_triangle(line_strides by, int64_t n, const T* a, void* packed) {
  constexpr int N = kTogether<T, G>;
  const int64_t lines = whole_groups(n, G);
  const triangle_block<T> block = triangle_at<T, G>(packed, lines);
  *block.head = {lines, 0, {}};
  const auto group_of = [=](int64_t i) TEV_LAMBDA {
    return reinterpret_cast<T*>(block.groups + packed_numbers<T>(group_start<kForward, G>(i / G, lines)));
  };
  for (int64_t next = 0, i = 0; i < lines;) {
    // Groups that share cache lines are packed together, as strips are; then of each of them what is left.
    int64_t begin = 0, end = n;
    if (N > 1 && by.to == 1 && i + N * G <= n) {
      next = i + N * G;
      T* groups[N];
      for (int q = 0; q < N; ++q) groups[q] = group_of(i + q * G) + (kForward ? 0 : (N - q) * G * G);
      pack_groups<T, G, kConjugated>(by.from, kForward ? i : n - next, a + i + (kForward ? 0 : next * by.from), groups);
      (kForward ? begin : end) = kForward ? i : next;
    } else {
      next = i + G;
    }
    for (; i < next; i += G) {
      const int64_t rows = min_of(n - i, G), first = kForward ? 0 : i, whole_depth = (kForward ? i + G : lines) - first;
      const int64_t from = max_of(first, begin), until = min_of(kForward ? i + rows : n, end);
      T* const to = group_of(i);
      pack_lines<T, G, kConjugated>(by, rows, until - from, a + i * by.to + from * by.from, to + (from - first) * G);
      for (int64_t k = ((kForward ? i + rows : n) - first) * G; k < whole_depth * G; ++k) to[k] = T{};
      spread_numbers(whole_depth * G * kParts<T>, reals(to));
    }
  }
}

template <int G, class T>
TEV_INLINE void copy_triangle(bool forward, bool conjugated, line_strides by, int64_t n, const T* a, void* packed) {
  if (kComplex<T> && conjugated)
    (forward ? pack_triangle<true, kComplex<T>, G, T> : pack_triangle<false, kComplex<T>, G, T>)(by, n, a, packed);
  else
    (forward ? pack_triangle<true, false, G, T> : pack_triangle<false, false, G, T>)(by, n, a, packed);
}

// ---- Diagonal ------------------------------------------------------------------------------------------------------

// Between this and its inverse a divisor's reciprocal can stand in for the division.
template <class R>
inline constexpr R kLargestDivisor = sizeof(R) == 4 ? R(0x1p120) : R(0x1p1000);

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
  const R size = by.scale < 0 ? -by.scale : by.scale;
  const bool stands_in = size > 1 / kLargestDivisor<R> && size < kLargestDivisor<R>;
  by.reciprocal = stands_in ? 1 / by.scale : __builtin_nanf("");
  return by;
}

// The divisors of a packed triangle, of the n elements on the diagonal of A.
template <int G, class T>
__attribute__((noinline)) void set_divisors(bool conjugated, int64_t n, const T* a, int64_t lda, void* packed) {
  const triangle_block<T> block = packed_triangle<T, G>(packed);
  for (int64_t i = 0; i < block.head->lines; ++i)
    block.divisors[i] = divisor_of(i < n ? conjugate_if(conjugated, a[i * (lda + 1)]) : real_element<T>(1));
}

// Of n elements on a diagonal: is there a number other than 0 below the normal ones?
template <class T>
TEV_INLINE bool has_denormal(int64_t n, const T* a, int64_t lda) {
  using R = real_of<T>;
  constexpr R kLeastNormal = sizeof(R) == 4 ? R(0x1p-126) : R(0x1p-1022);
  bool any = false;
  for (int64_t i = 0; i < n; ++i)
    for (int part = 0; part < kParts<T>; ++part) {
      const R x = reals(a + i * (lda + 1))[part];
      any |= x != 0 && x > -kLeastNormal && x < kLeastNormal;
    }
  return any;
}

TEV_INLINE void set_unit(void* packed) { static_cast<triangle_head*>(packed)->unit = 1; }

// ---- As the records know them --------------------------------------------------------------------------------------

// The block of op(A) that `source` is; `kLower` is op(A)'s triangle, not the stored one.
template <class T, bool kLeft, bool kLower>
void trxm_copy(const operand* source, packed* target, const T*) {
  const char trans = stored_transposition(source);
  target->depth = target->width = source->rows;
  copy_triangle<kGroup<T>>(kLower == kLeft, trans == 'C', strides_of(kLeft, trans == 'N', source->ld), source->rows,
                           static_cast<const T*>(source->data), target->data);
}

// What a solution divides by.
template <class T>
void trsm_scale(const operand* source, packed* target) {
  set_divisors<kGroup<T>>(stored_transposition(source) == 'C', source->rows, static_cast<const T*>(source->data),
                          source->ld, target->data);
}

}  // namespace tev::TEV_TIER
