// SPDX-License-Identifier: BSD-3-Clause
// Starting the sink's process: one end of a new channel, default signals, its own process group (a Ctrl-C at the
// terminal is the host program's to handle; the sink ends with its host anyway).
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

extern "C" {  // some versions of this header do not say so themselves
#include <sys/pidfd.h>
}

#include "loopback/host_internal.h"

namespace vro {
namespace {

constexpr size_t kStackBytes = 1 << 16;  // of the process in between; posix_spawn has a stack of its own for the next
#if __has_feature(thread_sanitizer)
constexpr bool kKnowsClone = false;  // it takes every clone() for a fork, and a child's threads for its own
#else
constexpr bool kKnowsClone = true;
#endif
constexpr int kSendBytes = 1 << 20;  // several of the largest messages; the system may grant less

bool has_name(const char* entry, const char* name) {
  const size_t length = std::strlen(name);
  return std::strncmp(entry, name, length) == 0 && entry[length] == '=';
}

// The sink's environment: the caller's choice, its library path in front, and the channel.
std::vector<std::string> make_environment(const vro_process_options& options, int channel) {
  std::vector<std::string> result;
  const char* inherited_path = nullptr;
  for (const char* const* e = options.environment ? options.environment : environ; *e; ++e) {
    if (has_name(*e, kChannelVariable)) continue;
    if (options.library_path && has_name(*e, "LD_LIBRARY_PATH"))
      inherited_path = std::strchr(*e, '=') + 1;
    else
      result.emplace_back(*e);
  }
  if (options.library_path) {
    result.emplace_back(std::string("LD_LIBRARY_PATH=") + options.library_path);
    if (inherited_path && *inherited_path) result.back().append(":").append(inherited_path);
  }
  result.emplace_back(std::string(kChannelVariable) + "=" + std::to_string(channel));
  return result;
}

// A start, and what became of it: an error number, which includes that of the exec, or a process.
struct start {
  const vro_process_options& options;
  int channel;  // the sink's end; -1 when it is closed here
  char* const* environment;
  pid_t pid;
  int pidfd;
  int error;
};

void start_here(start& s) {
  char* const arguments[] = {const_cast<char*>(s.options.executable), nullptr};
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setpgroup(&attributes, 0);
  s.error =
      posix_spawn_file_actions_adddup2(&actions, s.channel, s.channel);  // clears close-on-exec, in the child only
  if (!s.error && s.options.output >= 0)
    s.error = posix_spawn_file_actions_adddup2(&actions, s.options.output, STDOUT_FILENO);
  if (!s.error) s.error = posix_spawn(&s.pid, s.options.executable, &actions, &attributes, arguments, s.environment);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(std::exchange(s.channel, -1));  // makes room for a descriptor of the process
  s.pidfd = s.error ? -1 : pidfd_open(s.pid, 0);
}

// By a process in between, with this one's memory and descriptors, which has ended when clone() returns. Its end raises
// no signal, and no wait but this one meets it.
void start_detached(start& s) {
  const auto stack = std::make_unique<unsigned char[]>(kStackBytes);
  const auto between = [](void* data) {
    start_here(*static_cast<start*>(data));
    return 0;
  };
  const pid_t pid = clone(between, stack.get() + kStackBytes, CLONE_VM | CLONE_VFORK | CLONE_FILES, &s);
  if (pid < 0)
    s.error = errno;
  else
    waitpid(pid, nullptr, __WCLONE);
}

// Returns the error number. The channel's end is closed here, whatever happens.
int start_program(const vro_process_options& options, int channel, vro_process* p) try {
  const std::vector<std::string> environment = make_environment(options, channel);
  std::vector<char*> pointers;
  pointers.reserve(environment.size() + 1);
  for (const std::string& entry : environment) pointers.push_back(const_cast<char*>(entry.c_str()));
  pointers.push_back(nullptr);
  start s = {options, channel, pointers.data(), 0, -1, 0};
  if (options.detached && kKnowsClone)
    start_detached(s);
  else
    start_here(s);
  if (s.channel >= 0) close(s.channel);
  p->pid = s.pid;
  p->pidfd = s.pidfd;
  return s.error;
} catch (const std::bad_alloc&) {  // thrown before anything was made
  close(channel);
  return ENOMEM;
}

// A program that runs with closed standard descriptors must not get its channel there.
int above_standard(int descriptor) {
  if (descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(descriptor);
  return moved;
}

int open_channel(int ends[2]) {
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return errno;
  for (int i = 0; i < 2; ++i) {
    ends[i] = above_standard(ends[i]);
    if (ends[i] < 0) {
      const int error = errno;
      close(ends[1 - i]);
      return error;
    }
    setsockopt(ends[i], SOL_SOCKET, SO_SNDBUF, &kSendBytes, sizeof(kSendBytes));
  }
  return 0;
}

}  // namespace

int spawn(const vro_process_options& options, vro_process* p) {
  int ends[2];
  if (const int error = open_channel(ends))
    return fail(VRO_SYSTEM, "cannot make a channel to a sink: %s", strerrordesc_np(error));
  p->pidfd = -1;
  const int error = start_program(options, ends[1], p);
  p->socket = ends[0];
  if (p->pidfd >= 0) return VRO_OK;
  const int pidfd_error = errno;
  close(p->socket);  // which ends a sink that did start
  if (error) return fail(VRO_SYSTEM, "cannot start '%s': %s", options.executable, strerrordesc_np(error));
  return fail(VRO_SYSTEM, "cannot watch '%s' (process %d): %s", options.executable, static_cast<int>(p->pid),
              strerrordesc_np(pidfd_error));
}

}  // namespace vro
