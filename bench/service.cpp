// SPDX-License-Identifier: BSD-3-Clause
// What every BLAS call pays to the service layer, beside what the C library asks for the same.
//
//   bench/service [ROUNDS]     default 15
//
// Nanoseconds per call or pair of calls: the median of ROUNDS samples taken in turns, and the median deviation from it.
#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "bench/program.h"
#include "service/detection.h"
#include "tev/service.h"

using tev::bench::median;

namespace {

constexpr int kCalls = 200000;

struct contender {
  const char* name;
  std::function<void()> calls;  // kCalls times
  std::vector<double> nanoseconds;
};

// The compiler must neither merge the calls nor leave them out.
template <class Call>
std::function<void()> repeated(Call call) {
  return [call] {
    for (int i = 0; i < kCalls; ++i) {
      call();
      __asm__ volatile("" ::: "memory");
    }
  };
}

void touch(void* block) { *static_cast<volatile char*>(block) = 1; }

template <size_t Size>
std::vector<contender> memory_of(const char* ours, const char* theirs) {
  return {{ours,
           repeated([] {
             void* buffer = tev_serv_allocate(Size, 128);
             touch(buffer);
             tev_serv_deallocate(buffer);
           }),
           {}},
          {theirs,
           repeated([] {
             void* block = std::malloc(Size);
             touch(block);
             std::free(block);
           }),
           {}}};
}

double seconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
  static int32_t lock = 0;
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

  std::vector<contender> all = {
      {"tev_serv_domain_get_max_threads", repeated([] { (void)tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS); }), {}},
      {"tev_serv_cpu_detect", repeated([] { (void)tev_serv_cpu_detect(); }), {}},
      {"tev_serv_lock, unlock", repeated([] { tev_serv_lock(&lock), tev_serv_unlock(&lock); }), {}},
      {"pthread_mutex_lock, unlock", repeated([] { pthread_mutex_lock(&mutex), pthread_mutex_unlock(&mutex); }), {}}};
  for (auto& more : {memory_of<1024>("tev_serv_allocate, deallocate 1 KiB", "malloc, free 1 KiB"),
                     memory_of<65536>("tev_serv_allocate, deallocate 64 KiB", "malloc, free 64 KiB"),
                     memory_of<1048576>("tev_serv_allocate, deallocate 1 MiB", "malloc, free 1 MiB")})
    all.insert(all.end(), more.begin(), more.end());

  for (auto& one : all) one.calls();  // decides, fills caches
  for (int round = 0; round < rounds; ++round)
    for (auto& one : all) {
      const double begin = seconds();
      one.calls();
      one.nanoseconds.push_back((seconds() - begin) * 1e9 / kCalls);
    }
  for (const auto& one : all) {
    const double middle = median(one.nanoseconds);
    std::vector<double> away;
    for (double x : one.nanoseconds) away.push_back(std::abs(x - middle) / middle);
    std::printf("%-40s %8.2f ns  %4.1f %%\n", one.name, middle, 100 * median(away));
  }
  return 0;
}
