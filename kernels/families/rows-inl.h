// SPDX-License-Identifier: BSD-3-Clause
// Rows of a matrix that fit into a register, times a vector: their sums stay there while the columns go by.
#pragma once

#include "kernels/families/in_place-inl.h"

namespace tev::TEV_TIER {

// Lanes [begin, end) of L, 0 <= begin <= end <= L. What is loaded, and what of a vector is kept, has zeros elsewhere.
template <int L>
struct some_lanes {
  int64_t begin, end;
#if defined(__AVX512F__)
  TEV_INLINE __mmask16 mask() const { return static_cast<__mmask16>(((1u << end) - 1) & ~((1u << begin) - 1)); }
  TEV_INLINE vec<double, 8> load(const double* from) const { return _mm512_maskz_loadu_pd((__mmask8)mask(), from); }
  TEV_INLINE vec<float, 16> load(const float* from) const { return _mm512_maskz_loadu_ps(mask(), from); }
  TEV_INLINE vec<double, 8> keep(vec<double, 8> v) const { return _mm512_maskz_mov_pd((__mmask8)mask(), v); }
  TEV_INLINE vec<float, 16> keep(vec<float, 16> v) const { return _mm512_maskz_mov_ps(mask(), v); }
#elif defined(__AVX__)
  template <class Int>
  TEV_INLINE __m256i mask() const {
    vec<Int, L> lane;
    TEV_UNROLL
    for (int l = 0; l < L; ++l) lane[l] = l;
    return (__m256i)((lane >= splat<L>(static_cast<Int>(begin))) & (lane < splat<L>(static_cast<Int>(end))));
  }
  TEV_INLINE vec<double, 4> load(const double* from) const { return _mm256_maskload_pd(from, mask<int64_t>()); }
  TEV_INLINE vec<float, 8> load(const float* from) const { return _mm256_maskload_ps(from, mask<int32_t>()); }
  TEV_INLINE vec<double, 4> keep(vec<double, 4> v) const { return (vec<double, 4>)((__m256i)v & mask<int64_t>()); }
  TEV_INLINE vec<float, 8> keep(vec<float, 8> v) const { return (vec<float, 8>)((__m256i)v & mask<int32_t>()); }
#else
  template <class R>
  TEV_INLINE vec<R, L> load(const R* from) const {
    vec<R, L> v = {};
    TEV_UNROLL
    for (int l = 0; l < L; ++l)
      if (l >= begin && l < end) v[l] = from[l];
    return v;
  }
  template <class V>
  TEV_INLINE V keep(V v) const {
    TEV_UNROLL
    for (int l = 0; l < L; ++l)
      if (l < begin || l >= end) v[l] = 0;
    return v;
  }
#endif
};
template <int L>
struct every_lane {
  template <class R>
  TEV_INLINE vec<R, L> load(const R* from) const {
    return TEV_TIER::load<L>(from);
  }
  template <class V>
  TEV_INLINE V keep(V v) const {
    return v;
  }
};

// There are instructions that load some lanes alone.
template <class T>
inline constexpr bool kRowsInRegister = kVectorBytes >= 32;

// The sums of a register of rows; of complex numbers those with the imaginary parts of x are apart.
template <class T>
struct row_sums {
  static constexpr int L = kLanes<real_of<T>>;
  vec<real_of<T>, L> direct, crossed;

  template <class Lanes>
  TEV_INLINE void add(const Lanes& lanes, const T* column, T x) {
    const auto c = lanes.load(reals(column));
    if constexpr (kComplex<T>) {
      direct = fma(c, lanes.keep(splat<L>(x.real)), direct);
      crossed = fma(c, lanes.keep(splat<L>(x.imag)), crossed);
    } else {
      direct = fma(c, lanes.keep(splat<L>(x)), direct);
    }
  }
  TEV_INLINE vec<real_of<T>, L> value() const {
    if constexpr (!kComplex<T>) return direct;
    return direct + swap_pairs<L, real_of<T>>(crossed) * alternate<L>(real_of<T>(-1), real_of<T>(1));
  }
};

}  // namespace tev::TEV_TIER
