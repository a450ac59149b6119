// SPDX-License-Identifier: BSD-3-Clause
// The spin lock: exclusion with more threads than processors, when a waiter yields, and who is told about it.
#include "service/lock.h"

#include <sys/syscall.h>

#include "service/library_search.h"
#include "tests/support/at_once.h"
#include "tests/support/in_child.h"

namespace {

using tev::test::printed;

int32_t held = 0;
int yields = -1;  // counted from 0 on

}  // namespace

// In place of the C library's. The third yield of a waiter frees the lock.
extern "C" int sched_yield() noexcept {
  if (yields < 0) return static_cast<int>(syscall(SYS_sched_yield));
  if (++yields == 3) tev_serv_unlock(&held);
  return 0;
}

namespace {

TEST(Lock, TakesAFreeWordOnly) {
  int32_t word = 0, other = 7;
  EXPECT_EQ(tev_serv_trylock(&word), 1);
  EXPECT_EQ(tev_serv_trylock(&word), 0);
  EXPECT_EQ(word, 1);
  tev_serv_unlock(&word);
  EXPECT_EQ(word, 0);
  EXPECT_EQ(tev_serv_trylock(&other), 0);
  EXPECT_EQ(other, 7);

  int64_t target = INT64_MIN, expected = INT64_MIN, desired = 5;
  EXPECT_EQ(tev_serv_cmpxchg(&target, &expected, &desired), INT64_MIN);
  EXPECT_EQ(tev_serv_cmpxchg(&target, &expected, &desired), 5);
  EXPECT_EQ(target, 5);
  EXPECT_EQ(expected, INT64_MIN);
}

TEST_IN_CHILD(Lock, ExcludesWithMoreThreadsThanProcessors) {
  constexpr int kThreads = 16, kRounds = 20000;
  int32_t lock = 0;
  int64_t guarded = 0, exchanged = 0;
  tev::test::at_once(kThreads, [&](int) {
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
  });
  EXPECT_EQ(guarded, kThreads * kRounds);
  EXPECT_EQ(exchanged, kThreads * kRounds);
}

TEST_IN_CHILD(Lock, WaiterYields) {
  tev_serv_lock(&held);
  yields = 0;
  tev_serv_lock(&held);
  EXPECT_EQ(yields, 3);
}

TEST(Lock, TellsTheTracingLibraryAboutEveryAcquisition) {
  const auto lock_twice = [] {
    snprintf(DispLibPath, sizeof DispLibPath, TEV_STAND_INS "/");
    for (int i = 0; i < 2; ++i) {
      const tev::service::scoped_lock guard(held);
      printf("held %d\n", held);
    }
  };
  EXPECT_EQ(printed({}, lock_twice), "loading\nmark 1 255 null 0\nheld 1\nmark 1 255 null 0\nheld 1\n");
}

}  // namespace
