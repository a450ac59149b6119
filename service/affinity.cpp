// SPDX-License-Identifier: BSD-3-Clause
#include "service/affinity.h"

#include <omp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <new>

#include "tev/front_end.h"

namespace tev::service {

namespace {

// Not from the memory manager: on most machines nothing else of the probe allocates from it.
void insert_place(processor_set* set, int place) {
  const auto count = static_cast<size_t>(omp_get_place_num_procs(place));
  const std::unique_ptr<int[]> numbers(new (std::nothrow) int[count]);
  if (!numbers) return;
  omp_get_place_proc_ids(place, numbers.get());
  for (size_t i = 0; i < count; ++i) set->insert(numbers[i]);
}

}  // namespace

// The runtime has no places where the system refuses to bind threads. Then they run where this one may.
processor_set team_processors() {
  processor_set set;
  for (int place = 0; place < omp_get_num_places(); ++place) insert_place(&set, place);
  if (set.count() == 0) get_affinity(&set);
  if (set.count() == 0)
    for (int number = 0; number < omp_get_num_procs(); ++number) set.insert(number);
  return set;
}

bool set_affinity(const processor_set& processors, size_t bytes) {
  return syscall(SYS_sched_setaffinity, 0, bytes, processors.words) == 0;
}

size_t get_affinity(processor_set* processors) {
  const long bytes = syscall(SYS_sched_getaffinity, 0, sizeof processors->words, processors->words);
  if (bytes < 0) return 0;
  return bytes == 0 ? sizeof processors->words : static_cast<size_t>(bytes);
}

}  // namespace tev::service

int32_t tev_serv_usable_processors() {
  if (omp_get_proc_bind() != omp_proc_bind_false) return tev::service::team_processors().count();
  tev::service::processor_set set;
  tev::service::get_affinity(&set);
  return set.count();
}
