// SPDX-License-Identifier: BSD-3-Clause
// Records come and go; chunks of the registry only come.
#include "service/memory_registry.h"

#include <bit>
#include <cstdlib>
#include <new>

using namespace tev::service;

mm_registry mm_book = {};

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

}  // namespace

mm_thread_record* tev::service::take_record() {
  if (mm_thread_record* const waiting = take_waiting_record()) return waiting;
  mm_thread_record* const record = allocate_array<mm_thread_record>(1);
  if (record == nullptr || enter_in_book(record)) return record;
  free(record);
  return nullptr;
}

void tev::service::put_back(mm_thread_record& record) {
  const scoped_lock lock(mm_book.records_lock);
  record.next = mm_book.without_thread;
  mm_book.without_thread = &record;
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
