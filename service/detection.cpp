// SPDX-License-Identifier: BSD-3-Clause
// Which tier of kernels runs, as a type code. The first of these that applies decides, once per process:
//
//   TEV_DEBUG_CPU_TYPE       the code itself, whatever the processor
//   reproducibility branch   the code of the branch, unless the ceiling calls for the next line
//   processor                the best tier below the ceiling whose features it has
#include "service/detection.h"

#include <iterator>
#include <optional>

#include "service/decide_once.h"
#include "service/features.h"
#include "service/formatted_io.h"
#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/messages.h"
#include "service/settings.h"

// Tiers by type code. Code 1 is reserved: only TEV_DEBUG_CPU_TYPE can ask for it.
#define TEV_TIER_OF_EACH_CODE(ROW) \
  ROW("def") ROW("def") ROW("mc") ROW("mc3") ROW("avx") ROW("avx2") ROW("avx512_zel") ROW("avx512") ROW("avx512_zel")
#define TEV_TIER_NAME(tier) tier,
#define TEV_TIER_LIBRARY(tier) "libtev_" tier ".so",

extern "C" {
constinit int32_t TEV_Detect_Cpu_Global_Lock = 0;
const char* const dll_cfg_names[10] = {
    TEV_TIER_OF_EACH_CODE(TEV_TIER_LIBRARY) reinterpret_cast<const char*>(UINTPTR_MAX)};
}

