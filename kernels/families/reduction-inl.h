// SPDX-License-Identifier: BSD-3-Clause
// Level 1 routines that make one number of vectors: dot products, sums of moduli, the largest modulus. Elements that
// follow each other go through registers, several sums at a time; others are gathered a block at a time first. The
// order of the additions depends on the length and on whether elements are apart, never on an address.
#pragma once

#include "kernels/families/gemv-inl.h"

namespace tev::TEV_TIER {

// Elements that are gathered at a time.
inline constexpr int64_t kGathered = 256;

// Calls take(x, count) for blocks of the n elements in their order, which then follow each other.
template <class T, class Take>
TEV_INLINE void for_blocks(int64_t n, const T* x, int64_t incx, const Take& take) {
  T block[kGathered];
  x = first_of(n, x, incx);
  for (int64_t i = 0; i < n; i += kGathered) {
    const int64_t count = n - i < kGathered ? n - i : kGathered;
    gather(count, x + i * incx, incx, false, block);
    take(block, count);
  }
}

// The same with two vectors: take(x, y, count).
template <class T, class Take>
TEV_INLINE void for_block_pairs(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy, const Take& take) {
  T block[kGathered];
  y = first_of(n, y, incy);
  for_blocks(n, x, incx, [&](const T* xs, int64_t count) TEV_LAMBDA {
    gather(count, y, incy, false, block);
    y += count * incy;
    take(xs, block, count);
  });
}

// Calls whole(i), for U registers of L numbers at a time, single(i) for one, rest(i, count) for what is left; fold()
// when there have been whole ones and no more come: the U sums are put together in the first one.
template <int U, int L, class Whole, class Fold, class Single, class Rest>
TEV_INLINE void for_sums(int64_t n, const Whole& whole, const Fold& fold, const Single& single, const Rest& rest) {
  int64_t i = 0;
  if (n >= U * L) {
    for (const int64_t end = n / (U * L) * (U * L); i < end; i += U * L) whole(i);
    fold();
  }
  for (const int64_t end = n / L * L; i < end; i += L) single(i);
  if (i < n) rest(i, n - i);
}

template <int U, class V>
TEV_INLINE void fold_sums(V (&sums)[U]) {
  TEV_UNROLL
  for (int distance = U / 2; distance > 0; distance /= 2) TEV_UNROLL
  for (int u = 0; u < distance; ++u) sums[u] += sums[u + distance];
}

// ---- Dot products --------------------------------------------------------------------------------------------------

// Elements that go one by one: a register of them costs more, and would have to wait for what has just been stored of
// it.
inline constexpr int64_t kFew = 4;

template <class T>
TEV_INLINE T dot_few(bool conjugated, int64_t n, const T* x, const T* y) {
  T sum = {};
  for (int64_t i = 0; i < n; ++i) sum = add(sum, multiply(conjugate_if(conjugated, x[i]), y[i]));
  return sum;
}
template <class T>
TEV_INLINE void axpy_few(int64_t n, T alpha, const T* x, T* y) {
  for (int64_t i = 0; i < n; ++i) y[i] = add(y[i], multiply(alpha, x[i]));
}

// A register of a cache line's length in two halves, of which one lies within a line wherever it begins: a load that
// meets two lines costs most where vectors come from beyond the second cache. Found on 48 KiB / 1 MiB from 8 MiB on, on
// 32 KiB / 1 MiB from 2 MiB. Asking ahead costs a quarter on the latter: two streams come fastest by themselves.
template <int Lanes>
struct halved_part {
  static constexpr int W = Lanes;
  int64_t half = Lanes / 2;  // hidden from the compiler, which would make one load of two
  TEV_INLINE halved_part() { TEV_OPAQUE(half); }
  template <class R>
  TEV_INLINE vec<R, W> load(const R* from) const {
    struct {
      vec<R, W / 2> first, second;
    } const halves = {TEV_TIER::load<W / 2>(from), TEV_TIER::load<W / 2>(from + half)};
    return __builtin_bit_cast(vec<R, W>, halves);
  }
};

template <class T>
TEV_INLINE T dot_contiguous(bool conjugated, int64_t n, const T* x, const T* y) {
  if (n <= kFew) return dot_few(conjugated, n, x, y);
  using R = real_of<T>;
  constexpr int L = kLanes<R>, U = 4;
  const R *const column[] = {reals(x)}, *const yr = reals(y);
  dot_sums<1, U, T> sums = {};
  const int64_t bytes = 2 * n * static_cast<int64_t>(sizeof(T));
  const bool halved = kVectorBytes == kLineBytes && bytes >= kFarBytes;
  const halved_part<L> halves;
  for_sums<U, L>(
      n * kParts<T>,
      [&](int64_t i) TEV_LAMBDA {
        if (halved) return add_products<U>(halves, i, column, yr, sums);
        add_products<U>(whole_part<L>{}, i, column, yr, sums);
      },
      [&]() TEV_LAMBDA { fold_sums(sums.direct[0]), fold_sums(sums.crossed[0]); },
      [&](int64_t i) TEV_LAMBDA { add_products<1>(whole_part<L>{}, i, column, yr, sums); },
      [&](int64_t i, int64_t count) TEV_LAMBDA { add_products<1>(first_part<L>{count}, i, column, yr, sums); });
  return dot_of<L, T>(sums.direct[0][0], sums.crossed[0][0], conjugated);
}

template <class T>
__attribute__((noinline)) T dot_gathered(bool conjugated, int64_t n, const T* x, int64_t incx, const T* y,
                                         int64_t incy) {
  T sum = {};
  for_block_pairs(n, x, incx, y, incy, [&](const T* xs, const T* ys, int64_t count) TEV_LAMBDA {
    sum = add(sum, dot_contiguous(conjugated, count, xs, ys));
  });
  return sum;
}

template <class T>
TEV_INLINE T dot(bool conjugated, int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  if (n < 1) return {};
  if (incx == 1 && incy == 1) return dot_contiguous(conjugated, n, x, y);
  return dot_gathered(conjugated, n, x, incx, y, incy);
}

// Products and sums in double: a product of two floats is exact there.
TEV_INLINE double dot_in_double_contiguous(int64_t n, const float* x, const float* y) {
  constexpr int L = kLanes<double>, U = 4;
  using V = vec<double, L>;
  if (n <= kFew) {
    double sum = 0;
    for (int64_t i = 0; i < n; ++i) sum += double{x[i]} * double{y[i]};
    return sum;
  }
  V sums[U] = {};
  const auto add_register = [&](auto part, int64_t i, V& sum) TEV_LAMBDA {
    sum = fma(__builtin_convertvector(part.load(x + i), V), __builtin_convertvector(part.load(y + i), V), sum);
  };
  if (kFew < L && n <= L) {
    add_register(first_part<L>{n}, 0, sums[0]);
    return sum<L, double>(sums[0]);
  }
  for_sums<U, L>(
      n,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) add_register(whole_part<L>{}, i + u * L, sums[u]);
      },
      [&]() TEV_LAMBDA { fold_sums(sums); }, [&](int64_t i) TEV_LAMBDA { add_register(whole_part<L>{}, i, sums[0]); },
      [&](int64_t i, int64_t count) TEV_LAMBDA { add_register(first_part<L>{count}, i, sums[0]); });
  return sum<L, double>(sums[0]);
}

