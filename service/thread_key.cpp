// SPDX-License-Identifier: BSD-3-Clause
#include "service/thread_key.h"

#include <atomic>

#include "service/layer_locks.h"
#include "service/lock.h"

namespace tev::service {

bool ready(thread_key& record) {
  const std::atomic_ref<int32_t> created(record.created);
  if (created.load(std::memory_order_acquire) != 0) return true;
  const scoped_lock guard(thread_key_lock);
  if (created.load(std::memory_order_relaxed) != 0) return true;
  if (pthread_key_create(&record.key, record.at_thread_exit) != 0) return false;
  record.register_cleanup(tev_tls_destroy, &record);
  created.store(1, std::memory_order_release);
  return true;
}

}  // namespace tev::service

extern "C" void tev_tls_destroy(void* record) {
  auto& key = *static_cast<tev::service::thread_key*>(record);
  const tev::service::scoped_lock guard(tev::service::thread_key_lock);
  if (std::atomic_ref<int32_t>(key.created).exchange(0) != 0) pthread_key_delete(key.key);
}
