// SPDX-License-Identifier: BSD-3-Clause
// Aligned blocks, each with a prefix before it:
//
//   what the back end returned                         address returned, a multiple of `alignment`
//   |                                                  |
//   | ...           | block | total | account | align- |  size bytes
//   |                 8       8       4         ment 4 |
#pragma once

#include <bit>
#include <cstddef>

#include "tev/service.h"

namespace tev::service {

struct mm_block_prefix {
  void* block;      // what the back end returned
  int64_t total;    // bytes asked of it: size + alignment + 24
  int32_t account;  // 0: counted in the accounts of the threads
  uint32_t alignment;
};
static_assert(sizeof(mm_block_prefix) == 24 && offsetof(mm_block_prefix, total) == 8 &&
              offsetof(mm_block_prefix, account) == 16 && offsetof(mm_block_prefix, alignment) == 20);

inline constexpr int64_t kLeastAlignment = 64;
inline constexpr int64_t kLargestAlignment = int64_t{1} << 31;  // the largest that the prefix can tell

// The given alignment when it is a power of two from 64 up, else 64.
inline int64_t effective_alignment(int64_t alignment) {
  const bool good = alignment >= kLeastAlignment && std::has_single_bit(static_cast<uint64_t>(alignment));
  return good ? alignment : kLeastAlignment;
}

}  // namespace tev::service
