// SPDX-License-Identifier: BSD-3-Clause
// The records that threads have with the memory manager (service/memory_thread.h), and the registry that finds them.
//
//   mm_book.directory[0]   1024 entries ──> records        a chunk is allocated when its first entry is needed and
//                    [1]   1024 entries ──> records        stays; so do records: one whose thread has ended waits in
//                    [2]   2048 entries ──> records        mm_book.without_thread for a new thread. There are as many
//                    ...                                   records as there were threads at the same time.
//
// Who may do what with a slot:
//   in_use 0   whoever holds the record's busy flag. The owner waits for the flag, walks skip a record that is busy.
//   in_use 1   the owner fills the slot; whoever has the buffer ends the use by storing 0, busy flag or not.
// So `in_use` and `aligned` are read and written atomically, the rest of a slot is not. `blocks` and `bytes` count what
// the thread obtained less what it released, so one thread's may be negative; the sum over all is what counts.
#pragma once

#include <cstddef>

#include "service/lock.h"
#include "tev/service.h"

namespace tev::service {

inline constexpr int kSlots = 5;
inline constexpr int kChunks = 54;
inline constexpr int64_t kFirstChunk = 1024;

struct alignas(64) mm_thread_record {
  void* block[kSlots];       // what the back end returned; null when the slot holds nothing
  void* aligned[kSlots];     // the address handed out
  int64_t size[kSlots];      // as requested
  int64_t capacity[kSlots];  // bytes of the block
  int64_t in_use[kSlots];    // 1 while handed out
  int32_t slots;             // slots that were ever filled; they may be empty again
  int32_t blocks;
  int64_t bytes;
  int32_t busy;            // a spin lock
  int32_t owned;           // 1 while it is a thread's
  mm_thread_record* next;  // in mm_book.without_thread
};
static_assert(offsetof(mm_thread_record, aligned) == 40 && offsetof(mm_thread_record, size) == 80 &&
              offsetof(mm_thread_record, capacity) == 120 && offsetof(mm_thread_record, in_use) == 160 &&
              offsetof(mm_thread_record, slots) == 200 && offsetof(mm_thread_record, blocks) == 204 &&
              offsetof(mm_thread_record, bytes) == 208 && offsetof(mm_thread_record, busy) == 216);

struct alignas(64) mm_entry {
  int32_t lock;  // taken by walks of the whole registry, in the first chunk
  mm_thread_record* record;
};
static_assert(sizeof(mm_entry) == 64);

struct mm_registry {
  int32_t lock;                      // taken by walks, before the entries' locks
  int32_t records_lock;              // guards what follows, but for readers of `registered` entries
  int64_t registered;                // entries in use; only grows
  mm_thread_record* without_thread;  // list of records
  mm_entry* directory[kChunks];      // chunk 0: 1024 entries; chunk k: entries 1024 * 2^(k-1) .. 1024 * 2^k - 1
  mm_thread_record nobody;           // counts for threads that have no record
};

}  // namespace tev::service

extern "C" tev::service::mm_registry mm_book;

namespace tev::service {

inline bool try_enter(mm_thread_record& record) { return __atomic_exchange_n(&record.busy, 1, __ATOMIC_ACQUIRE) == 0; }

inline void enter(mm_thread_record& record) {
  if (!try_enter(record)) tev_serv_lock(&record.busy);
}

inline void leave(mm_thread_record& record) { __atomic_store_n(&record.busy, 0, __ATOMIC_RELEASE); }

inline bool is_in_use(const mm_thread_record& record, int slot) {
  return __atomic_load_n(&record.in_use[slot], __ATOMIC_SEQ_CST) != 0;
}

struct slot_content {
  void* block;
  int64_t capacity;
};

// Takes the block out of a slot of a record that the caller has entered. The address goes, too, before the block can
// become another thread's.
inline slot_content empty_slot(mm_thread_record& record, int slot) {
  const slot_content content = {record.block[slot], record.capacity[slot]};
  __atomic_store_n(&record.aligned[slot], nullptr, __ATOMIC_RELAXED);
  record.block[slot] = nullptr;
  record.size[slot] = record.capacity[slot] = 0;
  return content;
}

// A record without a thread, if need be a new one; null when memory is short.
mm_thread_record* take_record();
void put_back(mm_thread_record& record);

// Every record there is has an index below record_count(). It may be read at any time, its slots as told above.
inline int64_t record_count() { return __atomic_load_n(&mm_book.registered, __ATOMIC_ACQUIRE); }
mm_thread_record& record_at(int64_t index);

template <class Function>
void for_each_record(Function&& function) {
  for (int64_t i = 0, count = record_count(); i < count; ++i) function(record_at(i));
}

// A walk of the whole registry, one at a time.
class registry_walk {
 public:
  registry_walk();
  ~registry_walk();
  registry_walk(const registry_walk&) = delete;
  registry_walk& operator=(const registry_walk&) = delete;

 private:
  mm_entry* entries_;  // of the first chunk, if there is one yet
};

}  // namespace tev::service
