// SPDX-License-Identifier: BSD-3-Clause
// Threads that race: each calls function(0), function(1), ... when all are there.
#pragma once

#include "tests/support/prelude.h"

namespace tev::test {

template <class Function>
void at_once(int count, Function&& function) {
  std::atomic<int> missing = count;
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t)
    threads.emplace_back([&, t] {
      for (--missing; missing > 0;) std::this_thread::yield();
      function(t);
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace tev::test
