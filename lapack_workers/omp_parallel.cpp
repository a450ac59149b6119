// SPDX-License-Identifier: BSD-3-Clause
// The calling thread's own thread count is 1 between enter and exit; the one before waits in a slot of the thread. A
// thread that leaves without having entered gets "not set": 0 from an empty slot, -1 when nobody ever entered.
#include "lapack_workers/team.h"
#include "service/cleanup.h"
#include "service/thread_key.h"
#include "tev/service.h"

namespace {

tev::service::thread_key counts_before = {.at_thread_exit = nullptr,
                                          .register_cleanup = tev::service::register_own_core_cleanup};

int32_t count_before() {
  if (__atomic_load_n(&counts_before.created, __ATOMIC_ACQUIRE) == 0) return -1;
  return static_cast<int32_t>(reinterpret_cast<intptr_t>(pthread_getspecific(counts_before.key)));
}

}  // namespace

extern "C" {

void tev_lapack_omp_parallel_enter(void) {
  const int32_t before = tev_serv_set_num_threads_local(1);
  if (tev::service::ready(counts_before))
    pthread_setspecific(counts_before.key, reinterpret_cast<void*>(static_cast<intptr_t>(before)));
}

void tev_lapack_omp_parallel_exit(void) { tev_serv_set_num_threads_local(count_before()); }

}  // extern "C"
