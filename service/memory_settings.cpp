// SPDX-License-Identifier: BSD-3-Clause
// Reading the two variables, and switching the keeping of buffers off before they are read.
#include "service/memory_settings.h"

#include <cstdlib>

#include "service/lock.h"
#include "service/settings.h"

using namespace tev::service;

int32_t disable_fast_mm = -1;
int32_t env_has_been_cached = -1;
uint64_t mm_fast_memory_limit = kNoLimit;
int32_t tev_fast_mm_lock = 0;

namespace {

bool settings_are_read() { return __atomic_load_n(&env_has_been_cached, __ATOMIC_ACQUIRE) == 1; }

int32_t disabled_by_variable() {
  return setting_value<setting::TEV_DISABLE_FAST_MM>().length > 0 ? 1 : 0;  // whatever the value is, "0" included
}

uint64_t budget_of_variable() {
  const setting_value<setting::TEV_FAST_MEMORY_LIMIT> value;
  char* end;
  const int64_t megabytes = strtoll(value.text, &end, 10);
  return end == value.text ? kNoLimit : budget_in_bytes(megabytes);
}

}  // namespace

uint64_t tev::service::budget_in_bytes(int64_t megabytes) {
  constexpr int64_t kLargest = INT64_MAX >> 20;
  return megabytes < 0 || megabytes > kLargest ? kNoLimit : static_cast<uint64_t>(megabytes) << 20;
}

void tev::service::read_memory_settings() {
  if (settings_are_read()) return;
  const scoped_lock lock(tev_fast_mm_lock);
  if (settings_are_read()) return;
  if (disable_fast_mm == -1) __atomic_store_n(&disable_fast_mm, disabled_by_variable(), __ATOMIC_RELAXED);
  __atomic_store_n(&mm_fast_memory_limit, budget_of_variable(), __ATOMIC_RELAXED);
  __atomic_store_n(&env_has_been_cached, 1, __ATOMIC_RELEASE);
}

extern "C" {

int32_t tev_serv_disable_fast_mm(void) {
  const scoped_lock lock(tev_fast_mm_lock);
  if (settings_are_read()) return 0;
  __atomic_store_n(&disable_fast_mm, 1, __ATOMIC_RELAXED);
  return 1;
}

int32_t tev_serv_get_fast_mm_status(void) {
  read_memory_settings();
  return __atomic_load_n(&disable_fast_mm, __ATOMIC_RELAXED);
}

}  // extern "C"
