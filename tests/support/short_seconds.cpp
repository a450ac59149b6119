// SPDX-License-Identifier: BSD-3-Clause
// Loaded before the C library into every test and what it starts: a second of the calendar lasts 5 ms. The timer of the
// library spins until the next one begins to learn how fast the counter runs, in every process that uses it; the tests
// start hundreds.
#include <ctime>

namespace {

timespec now() {
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  return time;
}

}  // namespace

extern "C" time_t time(time_t* stored) noexcept {
  static const timespec first = now();
  const timespec current = now();
  const long passed = (current.tv_sec - first.tv_sec) * 1000 + (current.tv_nsec - first.tv_nsec) / 1'000'000;  // ms
  const time_t seconds = first.tv_sec + passed / 5;
  if (stored != nullptr) *stored = seconds;
  return seconds;
}
