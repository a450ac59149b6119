// SPDX-License-Identifier: BSD-3-Clause
// Vectors of the tier that includes this file: the compiler's own vector types, so + - * are the language's, and one
// wrapper for each thing that they cannot say. Everything is inlined; nothing leaves the tier's namespace.
#pragma once

#ifndef TEV_TIER
#error "a tier's tier.h includes this file after it has defined TEV_TIER"
#endif

#if defined(__AVX__)
#include <immintrin.h>
#endif

#include <cstdint>

#define TEV_INLINE inline __attribute__((always_inline))
#define TEV_LAMBDA __attribute__((always_inline))
#define TEV_UNROLL _Pragma("clang loop unroll(full)")
// Hides from the compiler where a number or a pointer comes from.
#define TEV_OPAQUE(value) __asm__("" : "+r"(value))

#pragma clang diagnostic ignored "-Wpsabi"  // vectors of several registers are passed to inlined functions only

namespace tev::TEV_TIER {

inline constexpr int kLineBytes = 64;  // of a cache

// What a line is asked for into: the last argument of __builtin_prefetch.
inline constexpr int kIntoFirstCache = 3, kIntoSecondCache = 2;

// W lanes of R (float or double). W may be anything from 1 lane up; wider than a register is several registers.
template <class R, int W>
struct vec_of {
  typedef R type __attribute__((vector_size(W * sizeof(R))));
  typedef R unaligned __attribute__((vector_size(W * sizeof(R)), aligned(sizeof(R)), may_alias));
};
template <class R, int W>
using vec = typename vec_of<R, W>::type;

template <int W, class R>
TEV_INLINE vec<R, W> load(const R* from) {
  return *reinterpret_cast<const typename vec_of<R, W>::unaligned*>(from);
}

template <int W, class R>
TEV_INLINE void store(vec<R, W> value, R* to) {
  *reinterpret_cast<typename vec_of<R, W>::unaligned*>(to) = value;
}

template <int W, class R>
TEV_INLINE vec<R, W> splat(R value) {
  vec<R, W> v;
  TEV_UNROLL
  for (int i = 0; i < W; ++i) v[i] = value;
  return v;
}

// a b + c: fused where the tier's flags let the compiler contract, two roundings elsewhere.
template <class V>
TEV_INLINE V fma(V a, V b, V c) {
  return a * b + c;
}

template <int... I>
struct lanes {};
template <class Int, Int... I>
struct lane_sequence {
  using type = lanes<I...>;
};
template <int W>
using all_lanes = typename __make_integer_seq<lane_sequence, int, W>::type;

template <class R, int W, int... I>
TEV_INLINE vec<R, 2 * W> concatenated(vec<R, W> low, vec<R, W> high, lanes<I...>) {
  return __builtin_shufflevector(low, high, I...);
}

// N columns of M rows, side by side.
template <int M, int N, class R>
TEV_INLINE vec<R, M * N> load_columns(const R* x, int64_t ld) {
  if constexpr (N == 1) {
    return load<M>(x);
  } else {
    if (ld == M) return load<M * N>(x);
    return concatenated<R, M * N / 2>(load_columns<M, N / 2>(x, ld), load_columns<M, N / 2>(x + N / 2 * ld, ld),
                                      all_lanes<M * N>{});
  }
}

template <class V, int... I>
TEV_INLINE V swap_pairs_by(V v, lanes<I...>) {
  return __builtin_shufflevector(v, v, (I ^ 1)...);
}

// (x0, x1, x2, x3 ...) -> (x1, x0, x3, x2 ...): real and imaginary parts change places.
template <int W, class R>
TEV_INLINE vec<R, W> swap_pairs(vec<R, W> v) {
  return swap_pairs_by(v, all_lanes<W>{});
}

// Units of U lanes; vectors i and i + D exchange the units whose number has, or has not, the bit D.
template <int W, int U, int D, class V, int... I>
TEV_INLINE void exchange(V& low, V& high, lanes<I...>) {
  const V l = __builtin_shufflevector(low, high, (I / U & D ? W + I - D * U : I)...);
  high = __builtin_shufflevector(low, high, (I / U & D ? W + I : I + D * U)...);
  low = l;
}

// Lanes kLow and kLow + 1 of each four of two vectors, the first vector's before the other's or each beside its like.
template <int kLow, int W, class V, int... I>
TEV_INLINE V halves_of_fours(V a, V b, lanes<I...>) {
  return __builtin_shufflevector(a, b, (I / 4 * 4 + kLow + I % 2 + I % 4 / 2 * W)...);
}
template <int kLow, int W, class V, int... I>
TEV_INLINE V zipped_fours(V a, V b, lanes<I...>) {
  return __builtin_shufflevector(a, b, (I / 4 * 4 + kLow + I % 4 / 2 + I % 2 * W)...);
}

// The squares of four lanes and four vectors, each in itself. By exchanges the last step takes two shuffles a vector.
template <int W, class V>
TEV_INLINE void transpose_fours(V (&v)[W]) {
  constexpr all_lanes<W> all;
  TEV_UNROLL
  for (int i = 0; i < W; i += 4) {
    const V low = zipped_fours<0, W>(v[i], v[i + 1], all), low2 = zipped_fours<0, W>(v[i + 2], v[i + 3], all);
    const V high = zipped_fours<2, W>(v[i], v[i + 1], all), high2 = zipped_fours<2, W>(v[i + 2], v[i + 3], all);
    v[i] = halves_of_fours<0, W>(low, low2, all);
    v[i + 1] = halves_of_fours<2, W>(low, low2, all);
    v[i + 2] = halves_of_fours<0, W>(high, high2, all);
    v[i + 3] = halves_of_fours<2, W>(high, high2, all);
  }
}

// A square of W / U vectors: unit j of vector i becomes unit i of vector j. A complex number is a unit of two lanes.
template <int W, int U, int D = W / U / 2, class V>
TEV_INLINE void transpose(V (&v)[W / U]) {
  if constexpr (D == 2 && sizeof(V) == 4 * W && U == 1) {
    transpose_fours<W>(v);
  } else if constexpr (D > 0) {
    TEV_UNROLL
    for (int i = 0; i < W / U; ++i)
      if (!(i & D)) exchange<W, U, D>(v[i], v[i + D], all_lanes<W>{});
    transpose<W, U, D / 2>(v);
  }
}

template <class V, int... I>
TEV_INLINE V reversed_by(V v, lanes<I...>) {
  return __builtin_shufflevector(v, v, (static_cast<int>(sizeof...(I)) - 1 - I)...);
}

// Lanes the other way round.
template <int W, class R>
TEV_INLINE vec<R, W> reversed(vec<R, W> v) {
  return reversed_by(v, all_lanes<W>{});
}

// W lanes of R are loaded and stored behind masks.
#if defined(__AVX512VL__)
template <class R, int W>
inline constexpr bool kMasks = sizeof(R) * W == 64 || sizeof(R) * W == 32;
#elif defined(__AVX512F__)
template <class R, int W>
inline constexpr bool kMasks = sizeof(R) * W == 64;
#else
template <class R, int W>
inline constexpr bool kMasks = false;
#endif

// The first n of W lanes, 0 <= n <= W; nothing beyond them is touched, and loaded lanes beyond are 0.
template <int W, class R>
TEV_INLINE vec<R, W> load_first(const R* from, int64_t n) {
#if defined(__AVX512F__)
  if constexpr (sizeof(R) * W == 64 && sizeof(R) == 8)
    return _mm512_maskz_loadu_pd(static_cast<__mmask8>((1u << n) - 1), from);
  else if constexpr (sizeof(R) * W == 64)
    return _mm512_maskz_loadu_ps(static_cast<__mmask16>((1u << n) - 1), from);
#endif
#if defined(__AVX512VL__)
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 8)
    return _mm256_maskz_loadu_pd(static_cast<__mmask8>((1u << n) - 1), from);
  else if constexpr (sizeof(R) * W == 32)
    return _mm256_maskz_loadu_ps(static_cast<__mmask8>((1u << n) - 1), from);
#endif
  vec<R, W> v = {};
  TEV_UNROLL
  for (int i = 0; i < W; ++i)
    if (i < n) v[i] = from[i];
  return v;
}

