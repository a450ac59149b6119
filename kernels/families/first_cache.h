// SPDX-License-Identifier: BSD-3-Clause
// What the first cache holds of a matrix depends on its leading dimension.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

// So many columns with this leading dimension evict each other from the first cache. 48 KiB in 12 ways: bytes 4096
// apart compete for the same 12 lines.
template <class T>
TEV_INLINE bool columns_clash(int64_t count, int64_t ld) {
  constexpr int64_t kWayBytes = 4096, kWays = 12;
  const int64_t bytes = ld * static_cast<int64_t>(sizeof(T));
  return count * min_of(bytes & -bytes, kWayBytes) > kWays * kWayBytes;
}

}  // namespace tev::TEV_TIER
