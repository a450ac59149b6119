// SPDX-License-Identifier: BSD-3-Clause
#include "service/memory_init.h"

#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/memory_backend.h"
#include "service/memory_high_bandwidth.h"
#include "service/memory_settings.h"

int32_t tev::service::memory_is_prepared = 0;

void tev::service::prepare_memory_once() {
  const scoped_lock lock(memory_start_lock);
  if (memory_is_prepared == 1) return;
  read_memory_settings();
  load_high_bandwidth_library();
  choose_back_end();
  __atomic_store_n(&memory_is_prepared, 1, __ATOMIC_RELEASE);
}
