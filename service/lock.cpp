// SPDX-License-Identifier: BSD-3-Clause
// A spin lock that gives way: most critical sections of this layer last nanoseconds, and a holder that lost its
// processor gets it back because the waiters yield theirs.
#include "service/lock.h"

#include <immintrin.h>
#include <sched.h>

#include <atomic>

#include "service/library_search.h"

namespace {

constexpr int kAttemptsBeforeYield = 5000;

using word = std::atomic_ref<int32_t>;

// A checker would take the lock's plain reads for races; the tracing library tells it not to.
void notify_tracing_library() {
  constexpr int kSuppress = 1, kEverything = 255;
  tev::service::tracing_hook()(kSuppress, kEverything, nullptr, 0);
}

bool try_once(int32_t* lock) {
  // Looking first keeps the cache line shared among those who wait.
  if (word(*lock).load(std::memory_order_relaxed) != 0) return false;
  int32_t expected = 0;
  return word(*lock).compare_exchange_strong(expected, 1);
}

// After a first attempt that failed. Out of line: the free lock is the usual case and needs no registers saved.
[[gnu::noinline]] void wait_for(int32_t* lock) {
  for (int attempts = 1; attempts < kAttemptsBeforeYield; ++attempts) {
    _mm_pause();
    if (try_once(lock)) return;
  }
  do tev_serv_thread_yield();
  while (!try_once(lock));
}

}  // namespace

extern "C" {

int32_t tev_serv_trylock(int32_t* lock) { return try_once(lock) ? 1 : 0; }

void tev_serv_lock(int32_t* lock) {
  if (tev_serv_load_vigil() != 0) notify_tracing_library();
  if (!try_once(lock)) wait_for(lock);
}

void tev_serv_unlock(int32_t* lock) { word(*lock).store(0, std::memory_order_release); }

int64_t tev_serv_cmpxchg(int64_t* target, const int64_t* expected, const int64_t* desired) {
  int64_t before = *expected;
  std::atomic_ref<int64_t>(*target).compare_exchange_strong(before, *desired);
  return before;
}

void tev_serv_thread_yield(void) { sched_yield(); }

}  // extern "C"
