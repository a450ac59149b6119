// SPDX-License-Identifier: BSD-3-Clause
#include "shim/thread_limit.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <atomic>

#include "shim/library.h"
#include "shim/other_runtimes.h"
#include "shim/process_state.h"

namespace tev::shim {

namespace {

constexpr int32_t kMostTried = 256;  // threads; a system that starts so many starts more

// What one thread knows of its limit. Each calling thread has a team of its own, so each must ask.
struct own_limit {
  uint32_t process;   // in which this was found out
  int32_t asked_for;  // threads
  int32_t threads;    // of those
};
constinit thread_local own_limit own = {};

std::atomic_ref<bool> chosen_by_program() { return std::atomic_ref(state_of_process().chosen_by_program); }

int32_t share_of_rank() {
  const int32_t share = std::atomic_ref(state_of_process().share_of_rank).load(std::memory_order_relaxed);
  return share > 0 ? share : kMostTried;
}

int32_t usable_processors() {
  const int32_t count = library().usable_processors();
  return count > 0 ? count : kMostTried;
}

int32_t processors_of_first_process() {
  constexpr pid_t kFirst = 1;
  cpu_set_t set;
  return sched_getaffinity(kFirst, sizeof set, &set) == 0 ? CPU_COUNT(&set) : kMostTried;
}

void* pass_gate(void* gate) {
  pthread_mutex_lock(static_cast<pthread_mutex_t*>(gate));
  pthread_mutex_unlock(static_cast<pthread_mutex_t*>(gate));
  return nullptr;
}

// How many of so many threads exist at the same time when all are asked for. They take no signals of the program.
int32_t startable(int32_t wanted) {
  pthread_mutex_t gate = PTHREAD_MUTEX_INITIALIZER;
  pthread_t threads[kMostTried];
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  pthread_mutex_lock(&gate);
  int32_t started = 0;
  while (started < wanted && pthread_create(&threads[started], nullptr, pass_gate, &gate) == 0) ++started;
  pthread_mutex_unlock(&gate);
  for (int32_t i = 0; i < started; ++i) pthread_join(threads[i], nullptr);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

// Of `most` threads that the library would use, those that this thread may have.
int32_t permitted(int32_t most) {
  const uint32_t process = process_number.load(std::memory_order_relaxed);
  if (own.process != process) own = {.process = process, .asked_for = 1, .threads = 1};
  if (!chosen_by_program().load(std::memory_order_relaxed)) most = std::min(most, share_of_rank());
  if (most > 1 && in_region_of_another_runtime()) return 1;
  if (most > own.asked_for) {
    const int32_t useful = std::min({most, usable_processors(), kMostTried});
    own.asked_for = most;
    own.threads = 1 + startable(useful - 1);
  }
  return std::min(most, own.threads);
}

}  // namespace

// Ranks that are bound to processors of their own have no more than this share anyway. What they share is what the
// first process may use: the machine's processors, or the container's.
void share_with_other_ranks() {
  const functions& f = library();
  const int32_t ranks = f.mpi_get_ppn();
  if (ranks < 1) return;
  const int32_t before = f.domain_get_max_threads(TEV_DOMAIN_BLAS);
  f.mpi_safe(1);                                                    // from now on as without a launcher
  if (f.domain_get_max_threads(TEV_DOMAIN_BLAS) == before) return;  // a count that somebody chose
  const int32_t share = std::max(processors_of_first_process() / ranks, 1);
  std::atomic_ref(state_of_process().share_of_rank).store(share, std::memory_order_relaxed);
}

void program_has_chosen(bool chosen) { chosen_by_program().store(chosen, std::memory_order_relaxed); }

int32_t processors_of_rank() { return std::min(usable_processors(), share_of_rank()); }

int32_t threads_of_rank() { return std::min(library().domain_get_max_threads(TEV_DOMAIN_BLAS), processors_of_rank()); }

int32_t current_threads() { return permitted(library().domain_get_max_threads(TEV_DOMAIN_BLAS)); }

thread_limit::thread_limit(bool team_pays) {
  const int32_t most = library().domain_get_max_threads(TEV_DOMAIN_BLAS), threads = team_pays ? permitted(most) : 1;
  limited_ = threads < most;
  if (limited_) before_ = library().set_num_threads_local(threads);
}

thread_limit::~thread_limit() {
  if (limited_) library().set_num_threads_local(before_);
}

}  // namespace tev::shim
