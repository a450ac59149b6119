// SPDX-License-Identifier: BSD-3-Clause
// The end of a process: the exit handler and the cleanup registries, full and beyond. Each case is a process of its
// own.

#include "service/messages.h"
#include "tests/support/at_once.h"
#include "tests/support/in_child.h"

namespace {

using tev::test::printed;

struct registry {
  int32_t (*add)(tev_serv_cleanup function, void* argument);
  void (*run)();
  int capacity;
  void (*use)();  // registers the library's own
};
const registry kRegistries[] = {
    {tev_serv_core_register_cleanup, tev_serv_core_cleanup, 32, [] { tev_serv_free(tev_serv_malloc(10, 64)); }},
    {tev_serv_thr_register_cleanup, tev_serv_thr_cleanup, 8, [] { tev_serv_set_num_threads_local(2); }}};

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
  const auto leave = [] {
    tev_serv_set_exit_handler(returning_handler);
    printf("%d ", tev_serv_exit(2));
    tev_serv_set_exit_handler(nullptr);
    tev_serv_exit(5);
  };
  EXPECT_EQ(printed({}, leave), "exit 2 0 42 status 5");
}

TEST(Cleanup, OneTooManyEndsTheProcess) {
  for (const registry& r : kRegistries) {
    const auto fill = [&r] {
      for (int round = 0; round < 2; ++round) {
        add_numbers(r, 1, r.capacity);
        r.use();  // the library's own does not count
        if (round == 0) r.run();
      }
      add_numbers(r, 0, 0);
    };
    EXPECT_EQ(printed({}, fill), numbers_down(r.capacity, 1) + "status 3");
  }
}

TEST(Cleanup, RunsBackwardsAndFurtherOnesShareTheSpareSlotIfTheHandlerReturns) {
  for (const registry& r : kRegistries) {
    const auto overfill = [&r] {
      tev_serv_set_exit_handler(returning_handler);
      add_numbers(r, 1, r.capacity + 3);
      for (int i = 0; i < 2; ++i) r.run();  // the second run finds nothing
      add_numbers(r, 1, 2);
      r.run();
    };
    EXPECT_EQ(printed({}, overfill), "exit 3 0 exit 3 0 exit 3 0 " + std::to_string(r.capacity + 3) + " " +
                                         numbers_down(r.capacity, 1) + "2 1 ");
  }
}

TEST(Cleanup, FunctionsAndHandlersMayUseTheRegistry) {
  const auto nest = [] {
    tev_serv_set_exit_handler([](int32_t, void*) { return tev_serv_core_cleanup(), 0; });
    add_numbers(kRegistries[0], 1, 33);
    const auto add_two = [](void*) { add_numbers(kRegistries[0], 101, 102); };
    tev_serv_core_register_cleanup(add_two, nullptr);
    tev_serv_core_cleanup();
  };
  EXPECT_EQ(printed({}, nest), numbers_down(32, 1) + "102 101 33 ");
}

// There is room for one of two. The tracing stand-in makes the other come while the first is on its way.
TEST(Cleanup, ThreadsMayRegisterAtOnce) {
  static std::atomic<int> run = 0, refused = 0;
  const auto race = [] {
    snprintf(DispLibPath, sizeof DispLibPath, TEV_STAND_INS "/");
    const auto add = [](int) { tev_serv_core_register_cleanup([](void*) { ++run; }, nullptr); };
    tev_serv_set_exit_handler([](int32_t, void*) { return ++refused; });
    for (int i = 0; i < 31; ++i) add(i);
    tev::test::at_once(2, add);
    tev_serv_core_cleanup();
    printf("%d run, %d refused", run.load(), refused.load());
  };
  EXPECT_EQ(printed({{"TRACEKIT_SLEEPS", "1"}}, race), "loading\n33 run, 1 refused");
}

}  // namespace
