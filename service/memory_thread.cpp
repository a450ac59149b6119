// SPDX-License-Identifier: BSD-3-Clause
// Records of threads, from their first request to their end or to a fork.
#include "service/memory_thread.h"

#include "service/cleanup.h"
#include "service/memory_backend.h"
#include "service/memory_statistics.h"

using namespace tev::service;

constinit thread_local mm_thread tev::service::this_thread = {nullptr, false};
thread_key tev::service::mm_key = {.at_thread_exit = mm_cleanup_thread_cbk,
                                   .register_cleanup = register_own_core_cleanup};

namespace {

// A buffer of the thread may still be in use elsewhere. Either its user finds the record without an owner and releases
// the buffer, or the buffer is found unused here: hence the total order of these stores and loads.
void give_record_back(mm_thread_record& record) {
  __atomic_store_n(&record.owned, 0, __ATOMIC_SEQ_CST);
  enter(record);
  release_unused(record);
  put_back(record);
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

void tev::service::count_memory(int64_t bytes, int32_t blocks) {
  mm_thread_record* const record = thread_record();
  count_memory(record != nullptr ? *record : mm_book.nobody, bytes, blocks);
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

extern "C" void mm_cleanup_thread_cbk(void* record) {
  this_thread = {nullptr, true};
  give_record_back(*static_cast<mm_thread_record*>(record));
}
