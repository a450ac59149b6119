// SPDX-License-Identifier: BSD-3-Clause
// Verbose mode: decided by TEV_VERBOSE when it is first asked for, then changed only by the program.
#include <atomic>
#include <cstdlib>

#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/messages.h"
#include "service/settings.h"

namespace {

constexpr int32_t kUndecided = -1;

constinit int32_t tev_verbose_val = kUndecided;  // then 0 or 1; read with an atomic load

std::atomic_ref<int32_t> flag() { return std::atomic_ref<int32_t>(tev_verbose_val); }

// The whole value is a number as C writes it, and that number is 1.
int32_t read_setting() {
  const tev::service::setting_value<tev::service::setting::TEV_VERBOSE> value;
  char* end;
  const long number = std::strtol(value.text, &end, 0);
  return end == value.text + value.length && number == 1 ? 1 : 0;
}

}  // namespace

extern "C" int32_t* tev_serv_verbose_mode() {
  if (flag().load(std::memory_order_relaxed) == kUndecided) {
    const int32_t setting = read_setting();
    const tev::service::scoped_lock guard(tev::service::verbose_lock);
    if (flag().load(std::memory_order_relaxed) == kUndecided) flag().store(setting, std::memory_order_relaxed);
  }
  return &tev_verbose_val;
}

extern "C" int32_t tev_serv_verbose(int32_t mode) {
  if (mode != 0 && mode != 1) return -1;
  tev_serv_verbose_mode();
  if (flag().load(std::memory_order_relaxed) != mode) {
    const tev::service::scoped_lock guard(tev::service::verbose_lock);
    flag().store(mode, std::memory_order_relaxed);
  }
  return flag().load(std::memory_order_relaxed);
}
