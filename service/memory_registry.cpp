// SPDX-License-Identifier: BSD-3-Clause
// Records come and go with threads; chunks of the registry only come.
#include "service/memory_registry.h"

#include <bit>
#include <cstdlib>
#include <new>

#include "service/cleanup.h"
#include "service/memory_backend.h"
#include "service/memory_statistics.h"

using namespace tev::service;

mm_registry mm_book = {};

constinit thread_local mm_thread tev::service::this_thread = {nullptr, false};
thread_key tev::service::mm_key = {.at_thread_exit = mm_cleanup_thread_cbk,
                                   .register_cleanup = register_own_core_cleanup};

namespace {

struct place {
  int chunk;
  int64_t entry;
};

place place_of(int64_t index) {
  const int chunk = 64 - std::countl_zero(static_cast<uint64_t>(index / kFirstChunk));
  return {chunk, chunk == 0 ? index : index - (kFirstChunk << (chunk - 1))};
}

int64_t entries_of(int chunk) { return chunk == 0 ? kFirstChunk : kFirstChunk << (chunk - 1); }

// Zeroed; null when memory is short.
template <class T>
T* allocate_array(int64_t count) {
  void* const memory = aligned_alloc(alignof(T), static_cast<size_t>(count) * sizeof(T));
  return memory == nullptr ? nullptr : new (memory) T[static_cast<size_t>(count)]();
}

mm_thread_record* take_waiting_record() {
  const scoped_lock lock(mm_book.records_lock);
  mm_thread_record* const record = mm_book.without_thread;
  if (record != nullptr) mm_book.without_thread = record->next;
  return record;
}

bool enter_in_book(mm_thread_record* record) {
  const scoped_lock lock(mm_book.records_lock);
  const auto [chunk, entry] = place_of(mm_book.registered);
  if (chunk >= kChunks) return false;
  mm_entry*& entries = mm_book.directory[chunk];
  if (entries == nullptr) entries = allocate_array<mm_entry>(entries_of(chunk));
  if (entries == nullptr) return false;
  entries[entry].record = record;
  __atomic_store_n(&mm_book.registered, mm_book.registered + 1, __ATOMIC_RELEASE);
  return true;
}

mm_thread_record* take_record() {
  if (mm_thread_record* const waiting = take_waiting_record()) return waiting;
  mm_thread_record* const record = allocate_array<mm_thread_record>(1);
  if (record == nullptr || enter_in_book(record)) return record;
  free(record);
  return nullptr;
}

// A buffer of the thread may still be in use elsewhere. Either its user finds the record without an owner and releases
// the buffer, or the buffer is found unused here: hence the total order of these stores and loads.
void give_record_back(mm_thread_record& record) {
  __atomic_store_n(&record.owned, 0, __ATOMIC_SEQ_CST);
  enter(record);
  release_unused(record);
  const scoped_lock lock(mm_book.records_lock);
  record.next = mm_book.without_thread;
  mm_book.without_thread = &record;
}

// A program may unload the library while its threads go on: their ends must not call into it.
__attribute__((destructor)) void delete_key() { tev_tls_destroy(&mm_key); }

}  // namespace

mm_thread_record* tev::service::new_thread_record() {
  if (this_thread.ended || !ready(mm_key)) return nullptr;
  mm_thread_record* const record = take_record();
  if (record == nullptr) return nullptr;
  __atomic_store_n(&record->owned, 1, __ATOMIC_SEQ_CST);
  if (pthread_setspecific(mm_key.key, record) != 0) {
    give_record_back(*record);
    return nullptr;
  }
  return this_thread.record = record;
}

void tev::service::forget_other_threads() {
  mm_book.without_thread = nullptr;
  for_each_record([](mm_thread_record& record) {
    if (&record == this_thread.record) return;
    record.owned = 0;
    record.next = mm_book.without_thread;
    mm_book.without_thread = &record;
    for (int i = 0; i < kSlots; ++i) {
      if (record.block[i] == nullptr) record.in_use[i] = 0;  // its thread was about to fill it
    }
  });
}

void tev::service::release_unused(mm_thread_record& record) {
  void* released[kSlots];
  int32_t count = 0;
  int64_t bytes = 0;
  for (int i = 0; i < kSlots; ++i) {
    if (is_in_use(record, i) || record.block[i] == nullptr) continue;
    const slot_content content = empty_slot(record, i);
    released[count++] = content.block;
    bytes += content.capacity;
  }
  leave(record);
  if (count == 0) return;
  count_memory(record, -bytes, -count);
  for (int i = 0; i < count; ++i) sys_deallocate(released[i]);
}

mm_thread_record& tev::service::record_at(int64_t index) {
  const auto [chunk, entry] = place_of(index);
  return *mm_book.directory[chunk][entry].record;
}

tev::service::registry_walk::registry_walk() : entries_(nullptr) {
  tev_serv_lock(&mm_book.lock);
  if (record_count() == 0) return;
  entries_ = mm_book.directory[0];
  for (int64_t i = 0; i < kFirstChunk; ++i) tev_serv_lock(&entries_[i].lock);
}

tev::service::registry_walk::~registry_walk() {
  for (int64_t i = 0; entries_ != nullptr && i < kFirstChunk; ++i) tev_serv_unlock(&entries_[i].lock);
  tev_serv_unlock(&mm_book.lock);
}

extern "C" void mm_cleanup_thread_cbk(void* record) {
  this_thread = {nullptr, true};
  give_record_back(*static_cast<mm_thread_record*>(record));
}
