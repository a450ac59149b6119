// SPDX-License-Identifier: BSD-3-Clause
// For routines that work on vectors and matrices where they lie: arithmetic of single elements, the product of one
// element with vectors, and the walk over numbers that follow each other.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

template <class T>
inline constexpr bool kComplex = kParts<T> == 2;

// Real numbers in a register.
template <class R>
inline constexpr int kLanes = kVectorBytes / static_cast<int>(sizeof(R));

template <class T>
TEV_INLINE T real_element(real_of<T> value) {
  if constexpr (kComplex<T>)
    return {value, 0};
  else
    return value;
}

template <class T>
TEV_INLINE T add(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real + y.real, x.imag + y.imag};
  else
    return x + y;
}

template <class T>
TEV_INLINE T multiply(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real * y.real - x.imag * y.imag, x.real * y.imag + x.imag * y.real};
  else
    return x * y;
}

template <class T>
TEV_INLINE T conjugate_if(bool conjugated, T x) {
  if constexpr (kComplex<T>) return {x.real, conjugated ? -x.imag : x.imag};
  return x;
}

TEV_INLINE bool is_letter(const char* given, char upper_case) { return (*given & ~0x20) == upper_case; }

// A negative increment begins at the far end.
template <class T>
TEV_INLINE T* first_of(int64_t n, T* x, int64_t inc) {
  return inc < 0 ? x - (n - 1) * inc : x;
}

// The factor t of many products t v, v a vector of elements.
template <class T, int W>
struct multiplier {
  vec<real_of<T>, W> re, im;  // im alternates in sign: re v + im swap_pairs(v)
};

template <int W, class T>
TEV_INLINE multiplier<T, W> multiplier_of(T t) {
  if constexpr (kComplex<T>)
    return {splat<W>(t.real), alternate<W>(-t.imag, t.imag)};
  else
    return {splat<W>(t), {}};
}

// t v
template <class T, int W, class V>
TEV_INLINE V product(const multiplier<T, W>& t, V v) {
  if constexpr (kComplex<T>)
    return fma(t.im, swap_pairs<W, real_of<T>>(v), t.re * v);
  else
    return t.re * v;
}

// y + t v
template <class T, int W, class V>
TEV_INLINE V plus_product(V y, const multiplier<T, W>& t, V v) {
  if constexpr (kComplex<T>)
    return fma(t.im, swap_pairs<W, real_of<T>>(v), fma(t.re, v, y));
  else
    return fma(t.re, v, y);
}

// W contiguous numbers, or the first n of W.
template <int Lanes>
struct whole_part {
  static constexpr int W = Lanes;
  template <class R>
  TEV_INLINE vec<R, W> load(const R* from) const {
    return TEV_TIER::load<W>(from);
  }
  template <class R>
  TEV_INLINE void store(vec<R, W> v, R* to) const {
    TEV_TIER::store<W>(v, to);
  }
};
template <int Lanes>
struct first_part {
  static constexpr int W = Lanes;
  int64_t n;
  template <class R>
  TEV_INLINE vec<R, W> load(const R* from) const {
    return load_first<W>(from, n);
  }
  template <class R>
  TEV_INLINE void store(vec<R, W> v, R* to) const {
    store_first<W>(v, to, n);
  }
};

template <int Least, int W, class Step>
TEV_INLINE void for_halving_parts(int64_t i, int64_t n, const Step& step) {
  if (n - i >= W) {
    step(whole_part<W>{}, i);
    i += W;
  }
  if constexpr (W > Least) for_halving_parts<Least, W / 2>(i, n, step);
}

// Calls step(part, i) for parts that cover the numbers 0 .. n-1 of vectors of T's reals: groups of Vectors registers,
// single registers, then the rest behind a mask where the tier has masks, in ever shorter vectors elsewhere. n is a
// count of real numbers, in whole elements.
template <class T, int Vectors, class Step>
TEV_INLINE void for_parts(int64_t n, const Step& step) {
  constexpr int L = kLanes<real_of<T>>, G = Vectors * L;
  const int64_t groups_end = n / G * G, registers_end = n / L * L;
  int64_t i = 0;
  for (; i < groups_end; i += G) step(whole_part<G>{}, i);
  if constexpr (Vectors > 1)
    for (; i < registers_end; i += L) step(whole_part<L>{}, i);
  if constexpr (kVectorBytes == 64) {
    if (i < n) step(first_part<L>{n - i}, i);
  } else if constexpr (L > kParts<T>) {
    for_halving_parts<kParts<T>, L / 2>(i, n, step);
  }
}

}  // namespace tev::TEV_TIER
