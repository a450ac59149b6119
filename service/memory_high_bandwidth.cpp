// SPDX-License-Identifier: BSD-3-Clause
// Finding the high-bandwidth library, and the budget: a request must stay below what is left of it. The request is
// charged before the library is asked and given back if it fails, so that the lock is held for moments only.
#include "service/memory_high_bandwidth.h"

#include <dlfcn.h>

#include "service/environment.h"
#include "service/features.h"
#include "service/library_search.h"
#include "service/lock.h"
#include "service/memory_init.h"
#include "service/memory_settings.h"
#include "service/messages.h"

using namespace tev::service;

int32_t mm_fast_memory_initialized = 0;
int32_t mm_fast_memory_update_limit_lock = 0;
int32_t tev_set_memory_limit_lock = 0;

namespace {

constexpr int kOldestVersion = 1001000;  // 1.1.0
constexpr size_t kPageSize = 2097152;
constexpr int kPageKind = 2;  // the library's name for pages of 2 MiB

using get_version = int (*)();
using posix_memalign_psize = int (*)(void** block, size_t alignment, size_t size, int page_kind);

posix_memalign_psize hbw_posix_memalign_psize;
void* (*hbw_malloc)(size_t);
void (*hbw_free)(void*);

template <class Function>
bool find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

bool new_enough(void* library) {
  get_version version;
  if (find(library, "hbwkit_get_version", version) && version() >= kOldestVersion) return true;
  if (__atomic_load_n(tev_serv_verbose_mode(), __ATOMIC_RELAXED) == 1) {
    tev_serv_format_print(kStandardOutput, "%s\n", 1, "Minimal supported version of the hbwkit library is 1.1.0");
  }
  return false;
}

uint64_t budget() { return __atomic_load_n(&mm_fast_memory_limit, __ATOMIC_RELAXED); }
void set_budget(uint64_t bytes) { __atomic_store_n(&mm_fast_memory_limit, bytes, __ATOMIC_RELAXED); }

bool charge(uint64_t bytes) {
  const scoped_lock lock(mm_fast_memory_update_limit_lock);
  if (bytes >= budget()) return false;
  set_budget(budget() - bytes);
  return true;
}

void give_back(uint64_t bytes) {
  const scoped_lock lock(mm_fast_memory_update_limit_lock);
  set_budget(budget() + bytes);
}

void* ask_library(uint64_t bytes) {
  void* block;
  return hbw_posix_memalign_psize(&block, kPageSize, bytes, kPageKind) == 0 ? block : hbw_malloc(bytes);
}

}  // namespace

void tev::service::load_high_bandwidth_library() {
  if (!has_features(kAvx512ZelGroup) || tev_serv_libc_is_static() == 1) return;
  void* const library = load_library("libhbwkit.so");
  if (library == nullptr || !new_enough(library)) return;
  const bool complete = find(library, "hbw_posix_memalign_psize", hbw_posix_memalign_psize) &&
                        find(library, "hbw_malloc", hbw_malloc) && find(library, "hbw_free", hbw_free);
  mm_fast_memory_initialized = complete ? 1 : 0;
}

high_bandwidth_block tev::service::allocate_high_bandwidth(uint64_t bytes) {
  if (mm_fast_memory_initialized != 1) return {};
  const bool limited = budget() != kNoLimit;
  if (limited && !charge(bytes)) return {};
  void* const block = ask_library(bytes);
  if (limited && block == nullptr) give_back(bytes);
  return {block, limited ? bytes : 0};
}

void tev::service::free_high_bandwidth(high_bandwidth_block block) {
  if (block.charged != 0) give_back(block.charged);
  hbw_free(block.address);
}

extern "C" {

int32_t tev_serv_set_memory_limit(int32_t kind, int64_t megabytes) {
  constexpr int32_t kHighBandwidthMemory = 1;
  prepare_memory();
  if (kind != kHighBandwidthMemory || mm_fast_memory_initialized != 1) return 0;
  const scoped_lock one_setting(tev_set_memory_limit_lock);
  const scoped_lock changing(mm_fast_memory_update_limit_lock);
  if (budget() == kNoLimit) set_budget(budget_in_bytes(megabytes));
  return 1;
}

uint64_t tev_serv_check_fast_memory_size(void) {
  read_memory_settings();
  return budget();
}

void tev_serv_zel_register_memory(void) {}

}  // extern "C"
