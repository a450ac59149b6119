// SPDX-License-Identifier: BSD-3-Clause
// What a cache holds of a matrix depends on its leading dimension.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

// So many pieces of memory, `apart` bytes from one to the next, evict each other: bytes way_bytes apart compete for the
// same `ways` lines.
TEV_INLINE bool pieces_clash(int64_t count, int64_t apart, int64_t way_bytes, int64_t ways) {
  return count * min_of(apart & -apart, way_bytes) > ways * way_bytes;
}

// So many columns with this leading dimension, in the first cache: 48 KiB in 12 ways.
template <class T>
TEV_INLINE bool columns_clash(int64_t count, int64_t ld) {
  return pieces_clash(count, ld * static_cast<int64_t>(sizeof(T)), 4096, 12);
}

}  // namespace tev::TEV_TIER
