// SPDX-License-Identifier: BSD-3-Clause
#include "offload/rates.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <vector>

#include "offload/shared_copy.h"
#include "tev/blas.h"
#include "tev/service.h"

namespace tev::offload {
namespace {

constexpr double kWakingSeconds = 1e-4;  // of a sink that sleeps, and of the caller after it: both ways of a request
constexpr double kPanelCost = 2;         // times that of as many operations of a product; LU 1.6 to 1.9, QR 2.0
constexpr int64_t kOrder = 256;          // of the measured product: half a megabyte a matrix, a millisecond
constexpr int64_t kCopiedBytes = 1 << 23;
constexpr int kRepetitions = 3;

struct rates {
  double flops;  // per second, of one thread in double precision
  double bytes;  // per second, copied by the team
};

constinit rates known = {};
constinit std::atomic<bool> is_known = false;
constinit pthread_mutex_t measuring = PTHREAD_MUTEX_INITIALIZER;

template <class Work>
double best_seconds(const Work& work) {
  double best = 1e9;
  for (int i = 0; i <= kRepetitions; ++i) {  // once more: the first one finds cold memory
    const auto start = std::chrono::steady_clock::now();
    work();
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

double measured_flops() {
  const std::vector<double> ones(kOrder * kOrder, 1.0);
  std::vector<double> product(ones.size());
  const double one = 1, zero = 0;
  const int32_t before = tev_serv_set_num_threads_local(1);
  const double seconds = best_seconds([&] {
    tev_blas_dgemm("N", "N", &kOrder, &kOrder, &kOrder, &one, ones.data(), &kOrder, ones.data(), &kOrder, &zero,
                   product.data(), &kOrder);
  });
  tev_serv_set_num_threads_local(before);
  return 2.0 * kOrder * kOrder * kOrder / seconds;
}

double measured_bytes() {
  std::vector<char> from(kCopiedBytes), to(kCopiedBytes);
  const stored_matrix a = {from.data(), kCopiedBytes, 1, kCopiedBytes, 1, part::all};
  return kCopiedBytes / best_seconds([&] { copy_matrix(a, a.packed_at(to.data())); });
}

const rates& measured() {
  if (is_known.load(std::memory_order_acquire)) return known;
  pthread_mutex_lock(&measuring);
  if (!is_known.load(std::memory_order_relaxed)) {
    known = {measured_flops(), measured_bytes()};
    is_known.store(true, std::memory_order_release);
  }
  pthread_mutex_unlock(&measuring);
  return known;
}

}  // namespace

bool sink_is_faster(const call_size& size, int32_t sink_threads, int32_t host_threads) {
  const rates& r = measured();
  const double rate = size.is_single ? 2 * r.flops : r.flops, alone = size.flops / rate;
  const double there = std::max(alone / sink_threads, kPanelCost * size.panel_flops / rate);
  return kWakingSeconds + size.bytes / r.bytes + there < alone / host_threads;
}

void forget_measuring() { measuring = PTHREAD_MUTEX_INITIALIZER; }

}  // namespace tev::offload
