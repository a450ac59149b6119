// SPDX-License-Identifier: BSD-3-Clause
#include "shim/library.h"

#include <dlfcn.h>
#include <limits.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "shim/other_runtimes.h"

namespace tev::shim {

constinit std::atomic<const functions*> opened = nullptr;
constinit std::atomic<uint32_t> process_number = 1;

namespace {

constexpr char kFile[] = "libtev.so.0";

// It is never unloaded: its threads live as long as the process.
constexpr int kMode = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;

constexpr time_t kPatience = 2;  // seconds that a fork waits for an opening library

constinit functions table = {};
constinit pthread_mutex_t opening = PTHREAD_MUTEX_INITIALIZER;
constinit thread_local bool held_by_fork = false;

// In the folder that this library really lies in, whatever links lead there.
void* open_beside() {
  Dl_info own;
  char path[PATH_MAX + sizeof kFile];
  if (dladdr(&table, &own) == 0 || !realpath(own.dli_fname, path)) return nullptr;
  char* const slash = std::strrchr(path, '/');
  if (!slash) return nullptr;
  std::memcpy(slash + 1, kFile, sizeof kFile);
  return access(path, R_OK) == 0 ? dlopen(path, kMode) : nullptr;
}

// As the loader does where a library is missing.
[[noreturn]] void give_up() {
  std::fprintf(stderr, "libtevblas: %s\n", dlerror());
  _exit(127);
}

template <class Function>
void find(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (!function) give_up();
}

void find_all(void* handle, functions& f) {
#define TEV_FIND(name, base) find(handle, "tev_blas_" #base, f.name);
#define TEV_MATRIX(name, base, ...) TEV_FIND(name, base)
#define TEV_COMPOSED_MATRIX(...)
#define TEV_COMPOSED_VECTOR(...)
#define TEV_VECTOR(name, base, ...) TEV_FIND(name, base)
#define TEV_FUNCTION(name, base, ...) TEV_FIND(name, base)
#include "shim/each_routine.inc"
#undef TEV_FIND
#define TEV_FIND(name) find(handle, "tev_serv_" #name, f.name);
  TEV_SERVICE(TEV_FIND)
#undef TEV_FIND
}

void open_once() {
  void* handle = open_beside();
  if (!handle) handle = dlopen(kFile, kMode);
  if (!handle) give_up();
  find_all(handle, table);
  table.trust_features(1);
  opened.store(&table, std::memory_order_release);
}

// A child must not find the library half open. Who opens it may wait for what the forking thread holds, so a fork waits
// for a while only.
void before_fork() {
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += kPatience;
  held_by_fork = pthread_mutex_clocklock(&opening, CLOCK_MONOTONIC, &deadline) == 0;
}

void after_fork_in_parent() {
  if (held_by_fork) pthread_mutex_unlock(&opening);
}

void after_fork_in_child() {
  opening = PTHREAD_MUTEX_INITIALIZER;
  forget_other_searches();
  process_number.fetch_add(1, std::memory_order_relaxed);
}

__attribute__((constructor)) void install_fork_handlers() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

const functions& open_library() {
  pthread_mutex_lock(&opening);
  const bool first = !opened.load(std::memory_order_relaxed);
  if (first) open_once();
  pthread_mutex_unlock(&opening);
  if (first) {  // not under the lock: the library, too, waits for forks when its OpenMP runtime starts
    table.domain_get_max_threads(TEV_DOMAIN_BLAS);
    remove_runtime_name();
  }
  return table;
}

void remove_runtime_name() {
  char name[64];
  std::snprintf(name, sizeof name, "/__KMP_REGISTERED_LIB_%d_%u", getpid(), getuid());
  shm_unlink(name);
}

}  // namespace tev::shim
