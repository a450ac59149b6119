// SPDX-License-Identifier: BSD-3-Clause
// Rows of a transposed operand into a panel, where they lie side by side as vectors need them:
//
//   A(k x m), columns contiguous along k           panel: for each p, the rows of the strip one after another
//     a(p, i)  a(p, i+1) ...              ->         p = 0: a(0, i), a(0, i+1) .. a(0, i+height-1)
//     a(p+1, i) ...                                  p = 1: ...
#pragma once

#include "kernels/families/unpacked_tile-inl.h"

namespace tev::TEV_TIER {

// Of a panel on the stack: half of a first cache, the rest is for what meets it.
inline constexpr int64_t kPanelBytes = 24 * 1024;

// A length in even stretches of at most `most`.
TEV_INLINE int64_t stretch(int64_t length, int64_t most) {
  if (length <= most) return length;
  const int64_t count = (length + most - 1) / most;
  return (length + count - 1) / count;
}

// Rows of op(A) into a panel of `height` reals per step of k; a is the element (0, 0) of the strip. The panel's rows
// are padded to whole vectors. Squares of vectors are transposed in registers; the last square of a row ends at the
// last element, so that part of it is done twice.
template <class T, class R>
TEV_INLINE void transpose_strip(int64_t rows, int64_t depth, const R* a, int64_t lda, R* panel, int64_t height) {
  constexpr int U = kParts<T>, W = kLanesOf<R>, N = W / U;
  for (int64_t i = 0; i < rows / U; i += N)
    for (int64_t next = 0; next < depth; next += N) {
      const int64_t p = next + N <= depth || depth < N ? next : depth - N;
      vec<R, W> square[N];
      TEV_UNROLL
      for (int q = 0; q < N; ++q) {
        const R* from = a + (i + q) * lda + p * U;
        square[q] = i + q >= rows / U ? vec<R, W>{} : depth < N ? load_first<W>(from, depth * U) : load<W>(from);
      }
      transpose<W, U>(square);
      R* to = panel + p * height + i * U;
      TEV_UNROLL
      for (int q = 0; q < N; ++q)
        if (q < depth) store<W, R>(square[q], to + q * height);
    }
}

}  // namespace tev::TEV_TIER
