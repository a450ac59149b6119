// SPDX-License-Identifier: BSD-3-Clause
// y += alpha A x for some columns of a stored triangle and what they stand for on the other side of the diagonal, A
// symmetric or, in the complex precisions, Hermitian. Every element is loaded once and serves twice:
//
//      lower    d             x, y of the columns       the rectangle below the corner d, J columns at a time:
//               d d                                          y of the rows    += columns times x of the columns
//               c c d         x, y of the rows               y of the columns += columns^H times x of the rows
//               c c d d
#pragma once

#include "kernels/families/reduction-inl.h"
#include "kernels/triangle.h"

namespace tev::TEV_TIER {

using kernels::storage;
using kernels::triangle;

// Columns j, j + next ... from row i on.
template <int J, class T>
TEV_INLINE column_starts<J, T> columns_of(const triangle<const T>& a, int64_t i, int64_t j, int64_t next = 1) {
  column_starts<J, T> columns;
  TEV_UNROLL
  for (int c = 0; c < J; ++c) columns.at[c] = a.at(i, j + c * next);
  return columns;
}

template <class T>
inline constexpr int kSymmetricColumns = 4 / kParts<T>;

// Long columns go by twice as many where the registers hold their sums: x and y are loaded half as often.
template <class T>
inline constexpr int kLongColumns = (kVectorRegisters == 32 ? 2 : 1) * kSymmetricColumns<T>;
template <class T>
inline constexpr int64_t kLongFrom = 8 * kLanes<real_of<T>>;

// What belongs to a group of rows: of x, and of y.
template <class T>
struct vector_parts {
  const T* x;
  T* y;
};

// What belongs to J columns: of x, and what comes to their y before alpha. They stay in registers.
template <int J, class T>
struct column_parts {
  T x[J], sum[J];
};

// J columns of m rows beside the diagonal.
template <int J, class T>
TEV_INLINE void symv_rectangle(int64_t m, T alpha, const column_starts<J, T>& a, column_parts<J, T>& of_columns,
                               const vector_parts<T>& of_rows) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  const R *column[J], *x = reals(of_rows.x);
  R* y = reals(of_rows.y);
  T t[J];
  dot_sums<J, 1, T> sums = {};
  TEV_UNROLL
  for (int j = 0; j < J; ++j) column[j] = reals(a.at[j]), t[j] = multiply(alpha, of_columns.x[j]);
  const int64_t count = m * kParts<T>, whole = count / L * L;
  const asked_ahead<R> ahead(count, kLong<R>, a);
  const auto step = [&](auto part, int64_t i) TEV_LAMBDA {
    ahead.template ask<L>(column, i);
    const auto v = part.load(x + i);
    auto sum = part.load(y + i);
    if constexpr (kComplex<T>) {
      const auto swapped = swap_pairs<L, R>(v);
      vec<R, L> crossed = {};
      TEV_UNROLL
      for (int j = 0; j < J; ++j) {
        const auto c = part.load(column[j] + i);
        sum = fma(c, splat<L>(t[j].real), sum);
        crossed = fma(c, splat<L>(t[j].imag), crossed);
        sums.direct[j][0] = fma(c, v, sums.direct[j][0]);
        sums.crossed[j][0] = fma(c, swapped, sums.crossed[j][0]);
      }
      sum += swap_pairs<L, R>(crossed) * alternate<L>(R(-1), R(1));
    } else {
      TEV_UNROLL
      for (int j = 0; j < J; ++j) {
        const auto c = part.load(column[j] + i);
        sum = fma(c, splat<L>(t[j]), sum);
        sums.direct[j][0] = fma(c, v, sums.direct[j][0]);
      }
    }
    part.store(sum, y + i);
  };
  for (int64_t i = 0; i < whole; i += L) step(whole_part<L>{}, i);
  if (whole < count) step(first_part<L>{count - whole}, whole);
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    of_columns.sum[j] = add(of_columns.sum[j], dot_of<L, T>(sums.direct[j][0], sums.crossed[j][0], true));
  }
}

// Where a triangle comes from. Behind columns of so many rows the next ones are asked for unless that is near, as what
// is a band, short or not far is taken to be.
template <class T>
TEV_INLINE source source_of(const triangle<const T>& a, int64_t rows, int64_t far_bytes) {
  const int64_t bytes = a.n * a.n / 2 * static_cast<int64_t>(sizeof(T));
  const bool is_asked = a.kind != storage::band && rows * kParts<T> >= 2 * kAhead<real_of<T>> && bytes >= far_bytes;
  return is_asked ? source_of(bytes) : source::near;
}