namespace tev::service {

namespace {

constexpr const char* kTierNames[] = {TEV_TIER_OF_EACH_CODE(TEV_TIER_NAME)};
static_assert(std::size(kTierNames) + 1 == std::size(dll_cfg_names));

constinit int32_t type_code = -1;  // what tev_serv_cpu_detect answers; written with the detection lock held

// The ceiling. Written with `ceiling_lock` held, which may be taken inside the detection lock.
constinit int32_t _ENABLED_SSE4_2 = 1;
constinit int32_t _ENABLED_AVX = 1;
constinit int32_t _ENABLED_AVX2 = 1;
constinit int32_t _ENABLED_AVX512_ZEL = 1;
constinit int32_t _ENABLED_AVX512 = 1;
constinit int32_t _ENABLED_AVX512_ZEL_E1 = 1;
constinit int32_t mei_was_called = 0;        // 1 once the flags above are valid: TEV_ENABLE_INSTRUCTIONS is out
constinit int32_t environment_ceiling = -1;  // what TEV_ENABLE_INSTRUCTIONS said, if it was read

constinit int32_t override_present = -1;
constinit int32_t forced_code = 0;  // valid when override_present is 1

int32_t load(const int32_t& word) { return __atomic_load_n(&word, __ATOMIC_RELAXED); }
void store(int32_t& word, int32_t value) { __atomic_store_n(&word, value, __ATOMIC_RELAXED); }

std::optional<int32_t> forced_type() {
  const int32_t present = decide_once(override_present, [] {
    const setting_value<setting::TEV_DEBUG_CPU_TYPE> value;
    int32_t code = 0;
    const bool found = value.length > 0 && tev_serv_sscanf_s(value.text, "%i", &code) == 1;
    store(forced_code, code);
    return found;
  });
  return present != 0 ? std::optional(load(forced_code)) : std::nullopt;
}

// ---- The ceiling

bool accepts(int32_t ceiling) {
  if (!tev_serv_zarik_cpu_true() || forced_type()) {
    return false;
  }
  switch (ceiling) {
    case TEV_ENABLE_SSE4_2:
    case TEV_ENABLE_AVX:
    case TEV_ENABLE_AVX2:
      return true;
    case TEV_ENABLE_AVX512_ZEL:
    case TEV_ENABLE_AVX512_ZEL_E1:
      return !has_features(kAvx512Group);
    case TEV_ENABLE_AVX512:
      return !has_features(kAvx512ZelGroup) && !has_e1();
    default:
      return false;
  }
}

// With ceiling_lock held. Other threads look at the flags once mei_was_called says so.
int32_t set_ceiling(int32_t ceiling) {
  const bool accepted = accepts(ceiling);
  if (accepted) {
    const bool many_core = ceiling == TEV_ENABLE_AVX512_ZEL || ceiling == TEV_ENABLE_AVX512_ZEL_E1;
    store(_ENABLED_SSE4_2, 1);
    store(_ENABLED_AVX, ceiling >= TEV_ENABLE_AVX);
    store(_ENABLED_AVX2, ceiling >= TEV_ENABLE_AVX2);
    store(_ENABLED_AVX512_ZEL, many_core);
    store(_ENABLED_AVX512, ceiling == TEV_ENABLE_AVX512);
    store(_ENABLED_AVX512_ZEL_E1, ceiling == TEV_ENABLE_AVX512_ZEL_E1);
  }
  __atomic_store_n(&mei_was_called, 1, __ATOMIC_RELEASE);
  return accepted;
}

int32_t read_environment_ceiling() {
  constexpr const char* kNames[] = {"SSE4_2", "AVX", "AVX2", "AVX512_ZEL", "AVX512", "AVX512_ZEL_E1"};  // by ceiling
  const setting_value<setting::TEV_ENABLE_INSTRUCTIONS> value;
  for (int32_t ceiling = 0; ceiling < static_cast<int32_t>(std::size(kNames)); ++ceiling) {
    if (value.view() == kNames[ceiling]) {
      return ceiling;
    }
  }
  return -1;
}

// Nobody set a ceiling yet: the environment may.
void apply_environment_ceiling() {
  if (__atomic_load_n(&mei_was_called, __ATOMIC_ACQUIRE) != 0) {
    return;
  }
  scoped_lock guard(ceiling_lock);
  if (mei_was_called == 0) {
    store(environment_ceiling, read_environment_ceiling());
    set_ceiling(environment_ceiling);
  }
}

int32_t enabled(const int32_t& flag) {
  apply_environment_ceiling();
  return load(flag);
}

// ---- The processor

int32_t best_tier() {
  apply_environment_ceiling();
  if (!tev_serv_zarik_cpu_true()) {
    return TEV_CPU_DEF;
  }
  if (has_features(kAvx)) {
    if (has_features(kAvx2Group)) {
      if (load(_ENABLED_AVX512) && has_features(kAvx512Group)) {
        return TEV_CPU_AVX512;
      }
      if (load(_ENABLED_AVX512_ZEL) && has_features(kAvx512ZelGroup)) {
        return load(_ENABLED_AVX512_ZEL_E1) && has_e1() ? TEV_CPU_AVX512_ZEL_E1 : TEV_CPU_AVX512_ZEL;
      }
      if (load(_ENABLED_AVX2)) {
        return TEV_CPU_AVX2;
      }
    }
    if (load(_ENABLED_AVX)) {
      return TEV_CPU_AVX;
    }
  }
  if (load(_ENABLED_SSE4_2) && has_features(kSse42)) {
    return TEV_CPU_MC3;
  }
  if (has_features(kSsse3)) {
    return TEV_CPU_MC;
  }
  return has_features(kSse2) ? TEV_CPU_DEF : -1;
}

// ---- The branch

// Type code by mode; -1 where no branch is in force.
int32_t branch_type(int32_t mode) {
  constexpr int8_t kTypes[] = {-1, -1, -1, 0, 0, 0, 2, 2, 3, 4, 5, 6, 7, 8};
  return mode < static_cast<int32_t>(std::size(kTypes)) ? kTypes[mode] : -1;
}

// Whether the processor has what tells a type code from the ones below it.
bool can_run(int32_t code) {
  switch (code) {
    case TEV_CPU_MC3:
      return has_features(kSse42);
    case TEV_CPU_AVX:
      return has_features(kAvx);
    case TEV_CPU_AVX2:
      return has_features(kAvx2Group);
    case TEV_CPU_AVX512_ZEL:
      return has_features(kAvx512ZelGroup);
    case TEV_CPU_AVX512:
      return has_features(kAvx512Group);
    case TEV_CPU_AVX512_ZEL_E1:
      return has_e1();
    default:
      return false;
  }
}

// Deliberate: the environment's ceiling is compared with the branch's type as if it were a type code, too. So a branch
// above ceiling 3, 4 or 5 gives way to the best tier, whether or not that ceiling was accepted. A ceiling that the
// program set works through the flags only.
int32_t pinned_tier(int32_t branch) {
  apply_environment_ceiling();
  const int32_t ceiling = load(environment_ceiling);
  return branch > ceiling && can_run(ceiling) ? best_tier() : branch;
}

// ---- The decision

struct candidate {
  int32_t code;  // of no tier: nothing can run
  bool forced;
  bool unknown_branch;
};

candidate find_candidate(int32_t mode) {
  if (const std::optional<int32_t> forced = forced_type()) {
    return {*forced, true, false};
  }
  if (mode == TEV_CBWR_OFF || mode == TEV_CBWR_AUTO) {
    return {best_tier(), false, false};
  }
  const int32_t branch = branch_type(mode);
  return tier_name(branch) ? candidate{pinned_tier(branch), false, false} : candidate{best_tier(), false, true};
}

// The two ends of the process. They return when the program's exit handler does.
void refuse_processor() {
  tev_serv_print(kStandardOutput, kProcessorTooOld, 0);
  tev_serv_print(kStandardOutput, kNeedsSse2, 0);
  tev_serv_exit(1);
}

void refuse_forced_type(int32_t code) {
  tev_serv_print(kStandardOutput, kProcessorNotSupported, 1, code);
  tev_serv_exit(1);
}

// Deliberate: E1 runs the kernels of the other many-core processors, so it is in force as their code.
int32_t in_force(int32_t code) { return code == TEV_CPU_AVX512_ZEL_E1 ? TEV_CPU_AVX512_ZEL : code; }

// Prints and ends the process only after the lock is released: exit handlers may ask for the tier.
int32_t decide_type() {
  tev_serv_lock(&TEV_Detect_Cpu_Global_Lock);
  const int32_t decided = load(type_code);
  const candidate found = decided >= 0 ? candidate{decided, false, false} : find_candidate(tev_serv_cbwr_get_nolock(1));
  const bool runs = tier_name(found.code) != nullptr;
  if (runs) {
    __atomic_store_n(&type_code, in_force(found.code), __ATOMIC_RELEASE);
  }
  tev_serv_unlock(&TEV_Detect_Cpu_Global_Lock);

  if (found.unknown_branch) {
    tev_serv_print(kStandardOutput, kReproducibilityIgnored, 0);
  }
  if (runs) {
    return in_force(found.code);
  }
  if (found.forced) {
    refuse_forced_type(found.code);
  } else {
    refuse_processor();
  }
  return found.code;
}

}  // namespace

const char* tier_name(int32_t code) {
  return code >= 0 && code < static_cast<int32_t>(std::size(kTierNames)) ? kTierNames[code] : nullptr;
}

int32_t processor_type() {
  const std::optional<int32_t> forced = forced_type();
  return forced ? *forced : best_tier();
}

}  // namespace tev::service

