// SPDX-License-Identifier: BSD-3-Clause
// Counting memory. Watching the peak begins with the sum over the records, so that what was obtained before and is
// released later does not make the present use negative.
#include "service/memory_statistics.h"

#include "service/lock.h"

using namespace tev::service;

int32_t enable_global_stat = -1;
mm_stat current_stat = {};
mm_stat max_stat = {};
int32_t mem_stat_lock = 0;

namespace {

bool watching() { return __atomic_load_n(&enable_global_stat, __ATOMIC_RELAXED) == 1; }

mm_stat sum_over_records() {
  mm_stat sum = {};
  const auto add = [&sum](const mm_thread_record& record) {
    sum.bytes += __atomic_load_n(&record.bytes, __ATOMIC_RELAXED);
    sum.blocks += __atomic_load_n(&record.blocks, __ATOMIC_RELAXED);
  };
  add(mm_book.nobody);
  for_each_record(add);
  return sum;
}

void start_watching() {
  const scoped_lock lock(mem_stat_lock);
  current_stat = sum_over_records();
  max_stat = {};
  __atomic_store_n(&enable_global_stat, 1, __ATOMIC_RELAXED);
}

int64_t restart_peak() {
  const scoped_lock lock(mem_stat_lock);
  const int64_t peak = max_stat.bytes;
  max_stat = current_stat = sum_over_records();
  return peak;
}

int64_t peak_so_far() {
  const scoped_lock lock(mem_stat_lock);
  return max_stat.bytes;
}

}  // namespace

void tev::service::count_memory(mm_thread_record& record, int64_t bytes, int32_t blocks) {
  __atomic_fetch_add(&record.bytes, bytes, __ATOMIC_RELAXED);
  __atomic_fetch_add(&record.blocks, blocks, __ATOMIC_RELAXED);
  if (!watching()) return;
  const scoped_lock lock(mem_stat_lock);
  current_stat.bytes += bytes;
  current_stat.blocks += blocks;
  if (current_stat.bytes > max_stat.bytes) max_stat = current_stat;
}

extern "C" {

int64_t tev_serv_mem_stat(int32_t* count) {
  const registry_walk walk;
  const mm_stat held = sum_over_records();
  if (count != nullptr) *count = held.blocks;
  return held.bytes;
}

int64_t tev_serv_peak_mem_usage(int32_t mode) {
  switch (mode) {
    case 1:
      start_watching();
      return 0;
    case 0:
      __atomic_store_n(&enable_global_stat, -1, __ATOMIC_RELAXED);
      return 0;
    case -1:
      return watching() ? restart_peak() : -1;
    case 2:
      return watching() ? peak_so_far() : -1;
    default:
      return -1;
  }
}

}  // extern "C"
