// SPDX-License-Identifier: BSD-3-Clause
// Where blocks come from: the program's own functions when it replaced any of i_malloc, i_calloc, i_realloc, i_free
// before the first request, else the internal functions. Those put a header before the block:
//
//   underlying allocation                address returned
//   |                                    |
//   | block | kind | limit | total | 4096 | size bytes
//   |  8      4      4     8       8     |
#pragma once

#include <cstddef>

#include "tev/service.h"

namespace tev::service {

struct mm_block_header {
  void* block;             // this header's own address
  int32_t high_bandwidth;  // 1: from the high-bandwidth library, 0: from the C library
  int32_t without_limit;   // 1: taken when the high-bandwidth memory had no limit, so never charged to the budget
  uint64_t total;          // bytes of the underlying allocation
  uint64_t page;           // 4096
};
static_assert(sizeof(mm_block_header) == 32 && offsetof(mm_block_header, high_bandwidth) == 8 &&
              offsetof(mm_block_header, without_limit) == 12 && offsetof(mm_block_header, total) == 16 &&
              offsetof(mm_block_header, page) == 24);

// Called once, by the initialisation.
void choose_back_end();

}  // namespace tev::service

extern "C" {

extern void* (*sys_alloc)(size_t size);  // for single blocks
extern void* (*sys_realloc)(void* block, size_t size);
extern void (*sys_free)(void* block);
extern void* (*sys_allocate)(size_t size);  // for the buffers that threads keep
extern void (*sys_deallocate)(void* block);

void* mm_internal_malloc(size_t size);
void* mm_internal_realloc(void* address, size_t size);
void mm_internal_free(void* address);

}  // extern "C"
