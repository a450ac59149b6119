// SPDX-License-Identifier: BSD-3-Clause
// y += alpha op(A) x for a band matrix A, kl diagonals below the main one and ku above it.
//
//   N: a register of rows of y at a time        T, C: the dot products of J columns that are equally long, each one
//                                               element further down x than the one before
//      x x x o o                                    x
//      o x x x o    of the columns at either        x x
//      o o x x x    end some lanes are zero         x x x
//                                                     x x
//                                                       x
#pragma once

#include "kernels/families/reduction-inl.h"

namespace tev::TEV_TIER {

template <class T>
struct band {
  const T* data;
  int64_t m, n, kl, ku, ld;

  TEV_INLINE const T* at(int64_t i, int64_t j) const { return data + (ku + i - j) + j * ld; }
};

// Rows or columns.
struct range {
  int64_t begin, end;
};

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

// Columns [from, until) and rows i ... i + count - 1, which fit into a register.
template <class T>
TEV_INLINE void add_partial_columns(const band<T>& a, int64_t i, int64_t count, int64_t from, int64_t until, const T* x,
                                    row_sums<T>& sums) {
  constexpr int L = row_sums<T>::L;
  for (int64_t j = from; j < until; ++j) {
    const int64_t begin = max_of(0, j - a.ku - i), end = min_of(count, j + a.kl + 1 - i);
    sums.add(some_lanes<L>{begin * kParts<T>, end * kParts<T>}, a.at(i, j), x[j]);
  }
}

// Rows i ... of R registers, of which the last may have fewer: `count` in all.
template <int R, class T>
TEV_INLINE void gbmv_rows(const band<T>& a, int64_t i, int64_t count, T alpha, const T* x, T* y) {
  constexpr int L = row_sums<T>::L, kRows = L / kParts<T>, U = 4 / R;
  // Columns that have all of these rows; of the others each register has its own.
  const int64_t whole_from = max_of(0, i + R * kRows - 1 - a.kl), whole_until = min_of(a.n, i + a.ku + 1);
  const bool whole = count == R * kRows && whole_from < whole_until;
  row_sums<T> sums[R][U] = {};
  TEV_UNROLL
  for (int r = 0; r < R; ++r) {
    const int64_t row = i + r * kRows, rows = min_of(kRows, count - r * kRows);
    const int64_t from = max_of(0, row - a.kl), until = min_of(a.n, row + rows + a.ku);
    add_partial_columns(a, row, rows, from, whole ? whole_from : until, x, sums[r][0]);
    if (whole) add_partial_columns(a, row, rows, whole_until, until, x, sums[r][1]);
  }
  if (whole) {
    int64_t j = whole_from;
    for (; j + U <= whole_until; j += U) TEV_UNROLL
    for (int u = 0; u < U; ++u) TEV_UNROLL
    for (int r = 0; r < R; ++r) sums[r][u].add(every_lane<L>{}, a.at(i + r * kRows, j + u), x[j + u]);
    for (; j < whole_until; ++j) TEV_UNROLL
    for (int r = 0; r < R; ++r) sums[r][0].add(every_lane<L>{}, a.at(i + r * kRows, j), x[j]);
  }
  TEV_UNROLL
  for (int r = 0; r < R; ++r) {
    auto sum = sums[r][0].value() + sums[r][1].value();
    if constexpr (U == 4) sum += sums[r][2].value() + sums[r][3].value();
    real_of<T>* const to = reals(y + i + r * kRows);
    const first_part<L> rows = {min_of(kRows, count - r * kRows) * kParts<T>};
    rows.store(plus_product(rows.load(to), multiplier_of<L>(alpha), sum), to);
  }
}

template <class T>
TEV_INLINE void gbmv_n(const band<T>& a, const range& part, T alpha, const T* x, T* y) {
  constexpr int kRows = kLanes<real_of<T>> / kParts<T>;
  int64_t i = part.begin;
  for (; i + 2 * kRows <= part.end; i += 2 * kRows) gbmv_rows<2>(a, i, 2 * kRows, alpha, x, y);
  for (; i < part.end; i += kRows) gbmv_rows<1>(a, i, min_of(kRows, part.end - i), alpha, x, y);
}

// dots[j] := column j . x, from element j on: J columns that begin `next` apart.
template <int J, class T>
TEV_INLINE void slanted_dots(bool conjugated, int64_t count, const T* a, int64_t next, const T* x, T (&dots)[J]) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  dot_sums<J, 1, T> sums = {};
  const auto add = [&](auto part, int64_t i) TEV_LAMBDA {
    TEV_UNROLL
    for (int j = 0; j < J; ++j) {
      const auto c = part.load(reals(a + j * next) + i), v = part.load(reals(x + j) + i);
      sums.direct[j][0] = fma(c, v, sums.direct[j][0]);
      if constexpr (kComplex<T>) sums.crossed[j][0] = fma(c, swap_pairs<L, R>(v), sums.crossed[j][0]);
    }
  };
  int64_t i = 0;
  for (; i + L <= count * kParts<T>; i += L) add(whole_part<L>{}, i);
  if (i < count * kParts<T>) add(first_part<L>{count * kParts<T> - i}, i);
  TEV_UNROLL
  for (int j = 0; j < J; ++j) dots[j] = dot_of<L, T>(sums.direct[j][0], sums.crossed[j][0], conjugated);
}

template <class T>
TEV_INLINE void gbmv_t(bool conjugated, const band<T>& a, const range& part, T alpha, const T* x, T* y) {
  for (int64_t j = part.begin, end = min_of(part.end, a.m + a.ku); j < end; ++j) {
    const int64_t first = max_of(0, j - a.ku), last = min_of(a.m, j + a.kl + 1);
    y[j] = add(y[j], multiply(alpha, dot_contiguous(conjugated, last - first, a.at(first, j), x + first)));
  }
}

// Elements `part` of y.
template <class T>
TEV_INLINE void gbmv_part(char trans, const band<T>& a, const range& part, T alpha, const T* x, T* y) {
  trans == 'N' ? gbmv_n(a, part, alpha, x, y) : gbmv_t(trans == 'C', a, part, alpha, x, y);
}

}  // namespace tev::TEV_TIER