template <class R>  // float
__attribute__((noinline)) double dot_in_double_gathered(int64_t n, const R* x, int64_t incx, const R* y, int64_t incy) {
  double sum = 0;
  for_block_pairs(n, x, incx, y, incy, [&](const R* xs, const R* ys, int64_t count) TEV_LAMBDA {
    sum += dot_in_double_contiguous(count, xs, ys);
  });
  return sum;
}

TEV_INLINE double dot_in_double(int64_t n, const float* x, int64_t incx, const float* y, int64_t incy) {
  if (n < 1) return 0;
  if (incx == 1 && incy == 1) return dot_in_double_contiguous(n, x, y);
  return dot_in_double_gathered(n, x, incx, y, incy);
}

// ---- Moduli --------------------------------------------------------------------------------------------------------

// So many bytes and more are loaded at register boundaries: a single stream from the second cache is twice as fast.
inline constexpr int64_t kAlignedFrom = 4096;

// The lanes of a register but for the first n, which are 0 and not touched.
template <int L, class R>
TEV_INLINE vec<R, L> load_behind(const R* from, int64_t n) {
#if defined(__AVX512F__)
  if constexpr (sizeof(R) == 8)
    return _mm512_maskz_loadu_pd(static_cast<__mmask8>(0xFF << n), from);
  else
    return _mm512_maskz_loadu_ps(static_cast<__mmask16>(0xFFFF << n), from);
#else
  R lanes[L];
  for (int l = 0; l < L; ++l) lanes[l] = l < n ? R(0) : from[l];
  return load<L>(lanes);
#endif
}

// U registers of L lanes each, turned by n lanes of the first, which come to the end.
template <int L, class R, int U>
TEV_INLINE void turn_lanes(vec<R, L> (&v)[U], int64_t n) {
  const vec<R, L> first = v[0];
#if defined(__AVX512F__)
  TEV_UNROLL
  for (int u = 0; u < U; ++u) {
    const vec<R, L> next = u + 1 < U ? v[u + 1] : first;
    if constexpr (sizeof(R) == 8)
      v[u] = _mm512_permutex2var_pd(
          v[u], _mm512_add_epi64(_mm512_set_epi64(7, 6, 5, 4, 3, 2, 1, 0), _mm512_set1_epi64(n)), next);
    else
      v[u] = _mm512_permutex2var_ps(
          v[u],
          _mm512_add_epi32(_mm512_set_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0),
                           _mm512_set1_epi32(static_cast<int>(n))),
          next);
  }
