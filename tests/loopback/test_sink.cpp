// SPDX-License-Identifier: BSD-3-Clause
// A sink whose functions do what a test needs: answer, or misbehave in one particular way.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "vro/device.h"

#define RUN_FUNCTION(name)                                                                                         \
  extern "C" __attribute__((visibility("default"))) void name(                                                     \
      [[maybe_unused]] uint32_t buffer_count, [[maybe_unused]] void** buffers, [[maybe_unused]] uint64_t* lengths, \
      [[maybe_unused]] void* misc, [[maybe_unused]] uint16_t misc_length, [[maybe_unused]] void* result,           \
      [[maybe_unused]] uint16_t result_length)

extern "C" __attribute__((visibility("default"))) int test_data = 7;
// A build with the thread sanitizer would otherwise sleep a second in every exit.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() { return "atexit_sleep_ms=0"; }

static uint64_t g_calls;

static int misc_number(const void* misc, uint16_t length) {
  int number = 0;
  std::memcpy(&number, misc, std::min<size_t>(length, sizeof(number)));
  return number;
}

static void answer(void* result, uint16_t length, const char* text) {
  std::memcpy(result, text, std::min<size_t>(length, std::strlen(text)));
}

RUN_FUNCTION(test_empty) {}

// result := misc; misc := its bytes plus one.
RUN_FUNCTION(test_echo) {
  std::memcpy(result, misc, std::min(misc_length, result_length));
  for (uint16_t i = 0; i < misc_length; ++i) ++static_cast<unsigned char*>(misc)[i];
}

// result := how many counts came before this one.
RUN_FUNCTION(test_count) {
  std::memcpy(result, &g_calls, std::min<size_t>(result_length, sizeof(g_calls)));
  ++g_calls;
}

// result[0] := misc is aligned, and what lies behind the sent bytes is zero; result[1] := result was zero.
RUN_FUNCTION(test_clean) {
  const auto* m = static_cast<unsigned char*>(misc);
  auto* r = static_cast<unsigned char*>(result);
  const auto zero = [](unsigned char c) { return c == 0; };
  const bool clean_result = std::all_of(r, r + result_length, zero);
  r[0] = reinterpret_cast<uintptr_t>(misc) % 64 == 0 && std::all_of(m + misc_length, m + 65536, zero);
  r[1] = clean_result;
}

// Adds one to every byte of every buffer; result := their lengths.
RUN_FUNCTION(test_touch) {
  for (uint32_t i = 0; i < buffer_count; ++i)
    for (uint64_t k = 0; k < lengths[i]; ++k) ++static_cast<unsigned char*>(buffers[i])[k];
  std::memcpy(result, lengths, std::min<size_t>(result_length, buffer_count * sizeof(lengths[0])));
}

RUN_FUNCTION(test_sleep) { std::this_thread::sleep_for(std::chrono::milliseconds(misc_number(misc, misc_length))); }

RUN_FUNCTION(test_signal) {
  signal(misc_number(misc, misc_length), SIG_DFL);
  raise(misc_number(misc, misc_length));
}

RUN_FUNCTION(test_exit) { _exit(misc_number(misc, misc_length)); }

RUN_FUNCTION(test_throw) { throw 1; }

RUN_FUNCTION(test_close_descriptors) {
  for (int i = 3; i < 256; ++i) close(i);
}

// Replaces the process by one that knows nothing of the channel.
RUN_FUNCTION(test_become_sleep) { execl("/bin/sleep", "sleep", "30", nullptr); }

// Leaves a child behind that keeps the channel open, and crashes.
RUN_FUNCTION(test_crash_with_child) {
  const pid_t child = fork();
  if (child == 0) {
    sleep(3);
    _exit(0);
  }
  raise(SIGKILL);
}

// Writes misc on the channel, which need not be what the runtime ever would.
RUN_FUNCTION(test_send) {
  for (int i = 3; i < 64; ++i) send(i, misc, misc_length, MSG_NOSIGNAL);
}

// Closes its channel after 300 ms and dies, as a large process may, only 50 ms later: by the signal in misc or, if that
// is negative, with that status.
RUN_FUNCTION(test_die_late) {
  usleep(300000);
  signal(SIGUSR1, [](int) {
    for (;;) pause();
  });
  syscall(SYS_tgkill, getpid(), getpid(), SIGUSR1);  // the main thread would notice the close, and exit
  usleep(20000);
  for (int i = 3; i < 64; ++i) shutdown(i, SHUT_RDWR);
  usleep(50000);
  const int death = misc_number(misc, misc_length);
  if (death < 0) _exit(-death);
  signal(death, SIG_DFL);
  raise(death);
}

// A nasty end: the shutdown hangs.
RUN_FUNCTION(test_hang_at_exit) {
  std::atexit([] { pause(); });
}

RUN_FUNCTION(test_environment) {
  const char* value = std::getenv(static_cast<const char*>(misc));
  answer(result, result_length, value ? value : "(unset)");
}

RUN_FUNCTION(test_print) {
  std::printf("hello from the sink\n");
  std::fflush(stdout);
}

// result := number of signals that are blocked or not at their default, then this process' group leader is itself.
RUN_FUNCTION(test_signals) {
  int odd = 0;
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  for (const int s : {SIGINT, SIGPIPE, SIGCHLD, SIGUSR1, SIGALRM, SIGTERM}) {
    struct sigaction action;
    sigaction(s, nullptr, &action);
    odd += action.sa_handler != SIG_DFL || sigismember(&blocked, s);
  }
  odd += getpgrp() != getpid();
  std::memcpy(result, &odd, std::min<size_t>(result_length, sizeof(odd)));
}

RUN_FUNCTION(test_few_descriptors) {
  const int limit = misc_number(misc, misc_length);
  rlimit r;
  getrlimit(RLIMIT_NOFILE, &r);
  r.rlim_cur = static_cast<rlim_t>(limit);
  setrlimit(RLIMIT_NOFILE, &r);
}

// misc: file, name, search path, each NUL-terminated. result := whether it was loaded.
RUN_FUNCTION(test_load) {
  const char* file = static_cast<const char*>(misc);
  const char* name = file + std::strlen(file) + 1;
  const char* path = name + std::strlen(name) + 1;
  void* handle = nullptr;
  const int code = VROProcessLoadSinkLibraryFromFile(file, name, path, RTLD_LAZY | RTLD_GLOBAL, &handle);
  answer(result, result_length, code == 0 && handle ? "loaded" : code == -1 && !handle ? "not found" : "inconsistent");
}

// Stacks of new threads for which no memory has room.
static void ask_for_vast_stacks() {
  pthread_attr_t vast;
  pthread_attr_init(&vast);
  pthread_attr_setstacksize(&vast, size_t{1} << 47);
  pthread_setattr_default_np(&vast);
}

int main() {
  if (std::getenv("TEST_VAST_STACKS")) ask_for_vast_stacks();
  VROPipelineStartExecutingRunFunctions();
  VROProcessWaitForShutdown();
  return 0;
}
