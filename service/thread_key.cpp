// SPDX-License-Identifier: BSD-3-Clause
#include "service/thread_key.h"

#include <atomic>

#include "service/lock.h"

namespace tev::service {

namespace {

enum class outcome { kExists, kCreated, kFailed };

outcome create(thread_key& record) {
  const scoped_lock guard(record.lock);
  const std::atomic_ref<int32_t> created(record.created);
  if (created.load(std::memory_order_relaxed) != 0) return outcome::kExists;
  if (pthread_key_create(&record.key, record.at_thread_exit) != 0) return outcome::kFailed;
  created.store(1, std::memory_order_release);
  return outcome::kCreated;
}

}  // namespace

bool ready(thread_key& record) {
  if (std::atomic_ref<int32_t>(record.created).load(std::memory_order_acquire) != 0) return true;
  const outcome result = create(record);
  // Outside the lock: a full registry may end the process, and exit handlers may come back here.
  if (result == outcome::kCreated && record.register_cleanup) record.register_cleanup(tev_tls_destroy, &record);
  return result != outcome::kFailed;
}

}  // namespace tev::service

extern "C" void tev_tls_destroy(void* record) {
  auto& key = *static_cast<tev::service::thread_key*>(record);
  const tev::service::scoped_lock guard(key.lock);
  if (std::atomic_ref<int32_t>(key.created).exchange(0) != 0) pthread_key_delete(key.key);
}
