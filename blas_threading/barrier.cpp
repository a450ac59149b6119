// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/barrier.h"

#include "service/lock.h"

namespace tev::blas {
namespace {

// Short at first, because the steps between barriers are short and the team owns its cores.
void wait_until(const uint64_t& counter, uint64_t target) {
  for (int32_t turn = 0; __atomic_load_n(&counter, __ATOMIC_ACQUIRE) < target;) {
    if (turn < TEV_BARRIER_YIELD_MAX_CYCLES) {
      ++turn;
      __builtin_ia32_pause();
    } else {
      tev_serv_thread_yield();
    }
  }
}

}  // namespace
}  // namespace tev::blas

extern "C" void tev_barrier_wait(void* block, int64_t role, int64_t team) {
  if (team <= 1) return;
  auto& counters = *static_cast<tev::blas::barrier_block*>(block);
  // Nobody can raise the release before this thread has arrived, so it is that of the barrier before.
  const uint64_t target = __atomic_load_n(&counters.release, __ATOMIC_ACQUIRE) + static_cast<uint64_t>(team - 1);
  if (role != 0) {
    __atomic_fetch_add(&counters.arrivals, 1, __ATOMIC_ACQ_REL);
    tev::blas::wait_until(counters.release, target);
  } else {
    tev::blas::wait_until(counters.arrivals, target);
    __atomic_store_n(&counters.release, target, __ATOMIC_RELEASE);
  }
}
