// SPDX-License-Identifier: BSD-3-Clause
// Which products are a matter of writing C: so few steps of k, and so many bytes of C, that C goes past the caches,
// straight to memory. Where C does not consist of whole lines it goes the usual way: the same numbers, since where an
// operand lies must not show in the result. The tier that does not branch on addresses always goes that way.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

inline constexpr int64_t kShallowDepth = kVectorBytes == 64 ? 16 : 8;
inline constexpr int64_t kPastCaches = 12 * 1024 * 1024;

template <class T>
TEV_INLINE bool is_shallow(char transa, int64_t m, int64_t n, int64_t k, T beta) {
  constexpr int64_t kSize = sizeof(T);
  return (transa & ~0x20) == 'N' && k <= kShallowDepth && m * kSize >= 4096 && m * n > kPastCaches / kSize &&
         is_zero(beta);
}

// All columns begin with a line.
template <class T>
TEV_INLINE bool has_whole_lines(const T* c, int64_t ldc) {
  if constexpr (!kBranchesOnAddresses) return false;
  return reinterpret_cast<uintptr_t>(c) % kLineBytes == 0 && ldc * static_cast<int64_t>(sizeof(T)) % kLineBytes == 0;
}

}  // namespace tev::TEV_TIER
