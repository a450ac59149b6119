// SPDX-License-Identifier: BSD-3-Clause
// The reproducibility mode: TEV_CBWR or the program chooses it until the processor's type code is decided.
#include <cstring>

#include "service/detection.h"
#include "service/features.h"
#include "service/lock.h"
#include "service/settings.h"

namespace {

using tev::service::scoped_lock;

// Both written with the detection lock held; tev_cbwr first.
constinit int32_t tev_cbwr = 0;   // the mode as stored, 0 for off
constinit int32_t env_read = -1;  // where it comes from
constexpr int32_t kUndecided = -1, kChosenByProgram = 0,
                  kOpen = 1;  // kOpen: from TEV_CBWR or off, still free to change

void store_mode(int32_t mode, int32_t source) {
  __atomic_store_n(&tev_cbwr, mode, __ATOMIC_RELAXED);
  __atomic_store_n(&env_read, source, __ATOMIC_RELEASE);
}

bool undecided() { return __atomic_load_n(&env_read, __ATOMIC_ACQUIRE) == kUndecided; }

int32_t stored_mode() { return __atomic_load_n(&tev_cbwr, __ATOMIC_RELAXED); }

int32_t effective_mode() {
  const int32_t mode = stored_mode();
  return mode == 0 ? TEV_CBWR_OFF : mode & 0x3F;
}

// The best branch of one of the maker's processors.
int32_t automatic_branch(int32_t type_code) {
  switch (type_code) {
    case 0:
    case 1:
      return TEV_CBWR_SSE2;
    case TEV_CPU_MC:
      return tev_serv_cpuhasquill_true() ? TEV_CBWR_SSE4_1 : TEV_CBWR_SSSE3;
    case TEV_CPU_MC3:
      return TEV_CBWR_SSE4_2;
    case TEV_CPU_AVX:
      return TEV_CBWR_AVX;
    case TEV_CPU_AVX2:
      return TEV_CBWR_AVX2;
    case TEV_CPU_AVX512_ZEL:
      return TEV_CBWR_AVX512_ZEL;
    case TEV_CPU_AVX512:
      return TEV_CBWR_AVX512;
    case TEV_CPU_AVX512_ZEL_E1:
      return TEV_CBWR_AVX512_ZEL_E1;
    default:
      return -4;
  }
}

// With the detection lock held. The two kinds of AVX-512 exclude each other, though their numbers are in order.
bool available(int32_t mode) {
  if (!tev_serv_zarik_cpu_true()) {
    return mode <= TEV_CBWR_COMPATIBLE;
  }
  const int32_t automatic = automatic_branch(tev::service::processor_type());
  return mode <= automatic && !(mode == TEV_CBWR_AVX512_ZEL && automatic == TEV_CBWR_AVX512) &&
         !(mode == TEV_CBWR_AVX512 && automatic == TEV_CBWR_AVX512_ZEL_E1);
}

// Mode of a value of TEV_CBWR. Deliberate: SSE3 has no branch of its own.
int32_t parse_mode(const char* value) {
  constexpr struct {
    const char* name;
    int32_t mode;
  } kBranches[] = {
      {"AUTO", TEV_CBWR_AUTO},
      {"COMPATIBLE", TEV_CBWR_COMPATIBLE},
      {"SSE2", TEV_CBWR_SSE2},
      {"SSE3", TEV_CBWR_SSE2},
      {"SSSE3", TEV_CBWR_SSSE3},
      {"SSE4_1", TEV_CBWR_SSE4_1},
      {"SSE4_2", TEV_CBWR_SSE4_2},
      {"AVX", TEV_CBWR_AVX},
      {"AVX2", TEV_CBWR_AVX2},
      {"AVX512", TEV_CBWR_AVX512},
      {"AVX512_ZEL", TEV_CBWR_AVX512_ZEL},
      {"AVX512_ZEL_E1", TEV_CBWR_AVX512_ZEL_E1},
  };
  constexpr char kPrefix[] = "BRANCH=";
  const char* name = strncmp(value, kPrefix, sizeof kPrefix - 1) == 0 ? value + sizeof kPrefix - 1 : value;
  for (const auto& branch : kBranches) {
    if (strcmp(name, branch.name) == 0) {
      return available(branch.mode) ? branch.mode : TEV_CBWR_AUTO;
    }
  }
  return TEV_CBWR_AUTO;
}

int32_t mode_from_environment() {
  const tev::service::setting_value<tev::service::setting::TEV_CBWR> value;
  return value.length > 0 ? parse_mode(value.text) : 0;
}

}  // namespace

bool tev::service::mode_is_decided() { return !undecided(); }

extern "C" {

int32_t tev_serv_cbwr_get_nolock(int32_t query) {
  if (query == -1) {
    return stored_mode();
  }
  if (query != 1) {
    return -2;
  }
  if (undecided()) {
    store_mode(mode_from_environment(), kOpen);
  }
  return effective_mode();
}

int32_t tev_serv_cbwr_get(int32_t query) {
  if (query != 1 || !undecided()) {
    return tev_serv_cbwr_get_nolock(query);
  }
  scoped_lock guard(TEV_Detect_Cpu_Global_Lock);
  return tev_serv_cbwr_get_nolock(query);
}

int32_t tev_serv_cbwr_set(int32_t mode) {
  constexpr int32_t kTooLate = -8, kNotAvailable = -3, kInvalid = -4;
  const bool off = mode == 0 || mode == TEV_CBWR_OFF;
  const int32_t wanted = off ? 0 : mode & 0x3F;

  scoped_lock guard(TEV_Detect_Cpu_Global_Lock);
  if (tev_serv_get_cpu_type(0) >= 0 || env_read == kChosenByProgram) {
    return wanted == tev_cbwr ? 0 : kTooLate;
  }
  if (off) {
    store_mode(0, kOpen);
    return 0;
  }
  if (wanted < TEV_CBWR_AUTO || wanted > TEV_CBWR_AVX512_ZEL_E1) {
    return kInvalid;
  }
  if (wanted != TEV_CBWR_AUTO && !available(wanted)) {
    return kNotAvailable;
  }
  store_mode(wanted, kChosenByProgram);
  return 0;
}

int32_t tev_serv_cbwr_get_auto_branch(void) {
  return tev_serv_zarik_cpu_true() ? automatic_branch(tev_serv_get_cpu_type(1)) : TEV_CBWR_AUTO;
}

}  // extern "C"