#else
  R turned[(U + 1) * L];
  TEV_UNROLL
  for (int u = 0; u < U; ++u) store<L>(v[u], turned + u * L);
  store<L>(first, turned + U * L);
  TEV_UNROLL
  for (int u = 0; u < U; ++u) v[u] = load<L>(turned + n + u * L);
#endif
}

// Sum u, lane l holds the numbers whose place in x is u L + l, modulo U L, in their order. Loads begin at the boundary
// before x, so the lanes are turned by as much; in the end they are turned back. So the sum is the same at every
// address.
template <class R>
TEV_INLINE R asum_aligned(int64_t n, const R* x) {
  constexpr int L = kLanes<R>, U = kVectorRegisters == 32 ? 8 : 4;
  const auto address = reinterpret_cast<uintptr_t>(x);
  const int64_t ahead = address % sizeof(R) == 0 ? static_cast<int64_t>(address % kVectorBytes / sizeof(R)) : 0;
  const R* const from = x - ahead;
  const int64_t count = n + ahead;
  vec<R, L> sums[U];
  sums[0] = __builtin_elementwise_abs(load_behind<L>(from, ahead));
  TEV_UNROLL
  for (int u = 1; u < U; ++u) sums[u] = __builtin_elementwise_abs(load<L>(from + u * L));
  int64_t i = U * L;
  for (; i + U * L <= count; i += U * L) TEV_UNROLL
  for (int u = 0; u < U; ++u) sums[u] += __builtin_elementwise_abs(load<L>(from + i + u * L));
  TEV_UNROLL
  for (int u = 0; u < U; ++u, i += L) {
    if (i >= count) break;
    sums[u] += __builtin_elementwise_abs(i + L <= count ? load<L>(from + i) : load_first<L>(from + i, count - i));
  }
  turn_lanes<L, R>(sums, ahead);
  fold_sums(sums);
  return sum<L, R>(sums[0]);
}

template <class R>
TEV_INLINE R asum_contiguous(int64_t n, const R* x) {
  constexpr int L = kLanes<R>, U = 4;
  if (n * static_cast<int64_t>(sizeof(R)) >= kAlignedFrom) return asum_aligned(n, x);
  vec<R, L> sums[U] = {};
  for_sums<U, L>(
      n,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) sums[u] += __builtin_elementwise_abs(load<L>(x + i + u * L));
      },
      [&]() TEV_LAMBDA { fold_sums(sums); },
      [&](int64_t i) TEV_LAMBDA { sums[0] += __builtin_elementwise_abs(load<L>(x + i)); },
      [&](int64_t i, int64_t count) TEV_LAMBDA { sums[0] += __builtin_elementwise_abs(load_first<L>(x + i, count)); });
  return sum<L, R>(sums[0]);
}

template <class R>
__attribute__((noinline)) R asum_gathered(int64_t n, const R* x, int64_t incx) {
  R sum = 0;
  for_blocks(n, x, incx, [&](const R* xs, int64_t count) TEV_LAMBDA { sum += asum_contiguous(count, xs); });
  return sum;
}

