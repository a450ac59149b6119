// SPDX-License-Identifier: BSD-3-Clause
// The library's memory, of which one request fails. Install it in a child process with TEV_DISABLE_FAST_MM=1, so that
// every request comes through.
#pragma once

#include "tests/support/prelude.h"
#include "tev/service.h"

namespace tev::test {

struct scarce_memory {
  static inline std::atomic<int> requests, failing;  // the request that fails, from 1; 0: none

  static void install() {
    i_malloc = [](size_t size) { return ++requests == failing ? nullptr : std::malloc(size); };
    i_free = std::free;
    tev_serv_deallocate(tev_serv_allocate(64, 64));  // the manager's own blocks
  }
  static void fail(int request) { failing = request, requests = 0; }

  // run() with the first, the second ... request failing, until it needs no more of them or `most` have failed. How
  // many did.
  template <class Run>
  static int fail_each(int most, const Run& run) {
    int n = 0;
    do {
      fail(++n);
      run();
    } while (requests >= n && n < most);
    fail(0);
    return n - (requests < n);
  }
};

}  // namespace tev::test
