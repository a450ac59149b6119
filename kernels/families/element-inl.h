// SPDX-License-Identifier: BSD-3-Clause
// The four element types seen as the real numbers that they are made of: a complex vector is re, im, re, im ... A
// complex product is the plain formula (four products, two sums), so NaN and infinity flow through unmended.
#pragma once

#include <cstdint>

#include "tev/types.h"

namespace tev::TEV_TIER {

TEV_INLINE constexpr int64_t min_of(int64_t a, int64_t b) { return a < b ? a : b; }
TEV_INLINE constexpr int64_t max_of(int64_t a, int64_t b) { return a > b ? a : b; }

template <class T>
struct parts_of {
  using real = T;
  static constexpr int kCount = 1;
};
template <>
struct parts_of<tev_complex8> {
  using real = float;
  static constexpr int kCount = 2;
};
template <>
struct parts_of<tev_complex16> {
  using real = double;
  static constexpr int kCount = 2;
};
template <class T>
using real_of = typename parts_of<T>::real;
template <class T>
inline constexpr int kParts = parts_of<T>::kCount;

template <class T>
TEV_INLINE const real_of<T>* reals(const T* x) {
  return reinterpret_cast<const real_of<T>*>(x);
}
template <class T>
TEV_INLINE real_of<T>* reals(T* x) {
  return reinterpret_cast<real_of<T>*>(x);
}

// False for NaN, both.
template <class T>
TEV_INLINE bool is_zero(T x) {
  if constexpr (kParts<T> == 2)
    return x.real == 0 && x.imag == 0;
  else
    return x == 0;
}
template <class T>
TEV_INLINE bool is_one(T x) {
  if constexpr (kParts<T> == 2)
    return x.real == 1 && x.imag == 0;
  else
    return x == 1;
}

// What becomes of C.
enum class beta_class { zero, one, general };

template <class T>
TEV_INLINE beta_class classify(T beta) {
  return is_zero(beta) ? beta_class::zero : is_one(beta) ? beta_class::one : beta_class::general;
}

// The widest vector, in lanes, that divides n reals.
template <class R>
constexpr int lanes_dividing(int n) {
  int w = kVectorBytes / static_cast<int>(sizeof(R));
  while (n % w != 0) w /= 2;
  return w;
}

// even, odd, even, odd ...
template <int W, class R>
TEV_INLINE vec<R, W> alternate(R even, R odd) {
  vec<R, W> v;
  TEV_UNROLL
  for (int i = 0; i < W; ++i) v[i] = i % 2 == 0 ? even : odd;
  return v;
}

// Elements of T that lie in a vector of W reals, conjugated.
template <int W, class V>
TEV_INLINE V conjugate(V v) {
  TEV_UNROLL
  for (int i = 1; i < W; i += 2) v[i] = -v[i];
  return v;
}

// Elements of T that lie in a vector of W reals, times a scalar.
template <class T, int W>
TEV_INLINE vec<real_of<T>, W> times(T scalar, vec<real_of<T>, W> v) {
  using R = real_of<T>;
  if constexpr (kParts<T> == 2)
    return fma(swap_pairs<W, R>(v), alternate<W>(-scalar.imag, scalar.imag), v * splat<W>(scalar.real));
  else
    return v * splat<W>(scalar);
}

}  // namespace tev::TEV_TIER
