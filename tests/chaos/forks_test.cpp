// SPDX-License-Identifier: BSD-3-Clause
// A program forks at a random moment while another of its threads uses the library for the first time, when settings,
// processor, machine and memory are being decided. The child can do all that the parent can.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include "tests/chaos/offload.h"
#include "tests/support/effort.h"
#include "tests/support/in_child.h"
#include "tev/blas.h"
#include "tev/service.h"

namespace tev::test {
namespace {

bool multiplies(int64_t n, int32_t threads) {
  const double one = 1, zero = 0;
  const std::vector<double> ones(static_cast<size_t>(n * n), 1.0);
  std::vector<double> c(ones.size());
  tev_serv_set_num_threads_local(threads);
  tev_blas_dgemm("N", "N", &n, &n, &n, &one, ones.data(), &n, ones.data(), &n, &zero, c.data(), &n);
  tev_serv_set_num_threads_local(0);
  return std::all_of(c.begin(), c.end(), [n](double x) { return x == static_cast<double>(n); });
}

bool allocates() {
  void* buffer = tev_serv_allocate(100000, 128);
  if (buffer) std::memset(buffer, 1, 100000);
  tev_serv_deallocate(buffer);
  return buffer && tev_serv_mem_stat(nullptr) >= 0;
}

bool offloads() {
  vro_process* process = start_sink();
  return process && multiply(process, 20).code == VRO_OK && vro_process_shutdown(process, kWaitMs) == VRO_OK;
}

constexpr struct {
  const char* what;
  bool (*works)();
} kUses[] = {{"thread count", [] { return tev_serv_get_max_threads() > 0; }},
             {"topology", [] { return tev_serv_get_ncpus() > 0 && tev_serv_get_nlogicalcores() > 0; }},
             {"processor", [] { return tev_serv_cpu_detect() >= 0; }},
             {"reproducibility", [] { return tev_serv_cbwr_get(1) > 0; }},
             {"verbose mode", [] { return tev_serv_verbose(0) == 0; }},
             {"memory", allocates},
             {"product", [] { return multiplies(60, 1); }},
             {"product of a team", [] { return multiplies(300, 2); }}};

// In an order by chance. Returns the status: 0, or 1 + which one does not work.
int use_everything(uint64_t seed) {
  std::vector<int> order(std::size(kUses));
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
  std::shuffle(order.begin(), order.end(), std::mt19937_64(seed));
  for (const int use : order)
    if (!kUses[use].works()) return 1 + use;
  return 0;
}

constexpr int kForkFailed = 50;

int fork_at(std::chrono::microseconds moment, uint64_t seed) {
  int in_thread = 0;
  std::thread other([&] { in_thread = use_everything(seed); });
  std::this_thread::sleep_for(moment);
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(use_everything(seed + 1) || !offloads());
  }
  int status = -1;
  waitpid(child, &status, 0);
  other.join();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::printf("child: %s %d\n", WIFSIGNALED(status) ? "signal" : "status",
                WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    return kForkFailed;
  }
  return in_thread || !offloads();
}

TEST(Forks, AtAnyMomentTheChildCanDoAllThatTheParentCan) {
  std::mt19937_64 random(test_seed());
  const int rounds = long_run() ? 1000 : 10;
  for (int round = 0; round < rounds; ++round) {
    const std::chrono::microseconds moment(random() % (round % 2 ? 1000 : 20000));
    const uint64_t seed = random();
    const child_result result = in_child({{"OMP_NUM_THREADS", "2"}}, [&] { return fork_at(moment, seed); });
    ASSERT_EQ(result.status, 0) << "round " << round << ", after " << moment.count() << " us: " << result.out
                                << result.err << repeat_with(test_seed());
  }
}

}  // namespace
}  // namespace tev::test
