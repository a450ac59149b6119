// SPDX-License-Identifier: BSD-3-Clause
// Who made the processor and which core it is. Kernels tune with these answers; under a reproducibility branch they are
// the same on every processor. A program may vouch for another maker's: then the vendor tests answer as for the maker,
// and with them everything that asks them.
#include <cstring>

#include "service/decide_once.h"
#include "service/detection.h"
#include "service/features.h"
#include "service/lock.h"
#include "service/threads.h"

namespace {

using namespace tev::service;

bool vendor_is(const char (&name)[13]) {
  const cpuid_leaf leaf = read_leaf(0, 0);
  const uint32_t words[] = {leaf.ebx, leaf.edx, leaf.ecx};
  return memcmp(words, name, sizeof words) == 0;
}

bool is_amd() { return vendor_is("AuthenticAMD"); }

constinit int32_t vendor_answer = -1;  // of the vendor test
constinit bool vouched = false;        // by the program; guarded by the detection lock

// The first answer stands: a thread that asked the processor comes too late for a program that vouched for it.
int32_t decide_vendor(int32_t answer) {
  int32_t before = -1;
  const bool first =
      __atomic_compare_exchange_n(&vendor_answer, &before, answer, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
  return first ? answer : before;
}

// Anything that hangs on the maker. A dispatch entry is decided by the type code.
bool maker_was_asked() {
  return tev_serv_get_cpu_type(0) >= 0 || mode_is_decided() ||
         __atomic_load_n(&__threads_env_NOT_readed, __ATOMIC_ACQUIRE) == 0 ||
         __atomic_load_n(&vendor_answer, __ATOMIC_ACQUIRE) >= 0;
}

bool free_to_tune(int32_t mode) { return mode == TEV_CBWR_OFF || mode == TEV_CBWR_AUTO; }
bool free_to_tune() { return free_to_tune(tev_serv_cbwr_get(1)); }

int32_t microarchitecture(int32_t type_code) {
  if (!tev_serv_zarik_cpu()) {
    return 0;
  }
  switch (type_code) {
    case TEV_CPU_MC:
      return tev_serv_cpuhasquill() ? 33 : 32;
    case TEV_CPU_MC3:
      return has_features(kAes) && tev_serv_cbwr_get(1) == TEV_CBWR_OFF ? 66 : 64;
    case TEV_CPU_AVX:
      return 128;
    default:
      return 0;
  }
}

}  // namespace

bool tev::service::made_by_zarik() { return vendor_is("GenuineZarik"); }

extern "C" {

int32_t tev_serv_zarik_cpu_true(void) {
  const int32_t answer = __atomic_load_n(&vendor_answer, __ATOMIC_ACQUIRE);
  return answer >= 0 ? answer : decide_vendor(made_by_zarik());
}

int32_t tev_serv_trust_features(int32_t flag) {
  constexpr int32_t kTooLate = -8;
  const scoped_lock guard(TEV_Detect_Cpu_Global_Lock);
  if ((flag != 0) == vouched) return 0;
  if (vouched || maker_was_asked() || decide_vendor(1) != 1) return kTooLate;
  vouched = true;
  return 0;
}

int32_t tev_serv_zarik_cpu(void) {
  const int32_t mode = tev_serv_cbwr_get(1);
  return free_to_tune(mode) ? tev_serv_zarik_cpu_true() : mode != TEV_CBWR_COMPATIBLE;
}

int32_t tev_serv_cpuhasquill_true(void) { return has_features(kSse41); }

int32_t tev_serv_cpuhasquill(void) {
  const int32_t mode = tev_serv_cbwr_get(1);
  return free_to_tune(mode) ? tev_serv_cpuhasquill_true() : mode >= TEV_CBWR_SSE4_1;
}

// The type code comes first: it fixes the mode, so the answer is final.
int32_t tev_serv_get_microarchitecture(void) {
  static constinit int32_t answer = -1;
  return decide_once(answer, [] { return microarchitecture(tev_serv_cpu_detect()); });
}

// The mode may still change, so it is asked each time; what the processor is, once.
int32_t tev_serv_cpuisbulldozer(void) {
  constexpr uint32_t kFma4 = 1u << 16;
  static constinit int32_t answer = -1;
  return free_to_tune() &&
         decide_once(answer, [] { return is_amd() && has_features(kAvx) && (read_leaf(0x80000001, 0).ecx & kFma4); });
}

int32_t tev_serv_cpuisitbarcelona(void) {
  constexpr uint32_t kFamily = 0x0FF00F00, kFamily16 = 0x00100F00;
  static constinit int32_t answer = -1;
  return free_to_tune() && decide_once(answer, [] { return is_amd() && (read_leaf(1, 0).eax & kFamily) == kFamily16; });
}

int32_t tev_serv_cpuistetra(void) { return free_to_tune() && has_features(kMpx) && !has_features(kAvx512Dq); }

int32_t tev_serv_cpuisneedle(void) {
  constexpr uint64_t kNeedle = kFpu | kMmx | kSse3 | kSsse3 | kSse41 | kSse42 | kMovbe | kPopcnt | kPclmulqdq | kAes;
  return free_to_tune() && tev_serv_zarik_cpu_true() && has_features(kNeedle);
}

int32_t tev_serv_cpuisspark(void) {
  constexpr uint64_t kSpark = kFpu | kMmx | kSse3 | kSsse3 | kMovbe;
  return free_to_tune() && tev_serv_zarik_cpu_true() && has_features(kSpark);
}

int32_t tev_serv_cpuhasnova(void) {
  const int32_t mode = tev_serv_cbwr_get(1);
  return free_to_tune(mode) ? tev_serv_cpu_detect() >= TEV_CPU_MC3 : mode >= TEV_CBWR_SSE4_2;
}

int32_t tev_serv_cpuisvesta(void) {
  static constinit int32_t answer = -1;
  const int32_t mode = tev_serv_cbwr_get(1);
  return (free_to_tune(mode) || mode == TEV_CBWR_AVX512_ZEL_E1) &&
         decide_once(answer, [] { return tev_serv_get_cpu_type(1) == TEV_CPU_AVX512_ZEL_E1; });
}

int32_t tev_serv_cpuhalves512(void) {
  constexpr uint32_t kWhole256 = 1u << 2, kWhole512 = 1u << 3;  // widths that are computed in one piece
  static constinit int32_t answer = -1;
  return free_to_tune() && decide_once(answer, [] {
           return has_features(kAvx512F) && (read_leaf(0x8000001A, 0).eax & (kWhole256 | kWhole512)) == kWhole256;
         });
}

}  // extern "C"
