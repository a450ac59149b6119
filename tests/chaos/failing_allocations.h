// SPDX-License-Identifier: BSD-3-Clause
// Memory that runs out when told to. A host links this library, a sink gets it by LD_PRELOAD. The plan lies in memory
// that the test shares with them.
#pragma once

#include <atomic>

struct allocation_plan {
  std::atomic<long> seen;     // allocations so far, failed ones included
  std::atomic<long> live;     // blocks not yet freed
  std::atomic<long> failing;  // the number of the allocation that fails, from 1; 0: none
  std::atomic<bool> onwards;  // so do all that follow
};

// In the environment of a sink: the path of the file that the plan lies in.
inline constexpr char kPlanVariable[] = "TEV_TEST_ALLOCATION_PLAN";

// From now on this process follows the plan; null: none.
extern "C" void tev_test_follow(allocation_plan* plan);
