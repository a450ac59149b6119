// SPDX-License-Identifier: BSD-3-Clause
// Calling the sink's functions, and waiting for them.
#include <cstring>

#include "loopback/host_internal.h"

namespace vro {
namespace {

struct run_arguments {
  const char* name;
  vro_buffer* const* buffers;
  uint32_t buffer_count;
  const void* misc;
  size_t misc_length, result_length;
};

int check(const run_arguments& a) {
  const size_t name_length = a.name ? strnlen(a.name, VRO_MAX_NAME + 1) : 0;
  if (name_length == 0 || name_length > VRO_MAX_NAME)
    return fail(VRO_INVALID, "a function's name has 1 to %d bytes", VRO_MAX_NAME);
  if (a.buffer_count > VRO_MAX_BUFFERS)
    return fail(VRO_INVALID, "%u buffers are more than %d", a.buffer_count, VRO_MAX_BUFFERS);
  if (a.misc_length > VRO_MAX_MISC)
    return fail(VRO_INVALID, "%zu bytes of miscellaneous data are more than %d", a.misc_length, VRO_MAX_MISC);
  if (a.result_length > VRO_MAX_RESULT)
    return fail(VRO_INVALID, "%zu bytes of return value are more than %d", a.result_length, VRO_MAX_RESULT);
  if ((a.buffer_count && !a.buffers) || (a.misc_length && !a.misc))
    return fail(VRO_INVALID, "a count without its data");
  return VRO_OK;
}

// Handles of the buffers, which are only looked at once they are known to live. Returns how many are good.
uint32_t collect_handles(vro_process* p, const run_arguments& a, uint64_t* handles) {
  for (uint32_t i = 0; i < a.buffer_count; ++i) {
    if (!p->buffers.contains(a.buffers[i])) return i;
    handles[i] = a.buffers[i]->handle;
  }
  return a.buffer_count;
}

std::unique_ptr<vro_completion> make_completion(vro_process* p, const run_arguments& a) {
  auto c = std::make_unique<vro_completion>();
  c->process = p;
  c->misc_length = a.misc_length;
  c->result_length = a.result_length;
  c->bytes.reset(new unsigned char[a.misc_length + a.result_length + 1]);
  std::memcpy(c->name, a.name, std::strlen(a.name) + 1);
  return c;
}

int run(vro_process* p, const run_arguments& a, vro_completion** completion) {
  if (const int code = check(a)) return code;
  auto c = make_completion(p, a);
  uint64_t handles[VRO_MAX_BUFFERS];
  process_lock lock(p->lock);
  if (p->ended) return fail(VRO_ENDED, "%s", p->end_text);
  const uint32_t good = collect_handles(p, a, handles);
  if (good < a.buffer_count) {
    lock.unlock();
    return fail(VRO_INVALID, "buffers[%u] %s", good,
                is_foreign_buffer(p, a.buffers[good]) ? "belongs to another sink" : "is no buffer");
  }
  c->id = p->next_id++;
  const size_t name_length = std::strlen(a.name);
  const request_header header = {kMagic,
                                 kVersion,
                                 kRun,
                                 c->id,
                                 0,
                                 static_cast<uint16_t>(a.misc_length),
                                 static_cast<uint16_t>(a.result_length),
                                 static_cast<uint16_t>(a.buffer_count),
                                 static_cast<uint16_t>(name_length),
                                 {}};
  const iovec pieces[] = {{const_cast<request_header*>(&header), sizeof(header)},
                          {const_cast<void*>(a.misc), a.misc_length},
                          {handles, a.buffer_count * sizeof(handles[0])},
                          {c->name, name_length}};
  p->completions.insert(c.get());
  const int code = guarded([&] { return post(p, lock, pieces, 4, -1, c.get(), deadline_after(-1)); });
  if (code == VRO_OK)
    *completion = c.release();
  else
    p->completions.erase(c.get());
  return code;
}

int wait(vro_completion* c, int timeout_ms) {
  const auto deadline = deadline_after(timeout_ms);
  vro_process* p = c->process;
  process_lock lock(p->lock);
  for (bool looked = false; c->state == outcome::pending; looked = true) {
    if (looked && steady::now() >= deadline) return fail(VRO_TIMEOUT, "'%s' is not done yet", c->name);
    pump(p, lock, deadline);
  }
  if (c->state == outcome::refused) return fail(VRO_INVALID, "the sink refused '%s': %s", c->name, c->text);
  if (c->state == outcome::ended) return fail(VRO_ENDED, "%s", p->end_text);
  return VRO_OK;
}

// Where the block begins, or nullptr before the call is done.
const void* block(const vro_completion* c, size_t offset) {
  if (!c) return nullptr;
  const process_lock lock(c->process->lock);
  return c->state == outcome::done ? c->bytes.get() + offset : nullptr;
}

void release(vro_completion* c) {
  const process_lock lock(c->process->lock);
  c->released = true;
  if (c->state == outcome::pending) return;
  c->process->completions.erase(c);
  delete c;
}

}  // namespace
}  // namespace vro

VRO_EXPORT int vro_run(vro_process* process, const char* name, vro_buffer* const* buffers, uint32_t buffer_count,
                       const void* misc, size_t misc_length, size_t result_length, vro_completion** completion) {
  if (!completion) return vro::fail(VRO_INVALID, "no place for the completion");
  *completion = nullptr;
  if (!process) return vro::fail(VRO_INVALID, "no process given");
  const vro::run_arguments arguments = {name, buffers, buffer_count, misc, misc_length, result_length};
  return vro::guarded([&] { return vro::run(process, arguments, completion); });
}

VRO_EXPORT int vro_completion_wait(vro_completion* completion, int timeout_ms) {
  if (!completion) return vro::fail(VRO_INVALID, "no completion given");
  return vro::guarded([&] { return vro::wait(completion, timeout_ms); });
}

VRO_EXPORT const void* vro_completion_misc(const vro_completion* completion) { return vro::block(completion, 0); }

VRO_EXPORT const void* vro_completion_result(const vro_completion* completion) {
  return vro::block(completion, completion ? completion->misc_length : 0);
}

VRO_EXPORT void vro_completion_release(vro_completion* completion) {
  if (completion) vro::release(completion);
}
