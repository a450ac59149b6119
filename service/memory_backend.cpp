// SPDX-License-Identifier: BSD-3-Clause
// The internal functions and the choice of the back end.
#include "service/memory_backend.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "service/memory_high_bandwidth.h"

using namespace tev::service;

void* (*i_malloc)(size_t size) = malloc;
void* (*i_calloc)(size_t count, size_t size) = calloc;
void* (*i_realloc)(void* block, size_t size) = realloc;
void (*i_free)(void* block) = free;

void* (*sys_alloc)(size_t size) = mm_internal_malloc;
void* (*sys_realloc)(void* block, size_t size) = mm_internal_realloc;
void (*sys_free)(void* block) = mm_internal_free;
void* (*sys_allocate)(size_t size) = mm_internal_malloc;
void (*sys_deallocate)(void* block) = mm_internal_free;

namespace {

constexpr size_t kHeader = sizeof(mm_block_header);
constexpr size_t kLargest = SIZE_MAX - kHeader;

mm_block_header* header_of(void* address) { return static_cast<mm_block_header*>(address) - 1; }

void* with_header(void* block, uint64_t total, int32_t high_bandwidth = 0, int32_t without_limit = 0) {
  auto* const header = static_cast<mm_block_header*>(block);
  *header = {
      .block = block, .high_bandwidth = high_bandwidth, .without_limit = without_limit, .total = total, .page = 4096};
  return header + 1;
}

bool is_high_bandwidth(const mm_block_header& header) {
  return header.high_bandwidth == 1 && mm_fast_memory_initialized == 1;
}

}  // namespace

void tev::service::choose_back_end() {
  if (i_malloc == malloc && i_calloc == calloc && i_realloc == realloc && i_free == free) return;
  sys_alloc = sys_allocate = i_malloc;
  sys_realloc = i_realloc;
  sys_free = sys_deallocate = i_free;
}

extern "C" {

void* mm_internal_malloc(size_t size) {
  if (size > kLargest) return nullptr;
  const uint64_t total = size + kHeader;
  const high_bandwidth_block fast = allocate_high_bandwidth(total);
  if (fast.address != nullptr) return with_header(fast.address, total, 1, fast.charged == 0 ? 1 : 0);
  void* const block = malloc(total);
  return block == nullptr ? nullptr : with_header(block, total);
}

void mm_internal_free(void* address) {
  if (address == nullptr) return;
  const mm_block_header header = *header_of(address);
  if (is_high_bandwidth(header))
    return free_high_bandwidth({header.block, header.without_limit == 1 ? 0 : header.total});
  free(header.block);
}

void* mm_internal_realloc(void* address, size_t size) {
  if (address == nullptr) return mm_internal_malloc(size);
  if (size > kLargest) return nullptr;
  const mm_block_header header = *header_of(address);
  if (!is_high_bandwidth(header)) {
    void* const block = realloc(header.block, size + kHeader);
    return block == nullptr ? nullptr : with_header(block, size + kHeader);
  }
  void* const moved = mm_internal_malloc(size);
  if (moved == nullptr) return nullptr;
  memcpy(moved, address, std::min<size_t>(size, header.total - kHeader));
  mm_internal_free(address);
  return moved;
}

}  // extern "C"
