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

// Complex products where instructions overwrite an operand: every register that is shared costs copies.
template <class T>
inline constexpr bool kCopiesCost = kComplex<T>&& kVectorBytes == 16;

// Where operands come from: from a second cache, from the third one, or from memory, for what is large for the third
// cache of a few cores.
enum class source { near, third_cache, memory };
inline constexpr int64_t kFarBytes = 2 << 20, kMemoryBytes = 24 << 20;
TEV_INLINE source source_of(int64_t bytes) {
  return bytes < kFarBytes ? source::near : bytes < kMemoryBytes ? source::third_cache : source::memory;
}

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

// swap_pairs into a register of its own. The shuffle that SSE has for floats overwrites its source, which is needed
// once more; the one for integers copies as it shuffles.
#if defined(__AVX__)
template <int W, class R>
TEV_INLINE vec<R, W> swapped_copy(vec<R, W> v) {
  return swap_pairs<W, R>(v);
}
#else
TEV_INLINE vec<float, 4> swapped_register(vec<float, 4> v) {
  __asm__("pshufd $0xB1, %1, %0" : "=x"(v) : "x"(v));
  return v;
}
TEV_INLINE vec<double, 2> swapped_register(vec<double, 2> v) {
  __asm__("pshufd $0x4E, %1, %0" : "=x"(v) : "x"(v));
  return v;
}
template <int W, class R>
TEV_INLINE vec<R, W> swapped_copy(vec<R, W> v) {
  if constexpr (W == kLanes<R>)
    return swapped_register(v);
  else
    return swap_pairs<W, R>(v);
}
#endif

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
    return fma(t.im, swapped_copy<W, real_of<T>>(v), t.re * v);
  else
    return t.re * v;
}

// y + t v
template <class T, int W, class V>
TEV_INLINE V plus_product(V y, const multiplier<T, W>& t, V v) {
  if constexpr (kComplex<T> && kHasFma)
    return fma(t.im, swapped_copy<W, real_of<T>>(v), fma(t.re, v, y));
  else if constexpr (kComplex<T>)
    return y + product(t, v);
  else
    return fma(t.re, v, y);
}

// W contiguous numbers, or the first n of W. load_own reads the vector that is written, which may lie aligned.
template <int Lanes, bool kAligned = false>
struct whole_part {
  static constexpr int W = Lanes;
  template <class R>
  TEV_INLINE vec<R, W> load_own(const R* from) const {
    typedef vec<R, W> aligned __attribute__((may_alias));
    if constexpr (kAligned) return *reinterpret_cast<const aligned*>(from);
    return load(from);
  }
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
  TEV_INLINE vec<R, W> load_own(const R* from) const {
    return load(from);
  }
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

// The numbers i .. n-1, fewer than fill a register: in ever shorter vectors.
template <class T, class Step>
TEV_INLINE void for_rest(int64_t i, int64_t n, const Step& step) {
  constexpr int L = kLanes<real_of<T>>;
  if constexpr (L > kParts<T>) for_halving_parts<kParts<T>, L / 2>(i, n, step);
}

// Calls step(part, i) for parts that cover the numbers 0 .. n-1 of vectors of T's reals: groups of Vectors registers,
// single registers, then the rest in ever shorter vectors: behind masks the next call could not read it before it is in
// the cache. n is a count of real numbers, in whole elements.
template <class T, int Vectors, class Step>
TEV_INLINE void for_parts(int64_t n, const Step& step) {
  constexpr int L = kLanes<real_of<T>>, G = Vectors * L;
  const int64_t groups_end = n / G * G, registers_end = n / L * L;
  int64_t i = 0;
  for (; i < groups_end; i += G) step(whole_part<G>{}, i);
  if constexpr (Vectors > 1)
    for (; i < registers_end; i += L) step(whole_part<L>{}, i);
  for_rest<T>(i, n, step);
}

// One register after another from i on, then the rest.
template <class T, int Vectors, bool kAligned, class Step>
TEV_INLINE void for_registers(int64_t i, int64_t n, const Step& step) {
  constexpr int L = kLanes<real_of<T>>, G = Vectors * L;
  for (const int64_t end = i + (n - i) / G * G; i < end; i += G) TEV_UNROLL
  for (int v = 0; v < Vectors; ++v) step(whole_part<L, kAligned>{}, i + v * L);
  for (const int64_t end = i + (n - i) / L * L; i < end; i += L) step(whole_part<L, kAligned>{}, i);
  for_rest<T>(i, n, step);
}

// As for_parts, one register after another, for a step that changes the vector at `own`: done with one register before
// the next is loaded, it needs few and stores in order. Where instructions take operands from memory at register
// boundaries alone (kPeelsToAlignment), single elements lead up to the first boundary.
template <class T, int Vectors, class Step>
TEV_INLINE void for_own_parts(int64_t n, const real_of<T>* own, const Step& step) {
  if constexpr (kPeelsToAlignment) {
    const auto behind = reinterpret_cast<uintptr_t>(own) % kVectorBytes;
    if (behind % sizeof(T) == 0) {
      const int64_t ahead = static_cast<int64_t>((kVectorBytes - behind) % kVectorBytes / sizeof(real_of<T>));
      const int64_t peeled = ahead < n ? ahead : n;
      for (int64_t i = 0; i < peeled; i += kParts<T>) step(whole_part<kParts<T>>{}, i);
      return for_registers<T, Vectors, true>(peeled, n, step);
    }
  }
  for_registers<T, Vectors, false>(0, n, step);
}

}  // namespace tev::TEV_TIER
