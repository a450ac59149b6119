// SPDX-License-Identifier: BSD-3-Clause
// Start and end of a sink.
#include <sys/mman.h>

#include <cstdio>

#include "loopback/host_internal.h"

namespace vro {
namespace {

constexpr int kStartMs = 10000;

// Frees what is left; the sink has ended, or belongs to the parent of this process.
void free_process(vro_process* p) {
  remove_from_registry(p);
  for (vro_buffer* b : p->buffers) {
    munmap(b->address, b->bytes);
    delete b;
  }
  for (vro_completion* c : p->completions) delete c;
  delete p;
}

// Kills a sink that has used up its time, unless somebody noticed its end meanwhile.
void kill_process(vro_process* p, process_lock& lock, const char* why) {
  while (!p->ended && p->leading) pump(p, lock, deadline_after(-1));
  if (p->ended) return;
  char how[256];
  p->ended_well = conclude(p->pidfd, why, how, sizeof(how));
  mark_ended(p, how);
}

int create(const vro_process_options& options, vro_process** process) {
  remove_leftovers();
  auto p = std::make_unique<vro_process>();
  p->inbox = std::make_unique<unsigned char[]>(kMaxReply + 1);
  p->next_id = 1;
  {
    const auto registry = lock_registry();  // no fork of this program happens in here
    if (const int code = spawn(options, p.get())) return code;
    add_to_registry(p.get());
  }
  const auto deadline = deadline_after(kStartMs);
  process_lock lock(p->lock);
  while (!p->ended && !p->serving && steady::now() < deadline) pump(p.get(), lock, deadline);
  if (!p->serving) kill_process(p.get(), lock, "did not serve within 10 seconds");
  if (p->ended) {
    fail(VRO_ENDED, "'%s': %s", options.executable, p->end_text);
    lock.unlock();
    free_process(p.release());
    return VRO_ENDED;
  }
  lock.unlock();
  *process = p.release();
  return VRO_OK;
}

int shut_down(vro_process* p, int timeout_ms) {
  process_lock lock(p->lock);
  if (p->ended) return fail(VRO_ENDED, "%s", p->end_text);
  const auto deadline = deadline_after(timeout_ms);
  p->end_deadline = deadline;
  const request_header header = {kMagic, kVersion, kShutdown, p->next_id++, 0, 0, 0, 0, 0, {}};
  const iovec piece = {const_cast<request_header*>(&header), sizeof(header)};
  post(p, lock, &piece, 1, -1, nullptr, deadline);
  while (!p->ended && steady::now() < deadline) pump(p, lock, deadline);
  char why[64];
  std::snprintf(why, sizeof(why), "did not end within %d ms", timeout_ms);
  kill_process(p, lock, why);
  return p->ended_well ? VRO_OK : fail(VRO_ENDED, "%s", p->end_text);
}

int end_at_once(vro_process* p, const char* why) {
  process_lock lock(p->lock);
  kill_process(p, lock, why);
  return VRO_OK;
}

}  // namespace
}  // namespace vro

VRO_EXPORT int vro_process_create(const vro_process_options* options, vro_process** process) {
  if (!process) return vro::fail(VRO_INVALID, "no place for the process");
  *process = nullptr;
  if (!options || !options->executable) return vro::fail(VRO_INVALID, "no executable given");
  return vro::guarded([&] { return vro::create(*options, process); });
}

VRO_EXPORT int vro_process_shutdown(vro_process* process, int timeout_ms) {
  if (!process) return VRO_OK;
  const int code = vro::guarded([&] { return vro::shut_down(process, timeout_ms); });
  vro::free_process(process);
  return code;
}

VRO_EXPORT int vro_process_kill(vro_process* process, const char* why) {
  if (!process || !why) return vro::fail(VRO_INVALID, "no process given, or no reason");
  return vro::guarded([&] { return vro::end_at_once(process, why); });
}

VRO_EXPORT int64_t vro_process_id(const vro_process* process) { return process ? process->pid : 0; }