using namespace tev::service;

extern "C" {

int32_t tev_serv_cpu_detect(void) {
  const int32_t code = __atomic_load_n(&type_code, __ATOMIC_ACQUIRE);
  return code >= 0 ? code : decide_type();
}

int32_t tev_serv_get_cpu_type(int32_t detect) {
  if (detect == 0) {
    return __atomic_load_n(&type_code, __ATOMIC_ACQUIRE);
  }
  const int32_t code = processor_type();
  if (code < 0 && !forced_type()) {
    refuse_processor();
  }
  return code;
}

int32_t tev_serv_enable_instructions(int32_t ceiling) {
  scoped_lock guard(ceiling_lock);
  return set_ceiling(ceiling);
}

int32_t tev_serv_is_sse4_2_enabled(void) { return enabled(_ENABLED_SSE4_2); }
int32_t tev_serv_is_avx_enabled(void) { return enabled(_ENABLED_AVX); }
int32_t tev_serv_is_avx2_enabled(void) { return enabled(_ENABLED_AVX2); }
int32_t tev_serv_is_avx512_enabled(void) { return enabled(_ENABLED_AVX512); }
int32_t tev_serv_is_avx512_zel_enabled(void) { return enabled(_ENABLED_AVX512_ZEL); }
int32_t tev_serv_sngl_was_called(void) { return 0; }

}  // extern "C"
