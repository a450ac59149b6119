// SPDX-License-Identifier: BSD-3-Clause
// Seconds, by what a sample is timed with: the wall where it takes threads, else the calling thread's processor time.
#pragma once

#include <time.h>

namespace tev::contest {

inline double now(bool threaded) {
  timespec t;
  clock_gettime(threaded ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace tev::contest
