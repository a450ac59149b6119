// SPDX-License-Identifier: BSD-3-Clause
// Packing of a symmetric matrix S of which one triangle is stored, in the strips of strips-inl.h. Rows and columns are
// the same here, so a strip of rows (S on the left of a product) and one of columns (on the right) are packed alike. A
// strip meets the diagonal at most once:
//
//   lower stored     \                 walked position p, strip elements s:
//                     \                  p before the strip's elements   stored, as they lie    copy_down_strip
//   a strip   [========#------]          among them                      some here, some there  one by one
//                       \                behind them                     stored mirrored        copy_right_strip
//
//   upper stored: the first and the last change places.
#pragma once

#include "kernels/families/gemm_framework-inl.h"

namespace tev::TEV_TIER {

// One strip of R elements from `first` on, over the positions p0 .. p0 + walked - 1; matrix is the element (0, 0).
template <bool kLower, int R, class T, class Map>
TEV_INLINE void copy_symmetric_strip(int64_t first, int64_t p0, int64_t walked, const T* matrix, int64_t ld, T* to,
                                     Map map) {
  constexpr int U = kParts<T>;
  const int64_t before = min_of(max_of(first + 1 - p0, 0), walked);
  const int64_t among = min_of(max_of(first + R - 1 - p0, before), walked);
  const auto as_it_lies = [&](int64_t p, int64_t end) __attribute__((always_inline)) {
    copy_down_strip<T, R>(end - p, matrix + first + (p0 + p) * ld, ld, to + p * R, map);
  };
  const auto mirrored = [&](int64_t p, int64_t end) __attribute__((always_inline)) {
    copy_right_strip<T, R>(end - p, matrix + p0 + p + first * ld, ld, to + p * R, map);
  };
  if constexpr (kLower)
    as_it_lies(0, before), mirrored(among, walked);
  else
    mirrored(0, before), as_it_lies(among, walked);
  for (int64_t p = before; p < among; ++p)
    for (int64_t s = 0; s < R; ++s) {
      const int64_t row = first + s, column = p0 + p;
      const T* from = (row > column) == kLower ? matrix + row + column * ld : matrix + column + row * ld;
      store<U>(map.template operator()<U>(load<U>(reals(from))), reals(to + p * R + s));
    }
}

// A block of S as the records name it; it starts at the operand's offsets.
template <class T, bool kLeft, bool kLower>
void symm_copy(const operand* source, packed* target, const T* scalar) {
  constexpr int R = kLeft ? kGemm<T>.mr : kGemm<T>.nr;
  const int64_t walked = kLeft ? source->columns : source->rows, across = kLeft ? source->rows : source->columns;
  const int64_t s0 = kLeft ? source->row_offset : source->column_offset;
  const int64_t p0 = kLeft ? source->column_offset : source->row_offset;
  const T* matrix = static_cast<const T*>(source->data) - source->row_offset - source->column_offset * source->ld;
  T* to = static_cast<T*>(target->data);
  target->depth = walked;
  target->width = across;
  const auto pack = [&](auto map) __attribute__((always_inline)) {
    for_strips<R>(
        across, [&](auto strip, int64_t s) __attribute__((always_inline)) {
          copy_symmetric_strip<kLower, decltype(strip)::value>(s0 + s, p0, walked, matrix, source->ld, to + s * walked,
                                                               map);
        });
  };
  if (is_one(*scalar))
    pack(on_the_way<T, false, false>{*scalar});
  else
    pack(on_the_way<T, true, false>{*scalar});
}

}  // namespace tev::TEV_TIER
