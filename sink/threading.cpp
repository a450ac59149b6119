// SPDX-License-Identifier: BSD-3-Clause
#include "sink/threading.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "sink/openmp_start.h"

namespace {

// The processor of team thread t, or 0 when the mask allows fewer than t + 1. Mask byte j stands for processor j + 1:
// processor 0 can never be chosen, on purpose.
int processor_of(const tev_invoke_request& request, int t) {
  const int count = std::min<int>(request.processor_count, TEV_REQUEST_PROCESSORS);
  int allowed = 0;
  for (int j = 0; j < count; ++j)
    if (request.processor_mask[j] != 0 && allowed++ == t) return j + 1;
  return 0;
}

}  // namespace

void pin_team(const tev_invoke_request& request) {
  // Which processor each thread took: for whoever looks at a stopped sink. Deliberate, nothing reads it.
  volatile int32_t processors[TEV_REQUEST_PROCESSORS];
  omp_set_num_threads(request.thread_count);
#pragma omp parallel
  {
    const int t = omp_get_thread_num();
    kmp_affinity_mask_t mask;
    kmp_create_affinity_mask(&mask);
    if (const int processor = processor_of(request, t)) {
      processors[t] = processor;
      kmp_set_affinity_mask_proc(processor, &mask);
    }
    kmp_set_affinity(&mask);
    kmp_destroy_affinity_mask(&mask);
  }
}

extern "C" void configure_device_threading_worker(void* record, uint32_t, uint64_t*, uint32_t) {
  const auto& threading = *static_cast<const tev_threading_record*>(record);
  char settings[sizeof(threading.settings) + 1];
  std::memcpy(settings, threading.settings, sizeof(threading.settings));
  settings[sizeof(threading.settings)] = 0;

  unsetenv("KMP_AFFINITY");  // it would override what follows
  bind_from_the_start(settings);
  kmp_set_defaults(settings);
  if (threading.thread_count > 0) omp_set_num_threads(threading.thread_count);
#pragma omp parallel
  {
    (void)omp_get_num_threads();  // the team is made now, not in the first computation
  }
}
