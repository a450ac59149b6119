// SPDX-License-Identifier: BSD-3-Clause
// Starting the memory manager, and carrying it over a fork. Around a fork every lock and every thread's record is held,
// so that the child gets them in order; in the child the records of the threads that did not come along are up for new
// threads. The lock of the start is the exception: it is held while a library is loaded, for long and with foreign
// code, and what it guards can begin again.
#include "service/memory_init.h"

#include <pthread.h>

#include "service/lock.h"
#include "service/memory_backend.h"
#include "service/memory_high_bandwidth.h"
#include "service/memory_registry.h"
#include "service/memory_settings.h"
#include "service/memory_statistics.h"

int32_t tev::service::memory_is_prepared = 0;

namespace {

using namespace tev::service;

int32_t prepare_lock;

// In the order in which threads take them. Whoever has entered a record waits for none of them.
int32_t* const locks[] = {&mm_book.lock,     &mm_book.records_lock,      &mm_key.lock,
                          &tev_fast_mm_lock, &tev_set_memory_limit_lock, &mm_fast_memory_update_limit_lock,
                          &mem_stat_lock};

// Not tev_serv_lock: its first call loads the tracing library, and a fork must not.
void hold(int32_t& lock) {
  while (tev_serv_trylock(&lock) == 0) tev_serv_thread_yield();
}

void before_fork() {
  for (int32_t* lock : locks) hold(*lock);
  for_each_record([](mm_thread_record& record) { hold(record.busy); });
}

void after_fork_in_parent() {
  for_each_record([](mm_thread_record& record) { leave(record); });
  for (int32_t* lock : locks) tev_serv_unlock(lock);
}

void after_fork_in_child() {
  forget_other_threads();
  tev_serv_unlock(&prepare_lock);
  after_fork_in_parent();
}

// At load time: a fork may fall into the first call of any other thread.
__attribute__((constructor)) void install_fork_handlers() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

void tev::service::prepare_memory_once() {
  const scoped_lock lock(prepare_lock);
  if (memory_is_prepared == 1) return;
  read_memory_settings();
  load_high_bandwidth_library();
  choose_back_end();
  __atomic_store_n(&memory_is_prepared, 1, __ATOMIC_RELEASE);
}
