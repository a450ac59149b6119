// SPDX-License-Identifier: BSD-3-Clause
// Where the threads of a running team wait for each other. Two counters that never go back: every barrier raises both
// by team - 1, so that one zeroed block serves any number of barriers of one team in a row.
//
//   | arrivals: raised by every thread but the leader | release: written by the leader |  each on a cache line
#pragma once

#include <cstdint>

namespace tev::blas {

struct alignas(64) barrier_block {
  uint64_t arrivals;
  alignas(64) uint64_t release;
};

// Turns of busy waiting before a waiter yields the processor at every turn.
inline constexpr int32_t TEV_BARRIER_YIELD_MAX_CYCLES = 5000;

}  // namespace tev::blas

extern "C" {

// `block` points to zeroed barrier_block; role is 0 for the leader, of which there must be one. All `team` threads
// must come; a team of one returns at once.
void tev_barrier_wait(void* block, int64_t role, int64_t team);

}  // extern "C"
