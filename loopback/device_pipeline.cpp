// SPDX-License-Identifier: BSD-3-Clause
// Receive, check, look up, call, answer. Whatever is wrong with a message is answered by a refusal, and the next
// message is served. A run function that throws ends the process (the thread's body is noexcept): nobody could say
// what state it left behind.
#include "loopback/device_pipeline.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "loopback/parse.h"
#include "vro/device.h"

namespace vro {
namespace {

// A request to run, with everything that must survive the clearing of the inbox copied out of it.
struct call {
  char name[VRO_MAX_NAME + 1];
  vro_run_function* function;
  uint32_t buffer_count;
  void* addresses[VRO_MAX_BUFFERS];
  uint64_t lengths[VRO_MAX_BUFFERS];
};

// Blocks while the host does not read. Returns an error number that the host survived, else 0.
int send_reply(pipeline* p, const reply_header& header, const void* first, size_t first_bytes, const void* second,
               size_t second_bytes) {
  const iovec pieces[] = {{const_cast<reply_header*>(&header), sizeof(header)},
                          {const_cast<void*>(first), first_bytes},
                          {const_cast<void*>(second), second_bytes}};
  const int error = send_datagram(p->channel, pieces, 3, -1, 0);
  if (error != 0 && error != EMSGSIZE && error != ENOBUFS && error != ENOMEM) std::quick_exit(1);  // the host is gone
  return error;
}

void refuse(pipeline* p, uint64_t id, const char* text) {
  const uint16_t length = static_cast<uint16_t>(std::min(std::strlen(text), kMaxText));
  send_reply(p, {kMagic, kVersion, kRefused, id, 0, 0, length, 0}, text, length, nullptr, 0);
}

// Data symbols have names, too: only the type in the symbol table tells what may be called. Looking there takes long,
// so an address is looked at once.
bool is_function(pipeline* p, void* address) {
  if (p->functions.contains(address)) return true;
  Dl_info info;
  void* entry = nullptr;
  if (!dladdr1(address, &info, &entry, RTLD_DL_SYMENT) || !entry || info.dli_saddr != address) return false;
  const auto type = ELF64_ST_TYPE(static_cast<const ElfW(Sym)*>(entry)->st_info);
  if (type != STT_FUNC && type != STT_GNU_IFUNC) return false;
  try {
    p->functions.insert(address);
  } catch (const std::bad_alloc&) {  // it will be looked at again
  }
  return true;
}

bool find_function(pipeline* p, const request_view& request, call* out, char* text) {
  std::memcpy(out->name, request.name, request.name_length);
  out->name[request.name_length] = 0;
  void* address = dlsym(RTLD_DEFAULT, out->name);
  if (!address || !is_function(p, address)) {
    std::snprintf(text, kMaxText + 1, "it has no such function");
    return false;
  }
  out->function = reinterpret_cast<vro_run_function*>(address);
  return true;
}

bool find_buffers(pipeline* p, const request_view& request, call* out, char* text) {
  out->buffer_count = request.buffer_count;
  for (uint32_t i = 0; i < request.buffer_count; ++i) {
    uint64_t handle;
    std::memcpy(&handle, request.handles + i * sizeof(handle), sizeof(handle));
    const auto entry = p->buffers.find(handle);
    if (entry == p->buffers.end()) {
      std::snprintf(text, kMaxText + 1, "buffers[%u] does not exist there", i);
      return false;
    }
    if (!entry->second.address) {
      std::snprintf(text, kMaxText + 1, "buffers[%u] could not be mapped there: %s", i, entry->second.failure.c_str());
      return false;
    }
    out->addresses[i] = entry->second.address;
    out->lengths[i] = entry->second.bytes;
  }
  return true;
}

void run(pipeline* p, const request_view& request) {
  call c;
  char text[kMaxText + 1];
  if (!find_function(p, request, &c, text) || !find_buffers(p, request, &c, text)) return refuse(p, request.id, text);

  unsigned char* misc = p->inbox + sizeof(request_header);
  const size_t sent = sizeof(request_header) + request.misc_length;
  if (p->used > sent) std::memset(p->inbox + sent, 0, p->used - sent);
  p->used = sent;
  std::memset(p->result, 0, request.result_length);
  c.function(c.buffer_count, c.addresses, c.lengths, misc, request.misc_length, p->result, request.result_length);

  const reply_header header = {kMagic, kVersion, kDone, request.id, request.misc_length, request.result_length, 0, 0};
  const int error = send_reply(p, header, misc, request.misc_length, p->result, request.result_length);
  if (error == 0) return;
  std::snprintf(text, sizeof(text), "the function ran, but its reply cannot be sent: %s", strerrordesc_np(error));
  refuse(p, request.id, text);
}

// Keeps the buffer table. Returns what is wrong with the request, or nullptr.
const char* change_buffers(pipeline* p, const request_view& request, const datagram& got) try {
  if (request.kind == kBufferCreate)
    return attach_buffer(&p->buffers, request.id, request.bytes, got.descriptor_count > 0 ? got.descriptors[0] : -1);
  if (request.kind == kBufferDestroy) return detach_buffer(&p->buffers, request.id);
  return nullptr;
} catch (const std::bad_alloc&) {
  return "the sink has no memory to note the buffer";
}

// Carries one message out. False after a shutdown.
bool handle_message(pipeline* p, const datagram& got) {
  request_view request;
  const char* wrong = parse_request(p->inbox, std::min(got.length, sizeof(p->inbox)), &request);
  if (!wrong) wrong = change_buffers(p, request, got);
  for (int i = 0; i < got.descriptor_count; ++i) close(got.descriptors[i]);  // mapped, or never asked for
  if (wrong)
    refuse(p, request.id, wrong);
  else if (request.kind == kRun)
    run(p, request);
  return wrong || request.kind != kShutdown;
}

bool serve_one(pipeline* p) {
  datagram got;
  receipt r = receipt::nothing;
  if (p->spinning.asks()) {
    r = spin_for_datagram(p->channel, p->inbox, sizeof(p->inbox), &got, steady::now() + kSpinTime);
    p->spinning.learn(r != receipt::nothing);
  }
  if (r == receipt::nothing) r = receive_datagram(p->channel, p->inbox, sizeof(p->inbox), &got, 0);
  if (r != receipt::message) std::quick_exit(1);
  p->used = std::max(p->used, std::min(got.length, sizeof(p->inbox)));
  return handle_message(p, got);
}

}  // namespace

void tell_host(int channel, const char* why) {
  const uint16_t length = static_cast<uint16_t>(std::min(std::strlen(why), kMaxText));
  reply_header header = {kMagic, kVersion, kRefused, 0, 0, 0, length, 0};
  const iovec pieces[] = {{&header, sizeof(header)}, {const_cast<char*>(why), length}};
  send_datagram(channel, pieces, 2, -1, 0);
}

void* serve_pipeline(void* pipeline_pointer) noexcept {
  pipeline* p = static_cast<pipeline*>(pipeline_pointer);
  send_reply(p, {kMagic, kVersion, kHello, 0, 0, 0, 0, 0}, nullptr, 0, nullptr, 0);
  while (serve_one(p)) {
  }
  eventfd_write(p->finished, 1);
  return nullptr;
}

}  // namespace vro
