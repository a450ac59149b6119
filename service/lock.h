// SPDX-License-Identifier: BSD-3-Clause
// The spin lock of the service layer (tev/service.h) for C++ scopes, and its primitives.
#pragma once

#include "tev/service.h"

extern "C" {

// Atomic: *target becomes *desired if it equals *expected. Returns the value before.
int64_t tev_serv_cmpxchg(int64_t* target, const int64_t* expected, const int64_t* desired);

void tev_serv_thread_yield(void);

}  // extern "C"

namespace tev::service {

class scoped_lock {
 public:
  explicit scoped_lock(int32_t& word) : word_(&word) { tev_serv_lock(word_); }
  ~scoped_lock() { tev_serv_unlock(word_); }
  scoped_lock(const scoped_lock&) = delete;
  scoped_lock& operator=(const scoped_lock&) = delete;

 private:
  int32_t* word_;
};

}  // namespace tev::service
