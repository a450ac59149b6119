// SPDX-License-Identifier: BSD-3-Clause
#include "shim/library.h"

#include <dlfcn.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shim/other_runtimes.h"
#include "shim/patience.h"
#include "shim/process_state.h"
#include "shim/settings.h"
#include "shim/thread_limit.h"
#include "shim/trace.h"

namespace tev::shim {

constinit std::atomic<const functions*> opened = nullptr;
constinit std::atomic<const tev_direct_kernels*> direct_kernels = nullptr;
constinit std::atomic<uint32_t> process_number = 1;

namespace {

constexpr char kFile[] = "libtev.so.0", kOffloadFile[] = "libtev_offload.so.0";

// It is never unloaded: its threads live as long as the process.
constexpr int kMode = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;

constinit functions table = {};
constinit tev_direct_kernels kernels = {};
constinit process_state own_state = {};  // where there was no memory for a common one
constinit process_state* state = &own_state;
constinit pthread_mutex_t opening = PTHREAD_MUTEX_INITIALIZER;
constinit bool is_open = false;        // the table is complete; guarded by `opening`
constinit std::atomic<int> forks = 0;  // between our handlers
constinit thread_local bool held_by_fork = false;

// The folder that this library really lies in, whatever links lead there, with the / behind it; "" when nobody knows.
void find_own_folder(char (&folder)[PATH_MAX]) {
  Dl_info own;
  *folder = '\0';
  if (dladdr(&table, &own) == 0 || !realpath(own.dli_fname, folder)) return;
  if (char* const slash = std::strrchr(folder, '/')) slash[1] = '\0';
}

// In the folder, or where the loader finds it.
void* open_file(const char* folder, const char* file) {
  char path[2 * PATH_MAX];
  std::snprintf(path, sizeof path, "%s%s", folder, file);
  return dlopen(access(path, R_OK) == 0 ? path : file, kMode);
}

// As the loader does where a library is missing.
[[noreturn]] void give_up() {
  std::fprintf(stderr, "libtevblas: %s\n", dlerror());
  _exit(127);
}

template <class Function>
bool find_any(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  return function;
}

template <class Function>
void find(void* handle, const char* name, Function& function) {
  if (!find_any(handle, name, function)) give_up();
}

// Which routines may go to a sink is for the library to say: it has them by another name, too.
void find_all(void* handle, bool offloads, functions& f) {
#define TEV_FIND_IN(layer, name, base) \
  if (!offloads || !find_any(handle, "tev_routed_" #base, f.name)) find(handle, "tev_" #layer "_" #base, f.name);
#define TEV_FIND(name, base) TEV_FIND_IN(blas, name, base)
#define TEV_MATRIX(name, base, ...) TEV_FIND(name, base)
#define TEV_COPY(name, base, ...) TEV_FIND(name, base)
#define TEV_COMPOSED_MATRIX(...)
#define TEV_COMPOSED_VECTOR(...)
#define TEV_VECTOR(name, base, ...) TEV_FIND(name, base)
#define TEV_FUNCTION(name, base, ...) TEV_FIND(name, base)
#include "shim/each_routine.inc"
#undef TEV_FIND
#define TEV_LAPACK(name, ...) TEV_FIND_IN(lapack, name, name)
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"
#undef TEV_FIND_IN
#define TEV_FIND(name) find(handle, "tev_serv_" #name, f.name);
  TEV_SERVICE(TEV_FIND)
#undef TEV_FIND
#define TEV_FIND(name) \
  if (offloads) find(handle, "tev_routed_" #name, f.routed_##name);
  TEV_ROUTING(TEV_FIND)
#undef TEV_FIND
}

// Null where calls stay in this process.
void* open_for_offloading(const char* folder) {
  if (!may_offload()) return nullptr;
  void* const handle = open_file(folder, kOffloadFile);
  if (!handle) std::fprintf(stderr, "libtevblas: %s; nothing is offloaded\n", dlerror());
  return handle;
}

void open_once() {
  char folder[PATH_MAX];
  find_own_folder(folder);
  void* handle = open_for_offloading(folder);
  const bool offloads = handle != nullptr;
  if (!handle) handle = open_file(folder, kFile);
  if (!handle) give_up();
  find_all(handle, offloads, table);
  table.trust_features(1);
  if (void* const common = table.front_end_data(sizeof(process_state))) state = static_cast<process_state*>(common);
  open_trace();
  decltype(&tev_blas_get_direct_kernels) get_direct_kernels;
  find(handle, "tev_blas_get_direct_kernels", get_direct_kernels);
  get_direct_kernels(&kernels);
  is_open = true;
}

void start_routing() {
  if (!table.routed_set) return;
  char folder[PATH_MAX];
  find_own_folder(folder);
  const tev_routing routing = offload_settings(folder);
  table.routed_set(&routing);
}

// Ends the opening. A fork that waited for it in our handler is not prepared by the handlers that the library has only
// now: nobody may be inside of the library at that moment, or the child would find its locks taken.
void wait_for_forks() {
  const timespec deadline = end_of_patience();
  while (forks != 0 && !is_over(deadline)) sched_yield();
}

// A child must not find the library half open.
void before_fork() {
  ++forks;
  held_by_fork = lock_patiently(opening);
  hold_searches();
}

void after_fork_in_parent() {
  release_searches();
  if (held_by_fork) pthread_mutex_unlock(&opening);
  --forks;
}

void after_fork_in_child() {
  forks = 0;
  opening = PTHREAD_MUTEX_INITIALIZER;
  forget_other_searches();
  forget_calls_of_parent();
  process_number.fetch_add(1, std::memory_order_relaxed);
}

__attribute__((constructor)) void install_fork_handlers() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

const functions& open_library() {
  pthread_mutex_lock(&opening);
  if (!is_open) open_once();
  pthread_mutex_unlock(&opening);
  wait_for_forks();
  const bool first = !opened.exchange(&table, std::memory_order_acq_rel);
  if (!tracing.load(std::memory_order_relaxed)) direct_kernels.store(&kernels, std::memory_order_release);
  if (first) {  // not under the lock: the library, too, waits for forks when its OpenMP runtime starts
    table.domain_get_max_threads(TEV_DOMAIN_BLAS);
    table.remove_openmp_name(getpid());
    share_with_other_ranks();
    if (!std::atomic_ref(state->is_set_up).exchange(true)) {
      check_settings();
      start_routing();
    }
  }
  return table;
}

process_state& state_of_process() { return *state; }

}  // namespace tev::shim
