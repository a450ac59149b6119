// SPDX-License-Identifier: BSD-3-Clause
// An answer that is found out once and then costs one load. Its word is -1 until then. Threads that ask at the same
// time find out the same, so there is no lock; what `decide` stores beside is visible to whoever sees the answer.
#pragma once

#include <cstdint>

namespace tev::service {

template <class Decide>
int32_t decide_once(int32_t& word, Decide decide) {
  int32_t answer = __atomic_load_n(&word, __ATOMIC_ACQUIRE);
  if (answer < 0) {
    answer = decide();
    __atomic_store_n(&word, answer, __ATOMIC_RELEASE);
  }
  return answer;
}

}  // namespace tev::service
