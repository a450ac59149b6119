// SPDX-License-Identifier: BSD-3-Clause
// The end of a process: the exit handler and the cleanup registries, full and beyond. Each case is a process of its
// own.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "service/messages.h"
#include "tests/support/in_child.h"

namespace {

using tev::test::child_result;
using tev::test::in_child;

struct registry {
  int32_t (*add)(tev_serv_cleanup function, void* argument);
  void (*run)();
  int capacity;
};
const registry kRegistries[] = {{tev_serv_core_register_cleanup, tev_serv_core_cleanup, 32},
                                {tev_serv_thr_register_cleanup, tev_serv_thr_cleanup, 8}};

void show(void* number) { printf("%ld ", static_cast<long>(reinterpret_cast<intptr_t>(number))); }

void add_numbers(const registry& r, int from, int to) {
  for (int i = from; i <= to; ++i) r.add(show, reinterpret_cast<void*>(static_cast<intptr_t>(i)));
}

std::string numbers_down(int from, int to) {
  std::string text;
  for (int i = from; i >= to; --i) text += std::to_string(i) + " ";
  return text;
}

int32_t returning_handler(int32_t status, void* reserved) {
  printf("exit %d %d ", status, reserved != nullptr);
  return 40 + status;
}

TEST(Exit, GoesThroughTheProgramsHandler) {
  const child_result seen = in_child({}, [] {
    tev_serv_set_exit_handler(returning_handler);
    printf("%d", tev_serv_exit(2));
    tev_serv_set_exit_handler(nullptr);
    return tev_serv_exit(5) + 100;
  });
  EXPECT_EQ(seen.out, "exit 2 0 42");
  EXPECT_EQ(seen.status, 5);
}

TEST(Cleanup, OneTooManyEndsTheProcess) {
  for (const registry& r : kRegistries) {
    const child_result seen = in_child({}, [&r] {
      add_numbers(r, 1, r.capacity + 1);
      return 0;
    });
    EXPECT_EQ(seen.status, 3);
    EXPECT_EQ(seen.out, "");
  }
}

TEST(Cleanup, RunsBackwardsAndFurtherOnesShareTheSpareSlotIfTheHandlerReturns) {
  for (const registry& r : kRegistries) {
    const child_result seen = in_child({}, [&r] {
      tev_serv_set_exit_handler(returning_handler);
      add_numbers(r, 1, r.capacity + 3);
      for (int i = 0; i < 2; ++i) r.run();  // the second run finds nothing
      add_numbers(r, 1, 2);
      r.run();
      return 0;
    });
    EXPECT_EQ(seen.out, "exit 3 0 exit 3 0 exit 3 0 " + numbers_down(r.capacity + 3, r.capacity + 3) +
                            numbers_down(r.capacity, 1) + "2 1 ");
  }
}

TEST(Cleanup, FunctionsAndHandlersMayUseTheRegistry) {
  const child_result seen = in_child({}, [] {
    tev_serv_set_exit_handler([](int32_t, void*) {
      tev_serv_core_cleanup();
      return 0;
    });
    add_numbers(kRegistries[0], 1, 33);
    const auto add_two = [](void*) { add_numbers(kRegistries[0], 101, 102); };
    tev_serv_core_register_cleanup(add_two, nullptr);
    tev_serv_core_cleanup();
    return 0;
  });
  EXPECT_EQ(seen.out, numbers_down(32, 1) + "102 101 33 ");
}

TEST(Cleanup, ThreadsMayRegisterAtOnce) {
  const child_result seen = in_child({}, [] {
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) thread = std::thread([] { add_numbers(kRegistries[0], 7, 14); });
    for (std::thread& thread : threads) thread.join();
    tev_serv_core_cleanup();
    return 0;
  });
  EXPECT_EQ(seen.out.size(), 4 * numbers_down(14, 7).size());
}

}  // namespace
