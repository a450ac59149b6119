// SPDX-License-Identifier: BSD-3-Clause
// Packing of a symmetric or Hermitian matrix S of which one triangle is stored, in the strips of strips-inl.h. Rows and
// columns are the same here, so a strip of rows (S on the left of a product) and one of columns (on the right) are
// packed alike. A strip meets the diagonal at most once:
//
//   lower stored     \                 walked position p, strip elements s:
//                     \                  p before the strip's elements   stored, as they lie    copy_down_strip
//   a strip   [========#------]          among them                      some here, some there  one by one
//                       \                behind them                     stored mirrored        copy_right_strip
//
//   upper stored: the first and the last change places. What is mirrored of a Hermitian matrix is conjugated, and its
//   diagonal is real.
#pragma once

#include "kernels/families/gemm_framework-inl.h"

namespace tev::TEV_TIER {

// A strip of R elements over `walked` positions, of a matrix as it lies or of the mirrored one.
template <class T, int R, bool kConjugated>
__attribute__((noinline)) void copy_piece(bool mirrored, int64_t walked, const T* source, int64_t ld, T* to, T scalar) {
  const auto copy = [=](auto map) TEV_LAMBDA {
    if (mirrored)
      copy_right_strip<T, R>(walked, source, ld, to, map);
    else
      copy_down_strip<T, R>(walked, source, ld, to, map);
  };
  if (is_one(scalar))
    copy(on_the_way<T, false, kConjugated>{scalar});
  else
    copy(on_the_way<T, true, kConjugated>{scalar});
}

// One strip of R elements from `first` on, over the positions p0 .. p0 + walked - 1; matrix is the element (0, 0). The
// elements are rows of S on side L and columns on side R: there it is what lies as stored that is mirrored.
template <bool kLeft, bool kHermitian, int R, class T>
TEV_INLINE void copy_symmetric_strip(bool lower, int64_t first, int64_t p0, int64_t walked, const T* matrix, int64_t ld,
                                     T* to, T scalar) {
  constexpr int U = kParts<T>;
  const int64_t before = min_of(max_of(first - p0, 0), walked), among = min_of(max_of(first + R - p0, 0), walked);
  const auto as_it_lies = [=](int64_t p, int64_t end) TEV_LAMBDA {
    copy_piece<T, R, kHermitian && !kLeft>(false, end - p, matrix + first + (p0 + p) * ld, ld, to + p * R, scalar);
  };
  const auto mirrored = [=](int64_t p, int64_t end) TEV_LAMBDA {
    copy_piece<T, R, kHermitian && kLeft>(true, end - p, matrix + p0 + p + first * ld, ld, to + p * R, scalar);
  };
  if (lower)
    as_it_lies(0, before), mirrored(among, walked);
  else
    mirrored(0, before), as_it_lies(among, walked);
  for (int64_t p = before; p < among; ++p)
    for (int64_t s = 0; s < R; ++s) {
      const int64_t row = first + s, column = p0 + p;
      const bool stored = row == column || (row > column) == lower;
      auto x = load<U>(reals(stored ? matrix + row + column * ld : matrix + column + row * ld));
      if (kHermitian && (row == column || stored != kLeft)) x[U - 1] = row == column ? real_of<T>(0) : -x[U - 1];
      store<U>(is_one(scalar) ? x : times<T, U>(scalar, x), reals(to + p * R + s));
    }
}

template <class T, bool kLeft, bool kHermitian>
__attribute__((noinline)) void copy_symmetric(bool lower, const operand* source, packed* target, T scalar) {
  constexpr int R = kLeft ? kGemm<T>.mr : kGemm<T>.nr;
  const int64_t walked = kLeft ? source->columns : source->rows, across = kLeft ? source->rows : source->columns;
  const int64_t s0 = kLeft ? source->row_offset : source->column_offset;
  const int64_t p0 = kLeft ? source->column_offset : source->row_offset;
  const T* matrix = static_cast<const T*>(source->data) - source->row_offset - source->column_offset * source->ld;
  T* to = static_cast<T*>(target->data);
  target->depth = walked;
  target->width = across;
  for_strips<R>(across, [=](auto strip, int64_t s) TEV_LAMBDA {
    copy_symmetric_strip<kLeft, kHermitian, decltype(strip)::value>(lower, s0 + s, p0, walked, matrix, source->ld,
                                                                    to + s * walked, scalar);
  });
}

// A block of S as the records name it; it starts at the operand's offsets.
template <class T, bool kLeft, bool kLower, bool kHermitian = false>
void symm_copy(const operand* source, packed* target, const T* scalar) {
  copy_symmetric<T, kLeft, kHermitian>(kLower, source, target, *scalar);
}

}  // namespace tev::TEV_TIER
