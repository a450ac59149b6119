// SPDX-License-Identifier: BSD-3-Clause
// What the memory manager takes from the environment, read once: TEV_DISABLE_FAST_MM and TEV_FAST_MEMORY_LIMIT.
#pragma once

#include "tev/service.h"

extern "C" {

extern int32_t disable_fast_mm;        // 1: released buffers are not kept; 0: they are; -1 until decided
extern int32_t env_has_been_cached;    // 1 once the variables were read, -1 before
extern uint64_t mm_fast_memory_limit;  // bytes of high-bandwidth memory still allowed, see below
extern int32_t tev_fast_mm_lock;       // guards the reading

}  // extern "C"

namespace tev::service {

// Values of mm_fast_memory_limit that are no number of bytes. Allocations never use a budget up, so zero is a decision.
inline constexpr uint64_t kNoLimit = UINT64_MAX;
inline constexpr uint64_t kNoHighBandwidth = 0;

// kNoLimit for negative numbers, and for more than any machine has.
uint64_t budget_in_bytes(int64_t megabytes);

void read_memory_settings();

}  // namespace tev::service
