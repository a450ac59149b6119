// SPDX-License-Identifier: BSD-3-Clause
// Memory beside the processor, on many-core processors that have it: from the optional library libhbwkit.so, within the
// budget mm_fast_memory_limit.
#pragma once

#include "tev/service.h"

extern "C" {

extern int32_t mm_fast_memory_initialized;        // 1 when the library is usable; fixed by the initialisation
extern int32_t mm_fast_memory_update_limit_lock;  // guards changes of mm_fast_memory_limit
extern int32_t tev_set_memory_limit_lock;         // one tev_serv_set_memory_limit at a time

// Host programs register their buffers here; this memory needs no registration.
void tev_serv_zel_register_memory(void);

}  // extern "C"

namespace tev::service {

// Called once, by the initialisation.
void load_high_bandwidth_library();

struct high_bandwidth_block {
  void* address;     // null when there is no such memory, or the budget or the memory does not suffice
  uint64_t charged;  // bytes that the budget has back when the block is freed; 0 when it was taken without a limit
};

high_bandwidth_block allocate_high_bandwidth(uint64_t bytes);
void free_high_bandwidth(high_bandwidth_block block);

}  // namespace tev::service
