// SPDX-License-Identifier: BSD-3-Clause
// The tiers by name, and which of them this processor runs.
#pragma once

#include "tests/support/prelude.h"

namespace tev::test {

inline constexpr const char* kTiers[] = {"def", "cnr_def", "mc", "mc3", "avx", "avx2", "avx512", "avx512_zel"};

// Can this processor run the instructions of a tier?
inline bool processor_runs(const std::string& tier) {
  if (tier == "mc") return __builtin_cpu_supports("ssse3");
  if (tier == "mc3") return __builtin_cpu_supports("sse4.2");
  if (tier == "avx") return __builtin_cpu_supports("avx");
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
  if (tier == "avx2") return avx2;
  if (tier == "avx512_zel") return avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd");
  if (tier == "avx512")
    return avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  return true;
}

}  // namespace tev::test
