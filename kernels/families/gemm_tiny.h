// SPDX-License-Identifier: BSD-3-Clause
// Which products are tiny: their arithmetic takes less time than finding the way to a general kernel, so the sequential
// entry asks this first and jumps to `?gemm_tiny`. op(A) is no higher than a register; alpha is not 0.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

inline constexpr bool kHasTiny = kVectorBytes == 64;  // where short columns can be masked
inline constexpr int kTinyColumns = 16, kTinyDepth = 16;

template <class T>
TEV_INLINE bool is_tiny(int64_t m, int64_t n, int64_t k, T alpha) {
  const auto within = [](int64_t x, int64_t most) __attribute__((always_inline)) {  // 1 <= x <= most
    return static_cast<uint64_t>(x - 1) < static_cast<uint64_t>(most);
  };
  return within(m, kVectorBytes / static_cast<int64_t>(sizeof(T))) && within(n, kTinyColumns) &&
         within(k, kTinyDepth) && !is_zero(alpha);
}

}  // namespace tev::TEV_TIER
