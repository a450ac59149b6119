// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/team/barrier.h"

#include "blas_threading/team/waiting.h"

extern "C" void tev_barrier_wait(void* block, int64_t role, int64_t team) {
  if (team <= 1) return;
  auto& counters = *static_cast<tev::blas::barrier_block*>(block);
  // Nobody can raise the release before this thread has arrived, so it is that of the barrier before.
  const uint64_t target = __atomic_load_n(&counters.release, __ATOMIC_ACQUIRE) + static_cast<uint64_t>(team - 1);
  // Short at first, because the steps between barriers are short and the team owns its cores.
  const auto wait_for = [target](const uint64_t& counter) {
    tev::blas::wait_until([&] { return __atomic_load_n(&counter, __ATOMIC_ACQUIRE) >= target; },
                          tev::blas::TEV_BARRIER_YIELD_MAX_CYCLES);
  };
  if (role != 0) {
    __atomic_fetch_add(&counters.arrivals, 1, __ATOMIC_ACQ_REL);
    wait_for(counters.release);
  } else {
    wait_for(counters.arrivals);
    __atomic_store_n(&counters.release, target, __ATOMIC_RELEASE);
  }
}