template <class R>
TEV_INLINE R asum(int64_t n, const R* x, int64_t incx) {
  if (n < 1) return 0;
  return incx == 1 ? asum_contiguous(n, x) : asum_gathered(n, x, incx);
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

#if defined(__AVX512F__)
// As load_first, with NaN in the lanes beyond.
template <int L, class R>
TEV_INLINE vec<R, L> load_first_or_nan(const R* from, int64_t n) {
  const vec<R, L> nan = splat<L>(static_cast<R>(__builtin_nan("")));
  if constexpr (sizeof(R) == 8)
    return _mm512_mask_loadu_pd(nan, static_cast<__mmask8>((1u << n) - 1), from);
  else
    return _mm512_mask_loadu_ps(nan, static_cast<__mmask16>((1u << n) - 1), from);
}

// Which of the numbers of a register are `value`: a bit for each.
template <int L, class R>
TEV_INLINE uint32_t equal_lanes(vec<R, L> v, R value) {
  if constexpr (sizeof(R) == 8)
    return _mm512_cmp_pd_mask(v, splat<L>(value), _CMP_EQ_OQ);
  else
    return _mm512_cmp_ps_mask(v, splat<L>(value), _CMP_EQ_OQ);
}
#endif

// Of the largest modulus among n elements; -1 when all are NaN.
template <class T>
TEV_INLINE real_of<T> largest_modulus(int64_t n, const T* x) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, U = 4;
  const R* xr = reals(x);
  vec<R, L> largest[U];
  TEV_UNROLL
  for (int u = 0; u < U; ++u) largest[u] = splat<L>(R(-1));
  [[maybe_unused]] R most = -1;
  for_sums<U, L>(
      n * kParts<T>,
      [&](int64_t i) TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 0; u < U; ++u) largest[u] = larger(moduli<T, L>(load<L>(xr + i + u * L)), largest[u]);
      },
      [&]() TEV_LAMBDA {
        TEV_UNROLL
        for (int u = 1; u < U; ++u) largest[0] = larger(largest[u], largest[0]);
      },
      [&](int64_t i) TEV_LAMBDA { largest[0] = larger(moduli<T, L>(load<L>(xr + i)), largest[0]); },
      [&](int64_t i, int64_t count) TEV_LAMBDA {
#if defined(__AVX512F__)
        largest[0] = larger(moduli<T, L>(load_first_or_nan<L>(xr + i, count)), largest[0]);
#else
        for (int64_t k = i; k < i + count; k += kParts<T>) {
          const R modulus = moduli<T, kParts<T>>(load<kParts<T>>(xr + k))[0];
          if (modulus > most) most = modulus;
        }
#endif
      });
  const R of_lanes = joined<L, R>(largest[0], [](auto v, auto w) TEV_LAMBDA { return larger(v, w); });
  return of_lanes > most ? of_lanes : most;
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
#if defined(__AVX512F__)
  for (;; i += kElements) {
    const int64_t count = (n - i) * kParts<T>;
    const auto v = moduli<T, L>(count >= L ? load<L>(xr + i * kParts<T>) : load_first<L>(xr + i * kParts<T>, count));
    if (const uint32_t equal = equal_lanes<L, R>(v, modulus)) return i + __builtin_ctz(equal) / kParts<T>;
  }
#else
  while (i + kElements <= n && !any_equal<L, R>(moduli<T, L>(load<L>(xr + i * kParts<T>)), modulus)) i += kElements;
  while (moduli<T, kParts<T>>(load<kParts<T>>(xr + i * kParts<T>))[0] != modulus) ++i;
  return i;
#endif
}

// The largest modulus so far, and where it was first.
template <class R>
struct first_largest {
  R modulus;
  int64_t at;
};

// Among the n elements from number `begin` on.
template <class T>
TEV_INLINE void look_for_larger(int64_t begin, int64_t n, const T* x, first_largest<real_of<T>>& found) {
  for (int64_t i = 0; i < n; i += kSearched<T>) {
    const int64_t count = n - i < kSearched<T> ? n - i : kSearched<T>;
    const auto modulus = largest_modulus(count, x + i);
    if (modulus > found.modulus) found = {modulus, begin + i + find_modulus(x + i, count, modulus)};
  }
}

template <class T>
__attribute__((noinline)) int64_t iamax_gathered(int64_t n, const T* x, int64_t incx) {
  first_largest<real_of<T>> found = {-1, 0};
  int64_t begin = 0;
  for_blocks(n, x, incx, [&](const T* xs, int64_t count) TEV_LAMBDA {
    look_for_larger(begin, count, xs, found);
    begin += count;
  });
  return found.at;
}

#if defined(__AVX512F__)
// n elements that fit into U registers, one or two.
template <int U, class T>
TEV_INLINE int64_t iamax_of_registers(int64_t n, const T* x) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  const int64_t count = n * kParts<T>, in_first = U == 1 ? count : min_of(count, L);
  const auto first = larger(moduli<T, L>(load_first_or_nan<L>(reals(x), in_first)), splat<L>(R(-1)));
  auto both = first, second = first;
  if constexpr (U == 2) {
    second = moduli<T, L>(load_first_or_nan<L>(reals(x) + in_first, count - in_first));
    both = larger(second, first);
  }
  const R most = joined<L, R>(both, [](auto v, auto w) TEV_LAMBDA { return larger(v, w); });
  uint32_t equal = equal_lanes<L, R>(first, most);
  if constexpr (U == 2) equal |= equal_lanes<L, R>(second, most) << L;
  return __builtin_ctz(equal) / kParts<T>;
}
#endif

// The first element of the largest modulus, from 0; NaN is passed over, unless all are: 0.
template <class T>
TEV_INLINE int64_t iamax(int64_t n, const T* x, int64_t incx) {
  if (n < 1) return 0;
  if (incx != 1) return iamax_gathered(n, x, incx);
#if defined(__AVX512F__)
  if (n * kParts<T> <= kLanes<real_of<T>>) return iamax_of_registers<1>(n, x);
  if (n * kParts<T> <= 2 * kLanes<real_of<T>>) return iamax_of_registers<2>(n, x);
#endif
  first_largest<real_of<T>> found = {-1, 0};
  look_for_larger(0, n, x, found);
  return found.at;
}

}  // namespace tev::TEV_TIER
