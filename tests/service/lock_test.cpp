// SPDX-License-Identifier: BSD-3-Clause
// The spin lock: exclusion with more threads than processors, when a waiter yields, and who is told about it.
#include "service/lock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <x86intrin.h>

#include <cstdio>
#include <latch>
#include <thread>
#include <vector>

#include "service/library_search.h"
#include "tests/support/in_child.h"

namespace {

using tev::test::in_child;

constexpr uint64_t kTrapFlag = 0x100;  // a signal after every instruction

int32_t held = 0;
int yields = -1;  // counted from 0 on
int pauses = 0;   // instructions, while the trap flag is set
int pauses_before_yield = 0;

void count_pause(int, siginfo_t*, void* context) {
  const greg_t next = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
  const auto* code = reinterpret_cast<const unsigned char*>(next);
  if (code[0] == 0xF3 && code[1] == 0x90) ++pauses;
}

}  // namespace

// In place of the C library's. The third yield of a waiter frees the lock.
extern "C" int sched_yield() noexcept {
  if (yields < 0) return static_cast<int>(syscall(SYS_sched_yield));
  if (yields == 0) {
    __writeeflags(__readeflags() & ~kTrapFlag);
    pauses_before_yield = pauses;
  }
  if (++yields == 3) tev_serv_unlock(&held);
  return 0;
}

namespace {

TEST(Lock, TakesAFreeWordOnly) {
  int32_t word = 0;
  EXPECT_EQ(tev_serv_trylock(&word), 1);
  EXPECT_EQ(word, 1);
  EXPECT_EQ(tev_serv_trylock(&word), 0);
  tev_serv_unlock(&word);
  EXPECT_EQ(word, 0);
  word = 7;
  EXPECT_EQ(tev_serv_trylock(&word), 0);
  EXPECT_EQ(word, 7);

  int64_t target = INT64_MIN, expected = INT64_MIN, desired = 5;
  EXPECT_EQ(tev_serv_cmpxchg(&target, &expected, &desired), INT64_MIN);
  EXPECT_EQ(tev_serv_cmpxchg(&target, &expected, &desired), 5);
  EXPECT_EQ(target, 5);
  EXPECT_EQ(expected, INT64_MIN);
}

TEST(Lock, ExcludesWithMoreThreadsThanProcessors) {
  const auto contend = [] {
    constexpr int kThreads = 16, kRounds = 20000;
    int32_t lock = 0;
    int64_t guarded = 0, exchanged = 0;
    std::latch all_here(kThreads);
    const auto work = [&] {
      all_here.arrive_and_wait();
      for (int i = 0; i < kRounds; ++i) {
        if (i % 4 == 0) {
          while (!tev_serv_trylock(&lock)) std::this_thread::yield();
        } else {
          tev_serv_lock(&lock);
        }
        const int64_t seen = guarded;
        if (i % 64 == 0) std::this_thread::yield();  // the others come to the locked door
        guarded = seen + 1;
        tev_serv_unlock(&lock);
        for (int64_t expected = 0, old = 0;; expected = old) {
          const int64_t next = expected + 1;
          if ((old = tev_serv_cmpxchg(&exchanged, &expected, &next)) == expected) break;
        }
      }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
    return guarded == kThreads * kRounds && exchanged == kThreads * kRounds ? 0 : 1;
  };
  EXPECT_EQ(in_child({}, contend).status, 0);
}

TEST(Lock, WaiterPausesBetween5000AttemptsThenYieldsBeforeEach) {
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "one thread, and minutes of signals";
#endif
  const auto wait = [] {
    tev_serv_lock(&held);
    struct sigaction action = {};
    action.sa_sigaction = count_pause;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    yields = 0;
    __writeeflags(__readeflags() | kTrapFlag);
    tev_serv_lock(&held);
    std::printf("%d pauses, %d yields", pauses_before_yield, yields);
    return 0;
  };
  EXPECT_EQ(in_child({}, wait).out, "4999 pauses, 3 yields");
}

TEST(Lock, TellsTheTracingLibraryAboutEveryAcquisition) {
  const auto lock_twice = [](const char* directory) {
    return in_child({}, [directory] {
      std::snprintf(DispLibPath, sizeof DispLibPath, "%s", directory);
      for (int i = 0; i < 2; ++i) {
        const tev::service::scoped_lock guard(held);
        std::printf("held %d\n", held);
      }
      return 0;
    });
  };
  EXPECT_EQ(lock_twice(TEV_STAND_INS "/").out, "loading\nmark 1 255 null 0\nheld 1\nmark 1 255 null 0\nheld 1\n");
  EXPECT_EQ(lock_twice("").out, "held 1\nheld 1\n");
}

}  // namespace
