// SPDX-License-Identifier: BSD-3-Clause
// A fork, the opening of the library and the search for other runtimes wait for each other, but not for ever: who is
// waited for may itself wait for what the forking thread holds, such as a lock of the loader.
#pragma once

#include <pthread.h>

#include <ctime>
#include <tuple>

namespace tev::shim {

inline timespec time_now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

inline timespec end_of_patience() {
  constexpr time_t kPatience = 2;  // seconds
  timespec deadline = time_now();
  deadline.tv_sec += kPatience;
  return deadline;
}

inline bool is_over(const timespec& deadline) {
  const timespec now = time_now();
  return std::tie(now.tv_sec, now.tv_nsec) > std::tie(deadline.tv_sec, deadline.tv_nsec);
}

// False: not locked.
inline bool lock_patiently(pthread_mutex_t& mutex) {
  const timespec deadline = end_of_patience();
  return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &deadline) == 0;
}

}  // namespace tev::shim
