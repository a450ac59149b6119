// SPDX-License-Identifier: BSD-3-Clause
// How much memory the manager holds: always per thread, in the threads' records; on demand also for the whole process
// with its peak.
#pragma once

#include "service/memory_registry.h"
#include "tev/service.h"

namespace tev::service {

struct mm_stat {
  int64_t bytes;
  int32_t blocks;
};

// Adds to what the record's thread holds.
void count_memory(mm_thread_record& record, int64_t bytes, int32_t blocks);

}  // namespace tev::service

extern "C" {

extern int32_t enable_global_stat;          // 1 while the peak is watched, else -1
extern tev::service::mm_stat current_stat;  // valid while it is watched
extern tev::service::mm_stat max_stat;      // current_stat when its bytes were most
extern int32_t mem_stat_lock;               // guards the two

}  // extern "C"
