// SPDX-License-Identifier: BSD-3-Clause
// How a packed panel is cut: strips of R elements, then, of what remains, at most one strip each of 32, 16, 8, 4, 2
// and 1 (those below R), largest first.
//
//   R = 12, 47 rows:   |    12    |    12    |    12    |  8  |2|1|
//
// A strip of r elements and depth k takes r * k consecutive elements of the panel: for each of the k positions along
// the other dimension its r elements. Strips follow each other, so the strip of row s starts s * k elements in.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

constexpr int strip_below(int r) {
  int s = 32;
  while (s >= r && s > 1) s /= 2;
  return s;
}

template <int R>
struct width {
  static constexpr int value = R;
};

template <int R, int kLowest, class Body>
TEV_INLINE int64_t for_remainder_strips(int64_t start, int64_t extent, const Body& body) {
  if constexpr (R < kLowest || R == 0) {
    return start;
  } else {
    if (extent - start >= R) {
      body(width<R>{}, start);
      start += R;
    }
    return for_remainder_strips<R / 2, kLowest>(start, extent, body);
  }
}

// Calls body(width<r>, start) for each strip, r its number of elements, down to strips of kLowest. Returns where the
// strips that are left begin.
template <int R, int kLowest = 1, class Body>
TEV_INLINE int64_t for_strips(int64_t extent, const Body& body) {
  int64_t start = 0;
  for (; start + R <= extent; start += R) body(width<R>{}, start);
  return for_remainder_strips < R == 1 ? 0 : strip_below(R), kLowest > (start, extent, body);
}

}  // namespace tev::TEV_TIER
