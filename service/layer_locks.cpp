// SPDX-License-Identifier: BSD-3-Clause
#include "service/layer_locks.h"

#include <pthread.h>

#include <atomic>
#include <ctime>
#include <iterator>

#include "service/detection.h"
#include "service/lock.h"
#include "service/memory_high_bandwidth.h"
#include "service/memory_settings.h"
#include "service/memory_statistics.h"
#include "service/memory_thread.h"

namespace tev::service {

constinit int32_t thread_settings_lock = 0;
constinit int32_t memory_start_lock = 0;
constinit int32_t calibration_lock = 0;
constinit int32_t catalog_lock = 0;
constinit int32_t tracing_lock = 0;
constinit int32_t ceiling_lock = 0;
constinit int32_t verbose_lock = 0;
constinit int32_t thread_key_lock = 0;
constinit int32_t core_cleanup_lock = 0;
constinit int32_t thread_cleanup_lock = 0;

namespace {

int32_t* const kStarts[] = {&thread_settings_lock, &memory_start_lock, &calibration_lock, &catalog_lock, &tracing_lock};

// Whoever has entered a thread's record waits for none of these.
int32_t* const kMoments[] = {&TEV_Detect_Cpu_Global_Lock,
                             &ceiling_lock,
                             &verbose_lock,
                             &mm_book.lock,
                             &mm_book.records_lock,
                             &thread_key_lock,
                             &core_cleanup_lock,
                             &thread_cleanup_lock,
                             &tev_fast_mm_lock,
                             &tev_set_memory_limit_lock,
                             &mm_fast_memory_update_limit_lock,
                             &mem_stat_lock};

constinit std::atomic<int> forks = 0;                              // under way, less those of this process' parent
constinit thread_local bool held_starts[std::size(kStarts)] = {};  // by the fork that this thread is in

// How long a fork and a start wait for each other: each may need what the other holds.
constexpr double kPatience = 2.0;  // seconds: also a loaded machine starts its OpenMP runtime in that time

double now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

template <class Condition>
bool comes_true(Condition condition, double deadline) {
  while (!condition()) {
    if (now() > deadline) return false;
    tev_serv_thread_yield();
  }
  return true;
}

// Not tev_serv_lock: its first call loads the tracing library, and a fork must not.
void hold(int32_t& lock) {
  while (tev_serv_trylock(&lock) == 0) tev_serv_thread_yield();
}

void before_fork() {
  ++forks;
  const double deadline = now() + kPatience;
  for (size_t i = 0; i < std::size(kStarts); ++i)
    held_starts[i] = comes_true([i] { return tev_serv_trylock(kStarts[i]) == 1; }, deadline);
  for (int32_t* lock : kMoments) hold(*lock);
  for_each_record([](mm_thread_record& record) { hold(record.busy); });
}

void release_moments() {
  for_each_record([](mm_thread_record& record) { leave(record); });
  for (int32_t* lock : kMoments) tev_serv_unlock(lock);
}

void after_fork_in_parent() {
  release_moments();
  for (size_t i = 0; i < std::size(kStarts); ++i)
    if (held_starts[i]) tev_serv_unlock(kStarts[i]);
  --forks;
}

void after_fork_in_child() {
  forget_other_threads();
  release_moments();
  for (int32_t* lock : kStarts) tev_serv_unlock(lock);
  forks = 0;
}

// At load time: a fork may fall into the first call of any other thread.
__attribute__((constructor)) void install_fork_handlers() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

void wait_for_forks() {
  comes_true([] { return forks == 0; }, now() + kPatience);
}

}  // namespace tev::service
