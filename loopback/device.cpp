// SPDX-License-Identifier: BSD-3-Clause
// The sink's side of the runtime. The process has two threads of ours:
//
//   main       VROProcessWaitForShutdown watches the channel for its end, which it sees also while a request runs
//   pipeline   receives and runs; the only one that reads the channel
#include "vro/device.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "loopback/device_pipeline.h"

namespace {

using vro::pipeline;

pipeline* g_pipeline;  // written by the thread that starts it, which is the one that waits

// The descriptor that the host left for this process, now its own; -1 when no host started it.
int take_channel() {
  const char* value = std::getenv(vro::kChannelVariable);
  if (!value || *value < '0' || *value > '9') return -1;
  char* end;
  const long number = std::strtol(value, &end, 10);
  int type = 0;
  socklen_t size = sizeof(type);
  if (*end || number > 1 << 30) return -1;
  const int channel = static_cast<int>(number);
  if (getsockopt(channel, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_SEQPACKET) return -1;
  fcntl(channel, F_SETFD, FD_CLOEXEC);
  unsetenv(vro::kChannelVariable);
  return channel;
}

[[noreturn]] void end_without_host() {
  std::fprintf(stderr, "%s is an offload sink: a host program starts it\n", program_invocation_short_name);
  std::exit(2);
}

[[noreturn]] void end_at_start(int channel, const char* what, int error) {
  char why[128];
  std::snprintf(why, sizeof(why), "it cannot get %s: %s", what, strerrordesc_np(error));
  vro::tell_host(channel, why);
  std::exit(1);
}

// Opens `path` unless it is empty, which would be the program itself.
void* open_library(const std::string& path, uint32_t flags) {
  return path.empty() ? nullptr : dlopen(path.c_str(), static_cast<int>(flags));
}

void* search_library(const std::string& name, const std::string& search_path, uint32_t flags) {
  for (size_t begin = 0; begin < search_path.size();) {
    const size_t end = std::min(search_path.find(':', begin), search_path.size());
    if (end > begin)
      if (void* found = open_library(search_path.substr(begin, end - begin) + "/" + name, flags)) return found;
    begin = end + 1;
  }
  return nullptr;
}

}  // namespace

#define VRO_EXPORT extern "C" __attribute__((visibility("default")))

VRO_EXPORT void VROPipelineStartExecutingRunFunctions() {
  if (g_pipeline) return;
  const int channel = take_channel();
  if (channel < 0) end_without_host();
  g_pipeline = new (std::nothrow) pipeline{};
  if (!g_pipeline) end_at_start(channel, "memory for its pipeline", ENOMEM);
  g_pipeline->channel = channel;
  g_pipeline->finished = eventfd(0, EFD_CLOEXEC);
  if (g_pipeline->finished < 0) end_at_start(channel, "a descriptor", errno);
  const int error = pthread_create(&g_pipeline->thread, nullptr, vro::serve_pipeline, g_pipeline);
  if (error != 0) end_at_start(channel, "its pipeline thread", error);
}

VRO_EXPORT void VROProcessWaitForShutdown() {
  pipeline* p = g_pipeline;
  if (!p) return;
  pollfd watched[] = {{p->channel, 0, 0}, {p->finished, POLLIN, 0}};
  while (poll(watched, 2, -1) < 0 || !watched[1].revents)
    if (watched[0].revents) std::quick_exit(1);
  pthread_join(p->thread, nullptr);
  vro::detach_all(&p->buffers);
  close(p->channel);
  close(p->finished);
  g_pipeline = nullptr;
  delete p;
}

VRO_EXPORT int VROProcessLoadSinkLibraryFromFile(const char* file, const char* name, const char* search_path,
                                                 uint32_t flags, void** handle) {
  if (!handle) return -1;
  try {
    void* found = open_library(file ? file : "", flags);
    if (!found && name && *name && search_path) found = search_library(name, search_path, flags);
    if (!found) return -1;
    *handle = found;
    return 0;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
