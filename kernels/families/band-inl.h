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
