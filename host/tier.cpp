// SPDX-License-Identifier: BSD-3-Clause
// The tiers, and what each needs of the processor and the operating system.
#include "host/tier.h"

#include <cpuid.h>
#include <fmt/format.h>

#include "host/failure.h"
#include "tev/service.h"

namespace tev::host {
namespace {

bool has_lzcnt() {
  uint32_t a, b, c, d;
  return __get_cpuid(0x80000001, &a, &b, &c, &d) != 0 && (c & bit_LZCNT) != 0;
}

bool has_avx2_group() {
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi") &&
         __builtin_cpu_supports("bmi2") && has_lzcnt();
}

bool has_avx512_group() {
  return has_avx2_group() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
}

bool has_avx512_zel_group() {
  return has_avx2_group() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd");
}

struct tier {
  const char* name;
  int processor_type;
  bool (*runs_here)();
  const char* needs;
};

constexpr tier kTiers[] = {
    {"avx512", TEV_CPU_AVX512, has_avx512_group, "AVX-512 F, DQ, BW and VL"},
    {"avx512_zel", TEV_CPU_AVX512_ZEL, has_avx512_zel_group, "AVX-512 F and CD"},
    {"avx2", TEV_CPU_AVX2, has_avx2_group, "AVX2, FMA, BMI and LZCNT"},
    {"avx", TEV_CPU_AVX, [] { return __builtin_cpu_supports("avx") != 0; }, "AVX"},
    {"mc3", TEV_CPU_MC3, [] { return __builtin_cpu_supports("sse4.2") != 0; }, "SSE4.2"},
    {"mc", TEV_CPU_MC, [] { return __builtin_cpu_supports("ssse3") != 0; }, "SSSE3"},
    {"def", TEV_CPU_DEF, [] { return true; }, "SSE2"},
};

}  // namespace

std::string processor_type_for(const std::string& name) {
  if (name == "auto" || name == "detect") return "";
  for (const tier& t : kTiers) {
    if (name != t.name) continue;
    if (!t.runs_here()) throw bad_input(fmt::format("--tier {}: this machine lacks {}", name, t.needs));
    return std::to_string(t.processor_type);
  }
  throw bad_input(
      fmt::format("--tier '{}': must be auto, detect, def, mc, mc3, avx, avx2, avx512 or avx512_zel", name));
}

}  // namespace tev::host
