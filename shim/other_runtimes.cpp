// SPDX-License-Identifier: BSD-3-Clause
// Whoever compiled the program or one of its modules chose its OpenMP runtime, and a module may bring it at any time,
// invisible to everybody else. So the loaded files are gone through, by name, whenever the loader has loaded another;
// each runtime is then asked by the one function that all of them have.
#include "shim/other_runtimes.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "shim/patience.h"

namespace tev::shim {

namespace {

constexpr std::string_view kRuntimes[] = {"libgomp", "libiomp", "libomp"};  // and any suffix: wheels rename theirs
constexpr int kMostRuntimes = 8;
constexpr uint64_t kPeriod = 100'000;  // ticks, some 40 us: less than loading a file and starting a region takes

using question = int (*)();
constinit std::atomic<question> in_parallel[kMostRuntimes] = {};  // filled from the front
constinit std::atomic<uint64_t> looked_at = 0;                    // ticks
constinit unsigned long long files_loaded = 0;  // ever, when the files were last gone through; guarded by `looking`
constinit pthread_mutex_t looking = PTHREAD_MUTEX_INITIALIZER;
constinit thread_local bool held_by_fork = false;

int count_loaded(dl_phdr_info* info, size_t, void* count) {
  *static_cast<unsigned long long*>(count) = info->dlpi_adds;
  return 1;
}

struct found_files {
  char paths[kMostRuntimes][PATH_MAX];
  int count;
};

int note_runtime(dl_phdr_info* info, size_t, void* data) {
  auto& found = *static_cast<found_files*>(data);
  const std::string_view path = info->dlpi_name;
  std::string_view file = path;
  file.remove_prefix(path.rfind('/') + 1);
  if (path.size() >= PATH_MAX) return 0;
  for (const std::string_view runtime : kRuntimes)
    if (file.starts_with(runtime)) std::memcpy(found.paths[found.count++], path.data(), path.size() + 1);
  return found.count == kMostRuntimes ? 1 : 0;
}

void ask_too(void* handle) {
  const auto its = reinterpret_cast<question>(dlsym(handle, "omp_in_parallel"));
  if (!its) return;
  for (auto& known : in_parallel) {
    if (known.load(std::memory_order_relaxed) == its) return;
    if (known.load(std::memory_order_relaxed)) continue;
    return known.store(its, std::memory_order_release);
  }
}

// The handles stay open: a runtime must not go while it is asked.
void look_for_runtimes() {
  static found_files found;  // too large for a small stack; guarded by `looking`
  found.count = 0;
  dl_iterate_phdr(note_runtime, &found);
  ask_too(RTLD_DEFAULT);  // one that is linked into the program
  for (int i = 0; i < found.count; ++i)
    if (void* const handle = dlopen(found.paths[i], RTLD_LAZY | RTLD_NOLOAD)) ask_too(handle);
}

// Whoever comes while another thread looks waits for what it finds. So does a fork: the loader holds a lock while its
// files are gone through, which the C library does not put in order in a child. False: not looked.
bool look_again() {
  if (!lock_patiently(looking)) return false;
  unsigned long long loaded = 0;
  dl_iterate_phdr(count_loaded, &loaded);
  if (loaded != files_loaded) look_for_runtimes();
  files_loaded = loaded;
  pthread_mutex_unlock(&looking);
  return true;
}

}  // namespace

void hold_searches() { held_by_fork = lock_patiently(looking); }
void release_searches() {
  if (held_by_fork) pthread_mutex_unlock(&looking);
}
void forget_other_searches() { looking = PTHREAD_MUTEX_INITIALIZER; }

bool in_region_of_another_runtime() {
  const uint64_t now = __builtin_ia32_rdtsc();
  if (now - looked_at.load(std::memory_order_relaxed) > kPeriod && look_again())
    looked_at.store(now, std::memory_order_relaxed);
  for (const auto& asked : in_parallel) {
    const question its = asked.load(std::memory_order_acquire);
    if (!its) return false;
    if (its() != 0) return true;
  }
  return false;
}

}  // namespace tev::shim
