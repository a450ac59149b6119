// SPDX-License-Identifier: BSD-3-Clause
// Level 1 routines that make one number of vectors: dot products, sums of moduli, the largest modulus. Elements that
// follow each other go through registers, several sums at a time; others are gathered a block at a time first. The
// order of the additions depends on the length and on whether elements are apart, never on an address.
#pragma once

#include "kernels/families/gemv-inl.h"

namespace tev::TEV_TIER {

// Elements that are gathered at a time.
inline constexpr int64_t kGathered = 256;

// Elements [i, i + count) of x, side by side: in place, or in the block.
template <class T>
TEV_INLINE const T* side_by_side(int64_t i, int64_t count, const T* x, int64_t incx, T* block) {
  if (incx == 1) return x + i;
  gather(count, x + i * incx, incx, false, block);
  return block;
}

// Calls take(x, count) for the n elements in their order, which then follow each other.
template <class T, class Take>
TEV_INLINE void for_blocks(int64_t n, const T* x, int64_t incx, const Take& take) {
  T block[kGathered];
  x = first_of(n, x, incx);
  const int64_t length = incx == 1 ? n : kGathered;
  for (int64_t i = 0; i < n; i += length) {
    const int64_t count = n - i < length ? n - i : length;
    take(side_by_side(i, count, x, incx, block), count);
  }
}

// The same with two vectors: take(x, y, count).
template <class T, class Take>
TEV_INLINE void for_block_pairs(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy, const Take& take) {
  T x_block[kGathered], y_block[kGathered];
  x = first_of(n, x, incx), y = first_of(n, y, incy);
  const int64_t length = incx == 1 && incy == 1 ? n : kGathered;
  for (int64_t i = 0; i < n; i += length) {
    const int64_t count = n - i < length ? n - i : length;
    take(side_by_side(i, count, x, incx, x_block), side_by_side(i, count, y, incy, y_block), count);
  }
}

// Calls whole(i), for U registers of L numbers at a time, single(i) for one, rest(i, count) for what is left.
template <int U, int L, class Whole, class Single, class Rest>
TEV_INLINE void for_sums(int64_t n, const Whole& whole, const Single& single, const Rest& rest) {
  int64_t i = 0;
  for (const int64_t end = n / (U * L) * (U * L); i < end; i += U * L) whole(i);
  for (const int64_t end = n / L * L; i < end; i += L) single(i);
  if (i < n) rest(i, n - i);
}

template <int U, class V>
TEV_INLINE V sum_of_registers(V (&sums)[U]) {
  TEV_UNROLL
  for (int distance = U / 2; distance > 0; distance /= 2) TEV_UNROLL
  for (int u = 0; u < distance; ++u) sums[u] += sums[u + distance];
  return sums[0];
}

// ---- Dot products --------------------------------------------------------------------------------------------------

template <class T>
TEV_INLINE T dot_contiguous(bool conjugated, int64_t n, const T* x, const T* y) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, U = 4;
  const R *const column[] = {reals(x)}, *const yr = reals(y);
  dot_sums<1, U, T> sums = {};
  for_sums<U, L>(
      n * kParts<T>,
      [&](int64_t i) TEV_LAMBDA { add_products<U>(whole_part<L>{}, i, column, yr, sums); },
      [&](int64_t i) TEV_LAMBDA { add_products<1>(whole_part<L>{}, i, column, yr, sums); },
      [&](int64_t i, int64_t count) TEV_LAMBDA { add_products<1>(first_part<L>{count}, i, column, yr, sums); });
  return dot_of<L, T>(sum_of_registers(sums.direct[0]), sum_of_registers(sums.crossed[0]), conjugated);
}

template <class T>
TEV_INLINE T dot(bool conjugated, int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  T sum = {};
  if (n < 1) return sum;
  for_block_pairs(
      n, x, incx, y, incy, [&](const T* xs, const T* ys, int64_t count) TEV_LAMBDA {
        sum = add(sum, dot_contiguous(conjugated, count, xs, ys));
      });
  return sum;
}

// Products and sums in double: a product of two floats is exact there.
TEV_INLINE double dot_in_double_contiguous(int64_t n, const float* x, const float* y) {
  constexpr int L = kLanes<double>, U = 4;
  using V = vec<double, L>;
  V sums[U] = {};
  const auto add_register = [&](auto part, int64_t i, V& sum) TEV_LAMBDA {
    sum = fma(__builtin_convertvector(part.load(x + i), V), __builtin_convertvector(part.load(y + i), V), sum);
  };
  for_sums<U, L>(
      n,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) add_register(whole_part<L>{}, i + u * L, sums[u]);
      },
      [&](int64_t i) TEV_LAMBDA { add_register(whole_part<L>{}, i, sums[0]); },
      [&](int64_t i, int64_t count) TEV_LAMBDA { add_register(first_part<L>{count}, i, sums[0]); });
  return sum<L, double>(sum_of_registers(sums));
}

