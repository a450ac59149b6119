// SPDX-License-Identifier: BSD-3-Clause
// A test's body on every tier that this processor runs, each in a child process of its own.
#pragma once

#include "tests/support/effort.h"
#include "tests/support/in_child.h"
#include "tests/support/tier_list.h"
#include "tev/service.h"

namespace tev::test {

struct tier_in_force {
  const char* name;
  int32_t type;
  environment settings;
  bool is_sanitized = false;  // a sanitizer sees the drivers, not the kernels: a tier of each interface, and the widest
};
inline const tier_in_force kTiersInForce[] = {
    {"def", TEV_CPU_DEF, {{"TEV_DEBUG_CPU_TYPE", "0"}}},
    {"cnr_def", TEV_CPU_DEF, {{"TEV_DEBUG_CPU_TYPE", "0"}, {"TEV_CBWR", "COMPATIBLE"}}},
    {"mc", TEV_CPU_MC, {{"TEV_DEBUG_CPU_TYPE", "2"}}},
    {"mc3", TEV_CPU_MC3, {{"TEV_DEBUG_CPU_TYPE", "3"}}, true},
    {"avx", TEV_CPU_AVX, {{"TEV_DEBUG_CPU_TYPE", "4"}}},
    {"avx2", TEV_CPU_AVX2, {{"TEV_DEBUG_CPU_TYPE", "5"}}, true},
    {"avx512_zel", TEV_CPU_AVX512_ZEL, {{"TEV_DEBUG_CPU_TYPE", "6"}}},
    {"avx512", TEV_CPU_AVX512, {{"TEV_DEBUG_CPU_TYPE", "7"}}, true},
};

// body(tier) fails by a result other than 0 or by an expectation of its own.
template <class Body>
void on_each_tier(const environment& settings, const Body& body) {
  for (const tier_in_force& tier : kTiersInForce) {
    if (!processor_runs(tier.name) || (kSanitized && !tier.is_sanitized)) continue;
    // Room in libomp's table of threads, four times this number: it cannot grow while threads start.
    environment all = {{"OMP_NUM_THREADS", "64"}};
    all.insert(all.end(), settings.begin(), settings.end());
    all.insert(all.end(), tier.settings.begin(), tier.settings.end());
    all.emplace_back("OMP_WAIT_POLICY", "passive");  // teams larger than the machine
    const child_result child = in_child(all, [&] { return body(tier) + testing::Test::HasFailure(); });
    EXPECT_EQ(child.status, 0) << tier.name << '\n' << child.out.substr(0, 2000) << child.err.substr(0, 2000);
  }
}

}  // namespace tev::test
