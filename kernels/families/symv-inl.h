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

namespace tev::TEV_TIER {

template <class T>
inline constexpr int kSymmetricColumns = 4 / kParts<T>;

// What belongs to a group of rows or of columns: of x, and of y.
template <class T>
struct vector_parts {
  const T* x;
  T* y;
};

template <class T>
TEV_INLINE void add_to(T& y, T alpha, T a, T x) {
  y = add(y, multiply(alpha, multiply(a, x)));
}

// J columns of m rows beside the diagonal.
template <int J, class T>
TEV_INLINE void symv_rectangle(int64_t m, T alpha, const T* a, int64_t lda, const vector_parts<T>& of_columns,
                               const vector_parts<T>& of_rows) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  const R *column[J], *x = reals(of_rows.x);
  R* y = reals(of_rows.y);
  T t[J];
  dot_sums<J, 1, T> sums = {};
  TEV_UNROLL
  for (int j = 0; j < J; ++j) column[j] = reals(a + j * lda), t[j] = multiply(alpha, of_columns.x[j]);
  const auto step = [&](auto part, int64_t i) TEV_LAMBDA {
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
  const int64_t count = m * kParts<T>, whole = count / L * L;
  for (int64_t i = 0; i < whole; i += L) step(whole_part<L>{}, i);
  if (whole < count) step(first_part<L>{count - whole}, whole);
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    const T dot = dot_of<L, T>(sums.direct[j][0], sums.crossed[j][0], true);
    of_columns.y[j] = add(of_columns.y[j], multiply(alpha, dot));
  }
}

// The triangle of J columns on the diagonal, of which imaginary parts are not read.
template <int J, class T>
TEV_INLINE void symv_corner(bool upper, T alpha, const T* a, int64_t lda, const vector_parts<T>& own) {
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    const T diagonal = real_element<T>(*reals(a + j + j * lda));
    add_to(own.y[j], alpha, diagonal, own.x[j]);
    TEV_UNROLL
    for (int k = 0; k < j; ++k) {
      const int i = upper ? k : j, l = upper ? j : k;  // row and column of the stored element
      const T c = a[i + l * lda];
      add_to(own.y[i], alpha, c, own.x[l]);
      add_to(own.y[l], alpha, conjugate_if(true, c), own.x[i]);
    }
  }
}

template <int J, class T>
TEV_INLINE void symv_columns(bool upper, int64_t n, int64_t begin, int64_t end, T alpha, const T* a, int64_t lda,
                             const T* x, T* y) {
  int64_t j = begin;
  for (; j + J <= end; j += J) {
    const vector_parts<T> own = {x + j, y + j};
    symv_corner<J>(upper, alpha, a + j + j * lda, lda, own);
    const int64_t first = upper ? 0 : j + J, last = upper ? j : n;
    symv_rectangle<J>(last - first, alpha, a + first + j * lda, lda, own, {x + first, y + first});
  }
  if constexpr (J > 1) symv_columns<J / 2>(upper, n, j, end, alpha, a, lda, x, y);
}

}  // namespace tev::TEV_TIER