// The triangle of J columns on the diagonal, of which imaginary parts are not read.
template <int J, class T>
TEV_INLINE void symv_corner(bool upper, const column_starts<J, T>& a, column_parts<J, T>& own) {
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    own.sum[j] = add(own.sum[j], multiply(real_element<T>(*reals(a.at[j] + j)), own.x[j]));
    TEV_UNROLL
    for (int k = 0; k < j; ++k) {
      const T c = conjugate_if(!upper, upper ? a.at[j][k] : a.at[k][j]);
      own.sum[k] = add(own.sum[k], multiply(c, own.x[j]));
      own.sum[j] = add(own.sum[j], multiply(conjugate_if(true, c), own.x[k]));
    }
  }
}

template <int J, class T>
TEV_INLINE void symv_together(const triangle<const T>& a, int64_t j, T alpha, const T* x, T* y) {
  column_parts<J, T> own = {};
  TEV_UNROLL
  for (int i = 0; i < J; ++i) own.x[i] = x[j + i];
  symv_corner(a.upper, columns_of<J>(a, j, j), own);
  const int64_t first = a.upper ? 0 : j + J, last = a.upper ? j : a.n;
  auto columns = columns_of<J>(a, first, j);
  columns.from = source_of(a, last - first, 3 * kFarBytes);
  if (columns.from != source::near && j + 2 * J <= a.n)
    columns.behind = a.at(a.upper ? 0 : first + J, j + J) - columns.at[0];
  symv_rectangle(last - first, alpha, columns, own, {x + first, y + first});
  TEV_UNROLL
  for (int i = 0; i < J; ++i) y[j + i] = add(y[j + i], multiply(alpha, own.sum[i]));
}

// Columns [j, end), the last ones by fewer and fewer.
template <int J, class T>
TEV_INLINE void symv_narrow(const triangle<const T>& a, int64_t j, int64_t end, T alpha, const T* x, T* y) {
  for (; j + J <= end; j += J) symv_together<J>(a, j, alpha, x, y);
  if constexpr (J > 1) symv_narrow<J / 2>(a, j, end, alpha, x, y);
}

// Of a triangle that is full or packed.
template <class T>
TEV_INLINE void symv_columns(const triangle<const T>& a, int64_t begin, int64_t end, T alpha, const T* x, T* y) {
  constexpr int J = kSymmetricColumns<T>, kMore = kLongColumns<T>;
  int64_t j = begin;
  if constexpr (kMore > J) {
    for (; a.upper && j < kLongFrom<T> && j + J <= end; j += J) symv_together<J>(a, j, alpha, x, y);
    for (; j + kMore <= end && (a.upper || a.n - j - kMore >= kLongFrom<T>); j += kMore)
      symv_together<kMore>(a, j, alpha, x, y);
  }
  symv_narrow<J>(a, j, end, alpha, x, y);
}

// Bands and vectors with gaps: column by column.
template <class T>
TEV_INLINE void symv_by_columns(const triangle<const T>& a, int64_t begin, int64_t end, T alpha, const T* x,
                                int64_t incx, T* y, int64_t incy) {
  if (a.kind == storage::packed && incx == 1 && incy == 1) return symv_columns(a, begin, end, alpha, x, y);
  for (int64_t j = begin; j < end; ++j) {
    column_parts<1, T> own = {{x[j * incx]}, {}};
    const int64_t first = a.begin_beside(j), last = a.end_beside(j), count = last - first;
    const T* const column = a.at(first, j);
    symv_corner<1, T>(a.upper, {{a.diagonal(j)}}, own);
    const T* const of_x = x + (incx < 0 ? last - 1 : first) * incx;
    T* const of_y = y + (incy < 0 ? last - 1 : first) * incy;
    const bool gapless = incx == 1 && incy == 1;
    const T factor = multiply(alpha, own.x[0]);
    if (gapless && count <= kFew) {
      axpy_few(count, factor, column, of_y);
      own.sum[0] = add(own.sum[0], dot_few(true, count, column, of_x));
    } else if (gapless) {
      symv_rectangle<1, T>(count, alpha, {{column}}, own, {of_x, of_y});
    } else {
      axpy(count, factor, column, 1, of_y, incy);
      own.sum[0] = add(own.sum[0], dot(true, count, column, 1, of_x, incx));
    }
    y[j * incy] = add(y[j * incy], multiply(alpha, own.sum[0]));
  }
}

}  // namespace tev::TEV_TIER
