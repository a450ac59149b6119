// SPDX-License-Identifier: BSD-3-Clause
// How the library ends a process, and what a program has registered to be run when it is done with the library.
#include "service/cleanup.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <utility>

#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/messages.h"

namespace {

using tev::service::scoped_lock;

struct cleanup {
  tev_serv_cleanup function;
  void* argument;
};

// In the order of registration. entries[capacity]: the last one of those for which there was no room, when the
// program's exit handler let the program go on.
template <int32_t Capacity>
struct registry {
  static constexpr int32_t capacity = Capacity;
  int32_t& lock;      // guards what follows
  int32_t count = 0;  // at most capacity + 1
  cleanup entries[Capacity + 1] = {};
  int32_t own_count = 0;
  cleanup own[2] = {};  // the library's: one per key that it may create
};

constexpr int32_t kTooManyCleanups = 3;  // exit status

constinit std::atomic<tev_serv_exit_handler> custom_core_exit{nullptr};
constinit registry<32> core = {tev::service::core_cleanup_lock};
constinit registry<8> thread_layer = {tev::service::thread_cleanup_lock};

bool append_if_room(auto& r, cleanup entry) {
  const scoped_lock guard(r.lock);
  if (r.count >= r.capacity) return false;
  r.entries[r.count++] = entry;
  return true;
}

void append_or_replace_last(auto& r, cleanup entry) {
  const scoped_lock guard(r.lock);
  const int32_t slot = std::min(r.count, r.capacity);
  r.entries[slot] = entry;
  r.count = slot + 1;
}

// The exit handler runs without the lock: it may run the cleanups.
int32_t append(auto& r, cleanup entry) {
  if (append_if_room(r, entry)) return 0;
  tev_serv_exit(kTooManyCleanups);
  append_or_replace_last(r, entry);
  return 0;
}

void append_own(auto& r, cleanup entry) {
  const scoped_lock guard(r.lock);
  for (const cleanup& registered : r.own)
    if (registered.argument == entry.argument) return;  // of a key that was deleted otherwise
  r.own[r.own_count++] = entry;
}

bool take_last(auto& r, cleanup& last) {
  const scoped_lock guard(r.lock);
  if (r.count > 0) {
    last = r.entries[--r.count];
  } else if (r.own_count > 0) {
    last = std::exchange(r.own[--r.own_count], {});
  } else {
    return false;
  }
  return true;
}

// The functions run without the lock: they may register further ones, which run next.
void run(auto& r) {
  for (cleanup last; take_last(r, last);) last.function(last.argument);
}

}  // namespace

void tev::service::register_own_core_cleanup(tev_serv_cleanup function, void* argument) {
  append_own(core, {function, argument});
}

void tev::service::register_own_thread_cleanup(tev_serv_cleanup function, void* argument) {
  append_own(thread_layer, {function, argument});
}

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
