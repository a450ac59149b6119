// SPDX-License-Identifier: BSD-3-Clause
// What threads cost before they compute anything, in nanoseconds:
//
//   bench/threads [--threads 2] [--rounds 1001]
//
//   fork      an OpenMP region without contents: to wake the team, and to wait for its end
//   barrier   the team's light barrier, beside the runtime's; 1000 of each in one region
//
// A figure is the median of all rounds, with the quartiles beside it; a round of forks is a hundred of them. Where
// threads outnumber the idle processors, the figures are those of the system's scheduler.
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "blas_threading/team/barrier.h"

namespace {

constexpr int kForks = 100, kBarriers = 1000;

// Nanoseconds per step of a body that takes `steps` of them.
template <class Body>
void measure(const char* name, int rounds, int steps, const Body& body) {
  std::vector<double> samples;
  body();
  for (int round = 0; round < rounds; ++round) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - begin;
    samples.push_back(elapsed.count() / steps);
  }
  std::sort(samples.begin(), samples.end());
  const auto quantile = [&](size_t quarter) { return samples[(samples.size() - 1) * quarter / 4]; };
  std::printf("%-18s%10.0f%10.0f%10.0f\n", name, quantile(2), quantile(1), quantile(3));
}

void fork_teams(int threads) {
  for (int i = 0; i < kForks; ++i) {
#pragma omp parallel num_threads(threads)
    {
      // Not to be left out.
      __asm__ volatile("" ::: "memory");
    }
  }
}

void meet_at_block(int threads) {
  tev::blas::barrier_block block = {};
#pragma omp parallel num_threads(threads)
  for (int i = 0; i < kBarriers; ++i) tev_barrier_wait(&block, omp_get_thread_num(), omp_get_num_threads());
}

void meet_at_runtime(int threads) {
#pragma omp parallel num_threads(threads)
  for (int i = 0; i < kBarriers; ++i) {
#pragma omp barrier
  }
}

}  // namespace

int main(int argc, char** argv) {
  int threads = 2, rounds = 1001;
  for (int i = 1; i < argc; i += 2) {
    int* const value = std::strcmp(argv[i], "--threads") == 0  ? &threads
                       : std::strcmp(argv[i], "--rounds") == 0 ? &rounds
                                                               : nullptr;
    if (value != nullptr && i + 1 < argc) *value = std::atoi(argv[i + 1]);
    if (value == nullptr || *value < 1) {
      std::fprintf(stderr, "usage: threads [--threads T] [--rounds N]\n");
      return 2;
    }
  }
  std::printf("# %d threads, nanoseconds\n#                     median       25%%       75%%\n", threads);
  measure("fork", rounds, kForks, [=] { fork_teams(threads); });
  measure("barrier", rounds, kBarriers, [=] { meet_at_block(threads); });
  measure("runtime's barrier", rounds, kBarriers, [=] { meet_at_runtime(threads); });
}
