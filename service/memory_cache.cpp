// SPDX-License-Identifier: BSD-3-Clause
// Buffers that stay with their thread after they are released: five slots per thread (service/memory_registry.h has
// the record and says who may touch it). The record is entered to choose a slot only; system calls and the program's
// allocators run outside, with the chosen slot marked as in use.
#include "service/memory_backend.h"
#include "service/memory_blocks.h"
#include "service/memory_init.h"
#include "service/memory_settings.h"
#include "service/memory_statistics.h"
#include "service/memory_thread.h"

using namespace tev::service;

namespace {

constexpr int64_t kLargestKept = 134217728;

bool buffers_are_kept() { return __atomic_load_n(&disable_fast_mm, __ATOMIC_RELAXED) != 1; }

// The slot for a block of `need` bytes, or -1: an exact fit, else the tightest larger block, else a slot never filled,
// else the first smaller block, to be replaced. A slot that was emptied is a block of no bytes.
int choose_slot(mm_thread_record& record, int64_t need) {
  int larger = -1, smaller = -1;
  for (int i = 0; i < record.slots; ++i) {
    if (is_in_use(record, i)) continue;
    const int64_t capacity = record.capacity[i];
    if (capacity == need) return i;
    if (capacity < need) {
      if (smaller < 0) smaller = i;
    } else if (larger < 0 || capacity < record.capacity[larger]) {
      larger = i;
    }
  }
  if (larger >= 0) return larger;
  return record.slots < kSlots ? record.slots++ : smaller;
}

void* hand_out(mm_thread_record& record, int slot, int64_t size, int64_t alignment) {
  char* const block = static_cast<char*>(record.block[slot]);
  char* const aligned = block + (-reinterpret_cast<uintptr_t>(block) & (static_cast<uintptr_t>(alignment) - 1));
  record.size[slot] = size;
  __atomic_store_n(&record.aligned[slot], aligned, __ATOMIC_RELAXED);
  return aligned;
}

// Puts a new block into a slot that is marked as in use and was emptied of the block `replaced`.
void* refill(mm_thread_record& record, int slot, int64_t size, int64_t alignment, slot_content replaced) {
  if (replaced.block != nullptr) {
    count_memory(record, -replaced.capacity, -1);
    sys_deallocate(replaced.block);
  }
  const int64_t need = size + alignment;
  void* const block = sys_allocate(static_cast<size_t>(need));
  if (block == nullptr) {
    __atomic_store_n(&record.in_use[slot], 0, __ATOMIC_RELEASE);
    return nullptr;
  }
  count_memory(record, need, 1);
  record.block[slot] = block;
  record.capacity[slot] = need;
  return hand_out(record, slot, size, alignment);
}

int slot_that_handed_out(const mm_thread_record& record, const void* buffer) {
  for (int i = 0; i < kSlots; ++i) {
    if (__atomic_load_n(&record.aligned[i], __ATOMIC_RELAXED) == buffer) return i;
  }
  return -1;
}

// The user of another thread's buffer has it to itself, so the slot that has its address is the one, and stays so until
// the use ends here. Without an owner no one is left to use the buffer again: it goes back to the system.
bool end_use_elsewhere(const void* buffer) {
  for (int64_t i = 0, count = record_count(); i < count; ++i) {
    mm_thread_record& record = record_at(i);
    const int slot = slot_that_handed_out(record, buffer);
    if (slot < 0) continue;
    __atomic_store_n(&record.in_use[slot], 0, __ATOMIC_SEQ_CST);
    if (__atomic_load_n(&record.owned, __ATOMIC_SEQ_CST) == 1) return true;
    enter(record);
    release_unused(record);
    return true;
  }
  return false;
}

}  // namespace

extern "C" {

void* tev_serv_allocate(int64_t size, int64_t alignment) {
  prepare_memory();
  if (size < 1 || size > kLargestKept || !buffers_are_kept()) return tev_serv_malloc(size, alignment);
  alignment = effective_alignment(alignment);
  mm_thread_record* const record = thread_record();
  if (record == nullptr || alignment > kLargestAlignment) return tev_serv_malloc(size, alignment);
  const int64_t need = size + alignment;
  enter(*record);
  const int slot = choose_slot(*record, need);
  if (slot < 0) {
    leave(*record);
    return tev_serv_malloc(size, alignment);
  }
  __atomic_store_n(&record->in_use[slot], 1, __ATOMIC_RELAXED);
  if (record->capacity[slot] >= need) {
    leave(*record);
    return hand_out(*record, slot, size, alignment);
  }
  const slot_content replaced = empty_slot(*record, slot);
  leave(*record);
  return refill(*record, slot, size, alignment, replaced);
}

void tev_serv_deallocate(void* buffer) {
  if (buffer == nullptr) return;
  mm_thread_record* const own = this_thread.record;
  const int slot = own != nullptr ? slot_that_handed_out(*own, buffer) : -1;
  if (slot >= 0) {
    __atomic_store_n(&own->in_use[slot], 0, __ATOMIC_RELEASE);
  } else if (!buffers_are_kept() || !end_use_elsewhere(buffer)) {
    tev_serv_free(buffer);
  }
}

void tev_serv_free_buffers(void) {
  const registry_walk walk;
  for_each_record([](mm_thread_record& record) {
    if (try_enter(record)) release_unused(record);
  });
}

void tev_serv_thread_free_buffers(void) {
  mm_thread_record* const record = this_thread.record;
  if (record == nullptr) return;
  enter(*record);
  release_unused(*record);
}

}  // extern "C"
