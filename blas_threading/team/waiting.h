// SPDX-License-Identifier: BSD-3-Clause
// How a thread of a team waits for another one: it asks at every turn, then gives the processor away at every turn.
#pragma once

#include <cstdint>

#include "blas_threading/team/crowding.h"
#include "service/lock.h"

namespace tev::blas {

// Waits shorter than this many turns are part of any meeting and not counted.
inline constexpr int32_t kUncountedTurns = 64;

template <class Condition>
void wait_until(const Condition& holds, int32_t spin_limit) {
  uint64_t since = 0;
  for (int32_t turn = 0; !holds();) {
    if (turn == kUncountedTurns && since == 0) since = ticks_now();
    if (turn < spin_limit) {
      ++turn;
      __builtin_ia32_pause();
    } else {
      tev_serv_thread_yield();
    }
  }
  if (since != 0) add_ticks_waited(ticks_now() - since);
}

}  // namespace tev::blas
