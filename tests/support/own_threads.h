// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "tev/service.h"

namespace tev::test {

// The calling thread's number of threads, as long as this lives.
struct own_threads {
  explicit own_threads(int32_t n) : before(tev_serv_set_num_threads_local(n)) {}
  ~own_threads() { tev_serv_set_num_threads_local(before); }
  int32_t before;
};

}  // namespace tev::test