TEV_INLINE double dot_in_double(int64_t n, const float* x, int64_t incx, const float* y, int64_t incy) {
  double sum = 0;
  if (n < 1) return sum;
  for_block_pairs(
      n, x, incx, y, incy, [&](const float* xs, const float* ys, int64_t count) TEV_LAMBDA {
        sum += dot_in_double_contiguous(count, xs, ys);
      });
  return sum;
}

// ---- Moduli --------------------------------------------------------------------------------------------------------

template <class R>
TEV_INLINE R asum_contiguous(int64_t n, const R* x) {
  constexpr int L = kLanes<R>, U = 4;
  vec<R, L> sums[U] = {};
  for_sums<U, L>(
      n,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) sums[u] += __builtin_elementwise_abs(load<L>(x + i + u * L));
      },
      [&](int64_t i) TEV_LAMBDA { sums[0] += __builtin_elementwise_abs(load<L>(x + i)); },
      [&](int64_t i, int64_t count) TEV_LAMBDA {
        sums[0] += __builtin_elementwise_abs(load_first<L>(x + i, count));
      });
  return sum<L, R>(sum_of_registers(sums));
}

template <class R>
TEV_INLINE R asum(int64_t n, const R* x, int64_t incx) {
  R sum = 0;
  if (n < 1) return sum;
  for_blocks(
      n, x, incx, [&](const R* xs, int64_t count) TEV_LAMBDA { sum += asum_contiguous(count, xs); });
  return sum;
}

// |x|, of a complex number the sum of the parts' moduli, in both of its lanes.
template <class T, int L>
TEV_INLINE vec<real_of<T>, L> moduli(vec<real_of<T>, L> v) {
  v = __builtin_elementwise_abs(v);
  if constexpr (kComplex<T>) v += swap_pairs<L, real_of<T>>(v);
  return v;
}

// The larger numbers; `largest` where v is NaN.
template <class V>
TEV_INLINE V larger(V v, V largest) {
  return v > largest ? v : largest;
}

// Elements among which the first largest is looked for once it is known that it is there: they are in the L1 cache.
template <class T>
inline constexpr int64_t kSearched = 8192 / static_cast<int64_t>(sizeof(T));

// Of the largest modulus among n elements; -1 when all are NaN.
template <class T>
TEV_INLINE real_of<T> largest_modulus(int64_t n, const T* x) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, U = 4;
  const R* xr = reals(x);
  vec<R, L> largest[U];
  TEV_UNROLL
  for (int u = 0; u < U; ++u) largest[u] = splat<L>(R(-1));
  R of_rest = -1;
  for_sums<U, L>(
      n * kParts<T>,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) largest[u] = larger(moduli<T, L>(load<L>(xr + i + u * L)), largest[u]);
      },
      [&](int64_t i) TEV_LAMBDA { largest[0] = larger(moduli<T, L>(load<L>(xr + i)), largest[0]); },
      [&](int64_t i, int64_t count) TEV_LAMBDA {
        for (int64_t k = i; k < i + count; k += kParts<T>) {
          const R modulus = moduli<T, kParts<T>>(load<kParts<T>>(xr + k))[0];
          if (modulus > of_rest) of_rest = modulus;
        }
      });
  TEV_UNROLL
  for (int u = 1; u < U; ++u) largest[0] = larger(largest[u], largest[0]);
  for (int i = 0; i < L; ++i)
    if (largest[0][i] > of_rest) of_rest = largest[0][i];
  return of_rest;
}

// One of the L numbers of a register is `value`. What a comparison sets in a lane that it holds for is a NaN.
template <int L, class R>
TEV_INLINE bool any_equal(vec<R, L> v, R value) {
  return any_nan<L, R>((vec<R, L>)(v == splat<L>(value)));
}

// The first element of that modulus, which is there.
template <class T>
TEV_INLINE int64_t find_modulus(const T* x, int64_t n, real_of<T> modulus) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, kElements = L / kParts<T>;
  const R* xr = reals(x);
  int64_t i = 0;
  while (i + kElements <= n && !any_equal<L, R>(moduli<T, L>(load<L>(xr + i * kParts<T>)), modulus)) i += kElements;
  while (moduli<T, kParts<T>>(load<kParts<T>>(xr + i * kParts<T>))[0] != modulus) ++i;
  return i;
}

// The first element of the largest modulus, from 0; NaN is passed over, unless all are: 0.
template <class T>
TEV_INLINE int64_t iamax(int64_t n, const T* x, int64_t incx) {
  int64_t found = 0, begin = 0;
  real_of<T> largest = -1;
  if (n < 1) return found;
  for_blocks(
      n, x, incx, [&](const T* xs, int64_t count) TEV_LAMBDA {
        for (int64_t i = 0; i < count; i += kSearched<T>) {
          const int64_t searched = count - i < kSearched<T> ? count - i : kSearched<T>;
          const auto modulus = largest_modulus(searched, xs + i);
          if (!(modulus > largest)) continue;
          largest = modulus;
          found = begin + i + find_modulus(xs + i, searched, modulus);
        }
        begin += count;
      });
  return found;
}

}  // namespace tev::TEV_TIER
