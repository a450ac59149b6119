// SPDX-License-Identifier: BSD-3-Clause
// Forks while another thread decides what a process decides once. Wherever that thread calls out of the library it is
// held up in turn, and the fork falls there; the child has to come to the same decision.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <ctime>
#include <thread>

#include "service/clock.h"
#include "service/library_search.h"
#include "service/memory_high_bandwidth.h"
#include "service/messages.h"
#include "tests/support/fake_processor.h"
#include "tests/support/in_child.h"

namespace {

thread_local int calls_left = 0;  // of the deciding thread, until it is held up
std::atomic<bool> held_up = false;

void call_out() {
  if (calls_left == 0 || --calls_left != 0) return;
  held_up = true;
  usleep(10000);
}

template <class Function>
[[maybe_unused]] Function next(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In place of the C library's. The thread sanitizer calls them before it can bear it: there only questions to the
// processor are call-outs.
#if !__has_feature(thread_sanitizer)
extern "C" {

char* getenv(const char* name) noexcept {
  call_out();
  const size_t length = strlen(name);
  for (char** entry = environ; entry && *entry; ++entry)
    if (strncmp(*entry, name, length) == 0 && (*entry)[length] == '=') return *entry + length + 1;
  return nullptr;
}

void* dlopen(const char* file, int flags) noexcept {
  call_out();
  return next(dlopen, "dlopen")(file, flags);
}

int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept {
  call_out();
  return next(pthread_key_create, "pthread_key_create")(key, destructor);
}

time_t time(time_t*) noexcept {  // a second later at each call
  static time_t now = 0;
  call_out();
  return ++now;
}

}  // extern "C"
#endif

namespace {

constexpr int kAllDone = 77;  // the thread came to its end without being held up

struct part {
  const char* name;
  int (*decide)();
};

const part kParts[] = {
    {"thread settings", [] { return tev_serv_get_max_threads() + tev_serv_get_nlogicalcores(); }},
    {"own count", [] { return tev_serv_set_num_threads_local(3) + tev_serv_set_num_threads_local(3); }},
    {"type code", [] { return tev_serv_cpu_detect(); }},
    {"reproducibility", [] { return tev_serv_cbwr_get(1); }},
    {"ceiling", [] { return tev_serv_get_cpu_type(1); }},
    {"caches", [] { return static_cast<int>(tev_serv_get_cache_size(0) >> 20); }},
    {"memory", [] { return tev_serv_allocate(10, 64) ? mm_fast_memory_initialized : 2; }},
    {"memory settings", [] { return tev_serv_get_fast_mm_status(); }},
    {"verbose", [] { return *tev_serv_verbose_mode(); }},
    {"catalog", [] { return static_cast<int>(strlen(tev_serv_get_msg(6, 0)) + strlen(getenv("LANG"))); }},
    {"tracing library", [] { return tev_serv_load_vigil(); }},
    {"timer", [] { return tev_serv_get_clocks_frequency() > 0 ? 1 : 0; }},
};

int decide_beside_a_fork(const part& p, int call) {
  tev::test::avx512_zel_processor().install();
  static const auto cpuid = tev::service::processor.cpuid;
  tev::service::processor.cpuid = [](uint32_t leaf, uint32_t subleaf, uint32_t r[4]) {
    call_out();
    cpuid(leaf, subleaf, r);
  };
  snprintf(DispLibPath, sizeof DispLibPath, TEV_STAND_INS "/");
  snprintf(EXEPath, sizeof EXEPath, TEV_STAND_INS "/memory/");
  int decision = -1;
  std::atomic<bool> at_end = false;
  std::thread thread([&] {
    calls_left = call;
    decision = p.decide();
    at_end = true;
  });
  while (!held_up && !at_end) std::this_thread::yield();
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    _exit(p.decide());
  }
  int status = 0;
  waitpid(child, &status, 0);
  thread.join();
  if (!held_up) return kAllDone;
  printf("at call %d: %d, the child's status %#x\n", call, decision, status);
  return status == decision << 8 ? 0 : 1;
}

TEST(Fork, ChildDecidesLikeItsParentWhereverAnotherThreadWas) {
  const tev::test::environment variables = {{"LANG", "xx_YY.UTF-8"},
                                            {"TEV_VERBOSE", "1"},
                                            {"TEV_NUM_THREADS", "3"},
                                            {"TEV_CBWR", "AUTO"},
                                            {"TEV_DYNAMIC", "false"}};
  for (const part& p : kParts) {
    tev::test::child_result seen = {};
    for (int call = 1; seen.status == 0; call += 1 + call / 4)  // every one of the first, some of the later ones
      seen = tev::test::in_child(variables, [&] { return decide_beside_a_fork(p, call); });
    EXPECT_EQ(seen.status, kAllDone) << p.name << ' ' << seen.out;
  }
}

}  // namespace
