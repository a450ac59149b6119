// SPDX-License-Identifier: BSD-3-Clause
// The search for optional libraries, and the one that the locks ask for: the tracing library.
//
//   1  DispLibPath + file, then EXEPath + file     unless the file is a path itself
//   2  file                                        the dynamic loader's own search
//   3  the offload runtime, ZEL_LD_LIBRARY_PATH    in a process of the runtime, which fetches the file from its host
//   4  the offload runtime, LD_LIBRARY_PATH
#include "service/library_search.h"

#include <dlfcn.h>

#include <atomic>
#include <cstring>

#include "service/decide_once.h"
#include "service/environment.h"
#include "service/formatted_io.h"
#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/settings.h"

namespace {

using namespace tev::service;

using load_through_runtime = int (*)(const char* file, const char* name, const char* search_path, uint32_t flags,
                                     void** handle);

constexpr int kLoad = RTLD_LAZY | RTLD_GLOBAL;
constexpr int kAlreadyLoaded = RTLD_LAZY | RTLD_NOLOAD;
constexpr int kUntried = -1;

constinit std::atomic<int> tracing_state{kUntried};  // then 0 or 1
constinit std::atomic<suppress_mark_range> mark_range{nullptr};

// Failures leave no message behind for the program's own dlerror().
void* open_library(const char* path, int flags) {
  void* handle = dlopen(path, flags);
  if (!handle) dlerror();
  return handle;
}

void* find_symbol(void* library, const char* name) {
  void* address = dlsym(library, name);
  if (!address) dlerror();
  return address;
}

void* open_in_directory(const char (&directory)[4096], const char* file) {
  char path[sizeof directory + 256];
  const int length = tev_serv_snprintf_s(path, sizeof path, "%.*s%s", int{sizeof directory} - 1, directory, file);
  return length > 0 && static_cast<size_t>(length) < sizeof path ? open_library(path, kLoad) : nullptr;
}

load_through_runtime runtime_loader() {
  static constinit int32_t found = -1;
  static constinit std::atomic<void*> loader{nullptr};
  tev::service::decide_once(found, [] {
    loader.store(find_symbol(RTLD_DEFAULT, "VROProcessLoadSinkLibraryFromFile"), std::memory_order_relaxed);
    return 1;
  });
  return reinterpret_cast<load_through_runtime>(loader.load(std::memory_order_relaxed));
}

// The runtime's own handle is not used: a library counts as found only if the dynamic loader knows it by its name.
template <setting SearchPath>
void* open_along(const char* file) {
  setting_value<SearchPath> folders;
  if (folders.length == 0) return nullptr;
  const load_through_runtime load = runtime_loader();
  void* handle = nullptr;
  if (!load || load(file, file, folders.text, kLoad, &handle) != 0) return nullptr;
  return open_library(file, kAlreadyLoaded);
}

int load_tracing_library() {
  if (tev_serv_libc_is_static()) return 0;
  void* library = tev::service::load_library("libtracekit.so");
  void* found = library ? find_symbol(library, "__trk_suppress_mark_range") : nullptr;
  mark_range.store(reinterpret_cast<suppress_mark_range>(found), std::memory_order_relaxed);
  return found ? 1 : 0;
}

}  // namespace

void* tev::service::load_library(const char* file) {
  void* handle = nullptr;
  if (!std::strchr(file, '/')) {
    handle = open_in_directory(DispLibPath, file);
    if (!handle && std::strncmp(EXEPath, DispLibPath, sizeof EXEPath) != 0) handle = open_in_directory(EXEPath, file);
  }
  if (!handle) handle = open_library(file, kLoad);
  if (!handle) handle = open_along<setting::ZEL_LD_LIBRARY_PATH>(file);
  if (!handle) handle = open_along<setting::LD_LIBRARY_PATH>(file);
  return handle;
}

suppress_mark_range tev::service::tracing_hook() { return mark_range.load(std::memory_order_relaxed); }

// "Unavailable" while the library loads: its constructors may take locks, which ask here.
extern "C" int tev_serv_load_vigil() {
  int state = tracing_state.load(std::memory_order_acquire);
  if (state != kUntried) return state;
  if (tev_serv_trylock(&tev::service::tracing_lock) == 0) return 0;
  state = tracing_state.load(std::memory_order_relaxed);
  if (state == kUntried) {
    state = load_tracing_library();
    tracing_state.store(state, std::memory_order_release);
  }
  tev_serv_unlock(&tev::service::tracing_lock);
  return state;
}
