// SPDX-License-Identifier: BSD-3-Clause
// The memory manager's start, at the first request for memory: settings, high-bandwidth library, back end.
#pragma once

#include <cstdint>

namespace tev::service {

extern int32_t memory_is_prepared;

void prepare_memory_once();

inline void prepare_memory() {
  if (__atomic_load_n(&memory_is_prepared, __ATOMIC_ACQUIRE) == 0) prepare_memory_once();
}

}  // namespace tev::service
