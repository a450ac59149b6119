// SPDX-License-Identifier: BSD-3-Clause
// Rank-1 products: A := alpha x op(y)^T + A, and C := alpha op(x) op(y)^T + beta C, a matrix product with k = 1. A few
// columns at a time, so that each vector of x is loaded once for all of them; beta 0 never reads C.
#pragma once

#include "kernels/families/vector-inl.h"

namespace tev::TEV_TIER {

// Columns that share what they load of x.
template <class T>
inline constexpr int kColumnsOfRank1 = kCopiesCost<T> ? 1 : 4 / kParts<T>;

// c_j := (alpha y_j) x + beta c_j, J columns; x contiguous.
template <bool kReadsC, bool kScalesC, int J, class T>
TEV_INLINE void rank1_columns(int64_t m, T alpha, const T* x, const T* y, int64_t incy, bool conjugate_y, T beta, T* c,
                              int64_t ldc) {
  const real_of<T>* xr = reals(x);
  real_of<T>* column[J];
  T t[J];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    column[j] = reals(c + j * ldc);
    t[j] = multiply(alpha, conjugate_if(conjugate_y, y[j * incy]));
  }
  const auto step = [&](auto part, int64_t i) __attribute__((always_inline)) {
    const auto v = part.load(xr + i);
    TEV_UNROLL
    for (int j = 0; j < J; ++j) {
      const auto tj = multiplier_of<part.W>(t[j]);
      if constexpr (!kReadsC) {
        part.store(product(tj, v), column[j] + i);
      } else {
        auto old = part.load_own(column[j] + i);
        if constexpr (kScalesC) old = product(multiplier_of<part.W>(beta), old);
        part.store(plus_product(old, tj, v), column[j] + i);
      }
    }
  };
  if constexpr (J == 1)
    for_aligned_parts<T, 4, kAlignsColumnFrom>(m * kParts<T>, column[0], step);
  else
    for_parts<T, 2>(m * kParts<T>, step);
}

// Rows of x that are read where they lie stay in the L2 cache: columns are long, and memory delivers more along them.
template <class T>
inline constexpr int64_t kLongSegment = 16 * kSegment<T>;

// A matrix from this size on comes from memory, which delivers more along one column than along several.
template <class T>
inline constexpr int64_t kCachedElements = (16 << 20) / static_cast<int64_t>(sizeof(T));

// Columns of so many registers take less time one by one, each from a boundary on, than together. Found on 32 KiB /
// 1 MiB: 32 registers by a fifth, in the third cache by half; 16 registers take 3 to 7 % longer.
inline constexpr int64_t kLongRegisters = 24;

template <bool kReadsC, bool kScalesC, class T>
TEV_INLINE void rank1(int64_t m, int64_t n, T alpha, const T* x, int64_t incx, bool conjugate_x, const T* y,
                      int64_t incy, bool conjugate_y, T beta, T* c, int64_t ldc) {
  constexpr int J = kColumnsOfRank1<T>;
  T block[kSegment<T>];
  const bool one_by_one =
      m * n >= kCachedElements<T> || (kMasksToAlignment && m * kParts<T> >= kLongRegisters * kLanes<real_of<T>>);
  const bool in_place = incx == 1 && !conjugate_x;
  const int64_t length = in_place ? kLongSegment<T> : kSegment<T>;
  for (int64_t i = 0; i < m; i += length) {
    const int64_t rows = m - i < length ? m - i : length;
    const T* segment = x + i * incx;
    if (!in_place) {
      gather(rows, segment, incx, conjugate_x, block);
      segment = block;
    }
    int64_t j = 0;
    for (; !one_by_one && j + J <= n; j += J)
      rank1_columns<kReadsC, kScalesC, J>(rows, alpha, segment, y + j * incy, incy, conjugate_y, beta, c + i + j * ldc,
                                          ldc);
    for (; j < n; ++j)
      rank1_columns<kReadsC, kScalesC, 1>(rows, alpha, segment, y + j * incy, incy, conjugate_y, beta, c + i + j * ldc,
                                          ldc);
  }
}

template <class T>
TEV_INLINE void ger(bool conjugate_y, int64_t m, int64_t n, T alpha, const T* x, int64_t incx, const T* y, int64_t incy,
                    T* a, int64_t lda) {
  if (m < 1 || n < 1 || is_zero(alpha)) return;
  x = first_of(m, x, incx), y = first_of(n, y, incy);
  rank1<true, false>(m, n, alpha, x, incx, false, y, incy, conjugate_y, alpha, a, lda);
}

template <class T>
TEV_INLINE void gemmger(const char* transa, const char* transb, int64_t m, int64_t n, T alpha, const T* x, int64_t incx,
                        const T* y, int64_t incy, T beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  if (is_zero(alpha)) {
    for (int64_t j = 0; j < n; ++j) scale_result(m, beta, c + j * ldc, 1);
    return;
  }
  const bool conjugate_x = kComplex<T> && is_letter(transa, 'C'), conjugate_y = kComplex<T> && is_letter(transb, 'C');
  x = first_of(m, x, incx), y = first_of(n, y, incy);
  if (is_zero(beta))
    rank1<false, false>(m, n, alpha, x, incx, conjugate_x, y, incy, conjugate_y, beta, c, ldc);
  else if (is_one(beta))
    rank1<true, false>(m, n, alpha, x, incx, conjugate_x, y, incy, conjugate_y, beta, c, ldc);
  else
    rank1<true, true>(m, n, alpha, x, incx, conjugate_x, y, incy, conjugate_y, beta, c, ldc);
}

}  // namespace tev::TEV_TIER