template <int W, class R>
TEV_INLINE void store_first(vec<R, W> value, R* to, int64_t n) {
#if defined(__AVX512F__)
  if constexpr (sizeof(R) * W == 64 && sizeof(R) == 8)
    return _mm512_mask_storeu_pd(to, static_cast<__mmask8>((1u << n) - 1), value);
  else if constexpr (sizeof(R) * W == 64)
    return _mm512_mask_storeu_ps(to, static_cast<__mmask16>((1u << n) - 1), value);
#endif
#if defined(__AVX512VL__)
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 8)
    return _mm256_mask_storeu_pd(to, static_cast<__mmask8>((1u << n) - 1), value);
  else if constexpr (sizeof(R) * W == 32)
    return _mm256_mask_storeu_ps(to, static_cast<__mmask8>((1u << n) - 1), value);
#endif
  TEV_UNROLL
  for (int i = 0; i < W; ++i)
    if (i < n) to[i] = value[i];
}

// The lanes that `mask`, a comparison, has become NaN.
template <int W, class R, class Mask>
TEV_INLINE vec<R, W> nan_where(Mask mask, vec<R, W> v) {
  return reinterpret_cast<vec<R, W>>(reinterpret_cast<Mask>(v) | mask);
}

// One of the lanes of a register is not a number.
template <int W, class R>
TEV_INLINE bool any_nan(vec<R, W> v) {
#if defined(__AVX512F__)
  if constexpr (sizeof(R) * W == 64 && sizeof(R) == 8) return _mm512_cmp_pd_mask(v, v, _CMP_UNORD_Q) != 0;
  if constexpr (sizeof(R) * W == 64 && sizeof(R) == 4) return _mm512_cmp_ps_mask(v, v, _CMP_UNORD_Q) != 0;
#endif
#if defined(__AVX__)
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 8)
    return _mm256_movemask_pd(_mm256_cmp_pd(v, v, _CMP_UNORD_Q)) != 0;
  if constexpr (sizeof(R) * W == 32 && sizeof(R) == 4)
    return _mm256_movemask_ps(_mm256_cmp_ps(v, v, _CMP_UNORD_Q)) != 0;
  if constexpr (sizeof(R) * W == 16 && sizeof(R) == 8) return _mm_movemask_pd(_mm_cmpunord_pd(v, v)) != 0;
  if constexpr (sizeof(R) * W == 16 && sizeof(R) == 4) return _mm_movemask_ps(_mm_cmpunord_ps(v, v)) != 0;
#endif
  bool any = false;
  for (int i = 0; i < W; ++i) any |= v[i] != v[i];
  return any;
}

// All lanes made one by `join`, halves first.
template <int W, class R, class Join>
TEV_INLINE R joined(vec<R, W> v, const Join& join) {
  if constexpr (W == 1)
    return v[0];
  else {
    vec<R, W / 2> low, high;
    TEV_UNROLL
    for (int i = 0; i < W / 2; ++i) low[i] = v[i], high[i] = v[i + W / 2];
    return joined<W / 2, R>(join(low, high), join);
  }
}

template <int W, class R>
TEV_INLINE R sum(vec<R, W> v) {
  return joined<W, R>(v, [](auto low, auto high) TEV_LAMBDA { return low + high; });
}

}  // namespace tev::TEV_TIER
