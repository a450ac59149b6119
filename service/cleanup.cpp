// SPDX-License-Identifier: BSD-3-Clause
// How the library ends a process, and what a program has registered to be run when it is done with the library.
#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "service/lock.h"
#include "service/messages.h"

namespace {

using tev::service::scoped_lock;

struct cleanup {
  tev_serv_cleanup function;
  void* argument;
};

// entries[0 .. capacity): the registrations in their order. entries[capacity]: the last one of those for which there
// was no room, when the program's exit handler let the program go on.
struct registry {
  cleanup* entries;
  int32_t capacity;
  int32_t count;  // at most capacity + 1
  int32_t lock;   // guards entries and count
};

constexpr int32_t kCoreCapacity = 32;
constexpr int32_t kThreadLayerCapacity = 8;
constexpr int32_t kTooManyCleanups = 3;  // exit status

constinit std::atomic<tev_serv_exit_handler> custom_core_exit{nullptr};
constinit cleanup core_entries[kCoreCapacity + 1] = {};
constinit cleanup thread_layer_entries[kThreadLayerCapacity + 1] = {};
constinit registry core = {core_entries, kCoreCapacity, 0, 0};
constinit registry thread_layer = {thread_layer_entries, kThreadLayerCapacity, 0, 0};

bool is_full(registry& r) {
  const scoped_lock guard(r.lock);
  return r.count >= r.capacity;
}

// The exit handler runs without the lock: it may run the cleanups.
int32_t append(registry& r, cleanup entry) {
  if (is_full(r)) tev_serv_exit(kTooManyCleanups);
  const scoped_lock guard(r.lock);
  const int32_t slot = std::min(r.count, r.capacity);
  r.entries[slot] = entry;
  r.count = slot + 1;
  return 0;
}

bool take_last(registry& r, cleanup& last) {
  const scoped_lock guard(r.lock);
  if (r.count == 0) return false;
  last = r.entries[--r.count];
  return true;
}

// The functions run without the lock: they may register further ones, which run next.
void run(registry& r) {
  for (cleanup last; take_last(r, last);) last.function(last.argument);
}

}  // namespace

extern "C" {

void tev_serv_set_exit_handler(tev_serv_exit_handler handler) { custom_core_exit = handler; }

int32_t tev_serv_exit(int32_t status) {
  const tev_serv_exit_handler handler = custom_core_exit;
  if (!handler) std::exit(status);
  return handler(status, nullptr);
}

int32_t tev_serv_core_register_cleanup(tev_serv_cleanup function, void* argument) {
  return append(core, {function, argument});
}

int32_t tev_serv_thr_register_cleanup(tev_serv_cleanup function, void* argument) {
  return append(thread_layer, {function, argument});
}

void tev_serv_core_cleanup() { run(core); }
void tev_serv_thr_cleanup() { run(thread_layer); }

}  // extern "C"
