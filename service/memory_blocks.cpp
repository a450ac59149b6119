// SPDX-License-Identifier: BSD-3-Clause
// tev_serv_malloc and its companions.
#include "service/memory_blocks.h"

#include <algorithm>
#include <cstring>

#include "service/memory_backend.h"
#include "service/memory_init.h"
#include "service/memory_thread.h"

using namespace tev::service;

namespace {

constexpr int64_t kPrefix = sizeof(mm_block_prefix);

uintptr_t address(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

// The address to return from a block that begins at `first`.
uintptr_t aligned_behind(uintptr_t first, int64_t alignment) {
  return (first + alignment + kPrefix) & ~(static_cast<uintptr_t>(alignment) - 1);
}

char* aligned_in(void* block, int64_t alignment) {
  return static_cast<char*>(block) + (aligned_behind(address(block), alignment) - address(block));
}

// The bytes to ask of the back end; 0 when there is no such block.
int64_t total_of(int64_t size, int64_t alignment) {
  int64_t total;
  if (size < 1 || alignment > kLargestAlignment || __builtin_add_overflow(size, alignment + kPrefix, &total)) return 0;
  return total;
}

int64_t size_of(const mm_block_prefix& prefix) { return prefix.total - prefix.alignment - kPrefix; }

void* write_prefix(char* aligned, void* block, int64_t total, int64_t alignment) {
  reinterpret_cast<mm_block_prefix*>(aligned)[-1] = {
      .block = block, .total = total, .account = 0, .alignment = static_cast<uint32_t>(alignment)};
  return aligned;
}

// The prefix of a block of ours; null for what cannot be one, so that a stray pointer is left alone.
const mm_block_prefix* prefix_of(void* pointer) {
  if (pointer == nullptr || address(pointer) % kLeastAlignment != 0) return nullptr;
  const mm_block_prefix* const prefix = static_cast<mm_block_prefix*>(pointer) - 1;
  const int64_t alignment = prefix->alignment;
  const bool ours = prefix->account == 0 && effective_alignment(alignment) == alignment &&
                    prefix->total > alignment + kPrefix &&
                    aligned_behind(address(prefix->block), alignment) == address(pointer);
  return ours ? prefix : nullptr;
}

}  // namespace

extern "C" {

void* tev_serv_malloc(int64_t size, int64_t alignment) {
  alignment = effective_alignment(alignment);
  const int64_t total = total_of(size, alignment);
  if (total == 0) return nullptr;
  prepare_memory();
  void* const block = sys_alloc(static_cast<size_t>(total));
  if (block == nullptr) return nullptr;
  count_memory(total, 1);
  return write_prefix(aligned_in(block, alignment), block, total, alignment);
}

void tev_serv_free(void* block) {
  const mm_block_prefix* const prefix = prefix_of(block);
  if (prefix == nullptr) return;
  count_memory(-prefix->total, -1);
  sys_free(prefix->block);
}

void* tev_serv_calloc(int64_t count, int64_t size) {
  int64_t bytes;
  if (count < 1 || __builtin_mul_overflow(count, size, &bytes)) return nullptr;
  void* const block = tev_serv_malloc(bytes, kLeastAlignment);
  if (block != nullptr) memset(block, 0, static_cast<size_t>(bytes));
  return block;
}

void* tev_serv_realloc(void* block, int64_t size) {
  if (block == nullptr) return tev_serv_malloc(size, kLeastAlignment);
  const mm_block_prefix* const prefix = prefix_of(block);
  if (prefix == nullptr) return nullptr;
  const mm_block_prefix old = *prefix;
  const int64_t total = total_of(size, old.alignment);
  if (total == 0) return nullptr;
  const ptrdiff_t offset = static_cast<char*>(block) - static_cast<char*>(old.block);
  void* const moved = sys_realloc(old.block, static_cast<size_t>(total));
  if (moved == nullptr) return nullptr;
  count_memory(total - old.total, 0);
  char* const aligned = aligned_in(moved, old.alignment);
  memmove(aligned, static_cast<char*>(moved) + offset, static_cast<size_t>(std::min(size, size_of(old))));
  return write_prefix(aligned, moved, total, old.alignment);
}

}  // extern "C"
