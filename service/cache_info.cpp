// SPDX-License-Identifier: BSD-3-Clause
// Sizes of the caches that hold data, as blocking sees them: the processor's own while results may depend on the
// machine, else fixed.
#include <cstring>

#include "service/detection.h"
#include "service/features.h"
#include "service/lock.h"

namespace {

// [0] number of levels, [1 .. 4] bytes. Written once, with the detection lock held.
constexpr int kMaxLevels = 4;
constinit int64_t cache_sizes[1 + kMaxLevels] = {};
constinit int32_t cache_sizes_valid = 0;

// CPUID leaf 4, subleaf by subleaf: EAX type, EBX ways, partitions and line length, ECX sets; all but the type minus 1.
void read_processor_caches() {
  constexpr uint32_t kNoMore = 0, kInstructions = 2;
  constexpr uint32_t kMaxSubleaves = 32;  // ends the walk on a processor that never says "no more"
  for (uint32_t subleaf = 0; subleaf < kMaxSubleaves && cache_sizes[0] < kMaxLevels; ++subleaf) {
    const tev::service::cpuid_leaf cache = tev::service::read_leaf(4, subleaf);
    const uint32_t type = cache.eax & 0x1F;
    if (type == kNoMore) {
      return;
    }
    if (type == kInstructions) {
      continue;
    }
    const int64_t ways = (cache.ebx >> 22) + 1, partitions = (cache.ebx >> 12 & 0x3FF) + 1;
    const int64_t line = (cache.ebx & 0xFFF) + 1, sets = int64_t{cache.ecx} + 1;
    cache_sizes[++cache_sizes[0]] = sets * ways * partitions * line;
  }
}

void set_fixed_caches(bool third_level) {
  constexpr int64_t kSizes[] = {32768, 262144, 4194304};
  cache_sizes[0] = third_level ? 3 : 2;
  memcpy(cache_sizes + 1, kSizes, static_cast<size_t>(cache_sizes[0]) * sizeof kSizes[0]);
}

// The type code is decided first, which also fixes the mode that the sizes depend on.
void fill_cache_sizes() {
  const int32_t type_code = tev_serv_cpu_detect();
  tev::service::scoped_lock guard(TEV_Detect_Cpu_Global_Lock);
  if (cache_sizes_valid) {
    return;
  }
  const int32_t mode = tev_serv_cbwr_get_nolock(1);
  if (mode == TEV_CBWR_OFF) {
    read_processor_caches();
  } else {
    set_fixed_caches(mode >= TEV_CBWR_SSE4_2 || (mode == TEV_CBWR_AUTO && type_code >= TEV_CPU_MC3));
  }
  __atomic_store_n(&cache_sizes_valid, 1, __ATOMIC_RELEASE);
}

const int64_t* decided_cache_sizes() {
  if (!__atomic_load_n(&cache_sizes_valid, __ATOMIC_ACQUIRE)) {
    fill_cache_sizes();
  }
  return cache_sizes;
}

}  // namespace

extern "C" {

int32_t tev_serv_cache_info(int64_t sizes[5]) {
  memcpy(sizes, decided_cache_sizes(), sizeof cache_sizes);
  return 1 + kMaxLevels;
}

int64_t tev_serv_get_cache_size(int32_t level) {
  const int64_t* sizes = decided_cache_sizes();
  const int64_t asked = level == 0 ? sizes[0] : level;
  return asked >= 1 && asked <= sizes[0] ? sizes[asked] : -1;
}

}  // extern "C"
