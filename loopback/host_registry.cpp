// SPDX-License-Identifier: BSD-3-Clause
// Every process that this program started, and what a fork does: the child closes its copies of the descriptors, so
// that it neither disturbs a sink nor keeps one alive after the parent's death, and finds every process ended.
#include <pthread.h>
#include <unistd.h>

#include <new>

#include "loopback/host_internal.h"

namespace {

// Constant initialisation, trivial destruction: valid as long as the library is mapped.
constinit std::mutex g_lock;
constinit vro_process* g_first = nullptr;
constinit std::once_flag g_once;

void before_fork() {
  g_lock.lock();
  for (vro_process* p = g_first; p; p = p->next) p->lock.lock();
}

void after_fork_in_parent() {
  for (vro_process* p = g_first; p; p = p->next) p->lock.unlock();
  g_lock.unlock();
}

void after_fork_in_child() {
  for (vro_process* p = g_first; p; p = p->next) {
    if (p->socket >= 0) close(p->socket);
    if (p->pidfd >= 0) close(p->pidfd);
    p->socket = p->pidfd = -1;
    p->leading = false;
    new (&p->changed) std::condition_variable;  // the old one counts waiters that do not exist here
    if (!p->ended) vro::mark_ended(p, "is out of reach (this process was forked from its host)");
    p->lock.unlock();
  }
  g_lock.unlock();
}

}  // namespace

namespace vro {

std::unique_lock<std::mutex> lock_registry() {
  std::call_once(g_once, [] { pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child); });
  return std::unique_lock(g_lock);
}

void add_to_registry(vro_process* p) {
  p->next = g_first;
  g_first = p;
}

void remove_from_registry(vro_process* p) {
  const auto lock = lock_registry();
  vro_process** link = &g_first;
  while (*link != p) link = &(*link)->next;
  *link = p->next;
  if (p->socket >= 0) close(p->socket);
  if (p->pidfd >= 0) close(p->pidfd);
}

bool is_foreign_buffer(const vro_process* not_in, vro_buffer* buffer) {
  const auto registry = lock_registry();
  for (vro_process* p = g_first; p; p = p->next) {
    if (p == not_in) continue;
    const process_lock lock(p->lock);
    if (p->buffers.contains(buffer)) return true;
  }
  return false;
}

}  // namespace vro
