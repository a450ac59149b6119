// SPDX-License-Identifier: BSD-3-Clause
// Memory that both sides map: anonymous, sealed at its size, without a name anywhere. The descriptor travels with the
// message and is closed on both sides once mapped.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "loopback/host_internal.h"

namespace vro {
namespace {

request_header buffer_request(message_kind kind, uint64_t handle, uint64_t bytes) {
  return {kMagic, kVersion, kind, handle, bytes, 0, 0, 0, 0, {}};
}

// Sends with the buffer listed, so that nothing is left to fail once the sink knows it.
int announce(vro_buffer* b, int memory) {
  vro_process* p = b->process;
  process_lock lock(p->lock);
  b->handle = p->next_id++;
  p->buffers.insert(b);
  const request_header header = buffer_request(kBufferCreate, b->handle, b->bytes);
  const iovec piece = {const_cast<request_header*>(&header), sizeof(header)};
  const int code = post(p, lock, &piece, 1, memory, nullptr, deadline_after(-1));
  if (code != VRO_OK) p->buffers.erase(b);
  return code;
}

// ftruncate, for a program whose file size is limited: the error is all that it gets, not the signal that comes with it
// and would end it. The signal is sent to the calling thread, where it waits until it is taken away.
int set_size(int memory, size_t bytes) {
  sigset_t excess, old, pending;
  sigemptyset(&excess);
  sigaddset(&excess, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &excess, &old);
  sigpending(&pending);
  const int result = ftruncate(memory, static_cast<off_t>(bytes));
  const int error = errno;
  const timespec at_once = {0, 0};
  if (result != 0 && !sigismember(&pending, SIGXFSZ)) sigtimedwait(&excess, nullptr, &at_once);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = error;
  return result;
}

int create_mapped(vro_process* p, int memory, size_t bytes, vro_buffer** buffer) {
  if (set_size(memory, bytes) != 0 || fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
    return fail(VRO_SYSTEM, "cannot make a buffer of %zu bytes: %s", bytes, strerrordesc_np(errno));
  auto b = std::make_unique<vro_buffer>(vro_buffer{p, 0, nullptr, bytes});
  b->address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
  if (b->address == MAP_FAILED)
    return fail(VRO_SYSTEM, "cannot map a buffer of %zu bytes: %s", bytes, strerrordesc_np(errno));
  const int code = guarded([&] { return announce(b.get(), memory); });
  if (code == VRO_OK)
    *buffer = b.release();
  else
    munmap(b->address, bytes);
  return code;
}

int create(vro_process* p, size_t bytes, vro_buffer** buffer) {
  const int memory = memfd_create("vro", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (memory < 0) return fail(VRO_SYSTEM, "cannot make a buffer: %s", strerrordesc_np(errno));
  const int code = guarded([&] { return create_mapped(p, memory, bytes, buffer); });
  close(memory);
  return code;
}

int destroy(vro_buffer* b) {
  vro_process* p = b->process;
  process_lock lock(p->lock);
  int code = VRO_OK;
  if (p->buffers.erase(b) == 0) return fail(VRO_INVALID, "no such buffer");
  const request_header header = buffer_request(kBufferDestroy, b->handle, 0);
  const iovec piece = {const_cast<request_header*>(&header), sizeof(header)};
  code = post(p, lock, &piece, 1, -1, nullptr, deadline_after(-1));
  munmap(b->address, b->bytes);
  delete b;
  return code;
}

}  // namespace
}  // namespace vro

VRO_EXPORT int vro_buffer_create(vro_process* process, size_t bytes, vro_buffer** buffer) {
  if (!buffer) return vro::fail(VRO_INVALID, "no place for the buffer");
  *buffer = nullptr;
  if (!process) return vro::fail(VRO_INVALID, "no process given");
  if (bytes == 0 || bytes > PTRDIFF_MAX) return vro::fail(VRO_INVALID, "a buffer cannot have %zu bytes", bytes);
  return vro::create(process, bytes, buffer);
}

VRO_EXPORT void* vro_buffer_map(vro_buffer* buffer) { return buffer ? buffer->address : nullptr; }

VRO_EXPORT size_t vro_buffer_size(const vro_buffer* buffer) { return buffer ? buffer->bytes : 0; }

VRO_EXPORT int vro_buffer_destroy(vro_buffer* buffer) {
  return buffer ? vro::guarded([&] { return vro::destroy(buffer); }) : VRO_OK;
}
