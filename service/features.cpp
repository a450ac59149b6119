// SPDX-License-Identifier: BSD-3-Clause
// The features as the processor reports them in CPUID, less those whose registers the operating system does not save:
// XCR0 tells which it does.
#include "service/features.h"

#include "service/cpuid.h"
#include "service/decide_once.h"

extern "C" {
constinit uint64_t __zarik_tev_feature_indicator_x = 0;
}

namespace tev::service {

namespace {

// What the processor says, and what the operating system has switched on.
struct report {
  uint32_t leaf1_edx, leaf1_ecx;  // 0 without FXSAVE
  uint32_t leaf7_ebx, leaf7_ecx;
  uint32_t extended_ecx;  // leaf 0x80000001
  uint64_t xcr0;          // 0 without OSXSAVE
  uint32_t model;
};

constexpr uint32_t bit(int position) { return 1u << position; }

report read_report() {
  const cpuid_leaf leaf1 = read_leaf(1, 0), leaf7 = read_leaf(7, 0);
  const bool fxsave = leaf1.edx & bit(24), osxsave = leaf1.ecx & bit(27);
  return {fxsave ? leaf1.edx : 0,
          fxsave ? leaf1.ecx : 0,
          leaf7.ebx,
          leaf7.ecx,
          read_leaf(0x80000001, 0).ecx,
          osxsave ? processor.xcr0() : 0,
          (leaf1.eax >> 16 & 0xF) << 4 | (leaf1.eax >> 4 & 0xF)};
}

// What of XCR0 a feature needs.
constexpr uint64_t kAnyState = 0, kAvxState = 0x6, kMpxState = 0x18, kAvx512State = 0xE0;

struct row {
  uint64_t feature;
  uint32_t report::*source;
  uint32_t bits;
  uint64_t state;
};

constexpr row kRows[] = {
    {kFpu, &report::leaf1_edx, bit(0), kAnyState},           {kCmov, &report::leaf1_edx, bit(15), kAnyState},
    {kMmx, &report::leaf1_edx, bit(23), kAnyState},          {kFxsave, &report::leaf1_edx, bit(24), kAnyState},
    {kSse, &report::leaf1_edx, bit(25), kAnyState},          {kSse2, &report::leaf1_edx, bit(26), kAnyState},

    {kSse3, &report::leaf1_ecx, bit(0), kAnyState},          {kPclmulqdq, &report::leaf1_ecx, bit(1), kAnyState},
    {kSsse3, &report::leaf1_ecx, bit(9), kAnyState},         {kFma, &report::leaf1_ecx, bit(12), kAvxState},
    {kSse41, &report::leaf1_ecx, bit(19), kAnyState},        {kSse42, &report::leaf1_ecx, bit(20), kAnyState},
    {kMovbe, &report::leaf1_ecx, bit(22), kAnyState},        {kPopcnt, &report::leaf1_ecx, bit(23), kAnyState},
    {kAes, &report::leaf1_ecx, bit(25), kAnyState},          {kAvx, &report::leaf1_ecx, bit(28), kAvxState},
    {kF16c, &report::leaf1_ecx, bit(29), kAvxState},         {kRdrand, &report::leaf1_ecx, bit(30), kAnyState},

    {kBmi, &report::leaf7_ebx, bit(3) | bit(8), kAnyState},  {kHle, &report::leaf7_ebx, bit(4), kAnyState},
    {kAvx2, &report::leaf7_ebx, bit(5), kAvxState},          {kRtm, &report::leaf7_ebx, bit(11), kAnyState},
    {kMpx, &report::leaf7_ebx, bit(14), kMpxState},          {kAvx512F, &report::leaf7_ebx, bit(16), kAvx512State},
    {kAvx512Dq, &report::leaf7_ebx, bit(17), kAvx512State},  {kRdseed, &report::leaf7_ebx, bit(18), kAnyState},
    {kAdx, &report::leaf7_ebx, bit(19), kAnyState},          {kAvx512Ifma, &report::leaf7_ebx, bit(21), kAvx512State},
    {kAvx512Pf, &report::leaf7_ebx, bit(26), kAvx512State},  {kAvx512Er, &report::leaf7_ebx, bit(27), kAvx512State},
    {kAvx512Cd, &report::leaf7_ebx, bit(28), kAvx512State},  {kSha, &report::leaf7_ebx, bit(29), kAnyState},
    {kAvx512Bw, &report::leaf7_ebx, bit(30), kAvx512State},  {kAvx512Vl, &report::leaf7_ebx, bit(31), kAvx512State},

    {kAvx512Vbmi, &report::leaf7_ecx, bit(1), kAvx512State},

    {kLzcnt, &report::extended_ecx, bit(5), kAnyState},
};

bool is_small_core(uint32_t model) { return model == 28 || model == 38 || model == 39; }

}  // namespace

cpuid_leaf read_leaf(uint32_t leaf, uint32_t subleaf) {
  constexpr uint32_t kExtended = 0x80000000;
  uint32_t registers[4];
  processor.cpuid(leaf & kExtended, 0, registers);  // the last leaf of the range
  if (registers[0] < leaf) {
    return {};
  }
  processor.cpuid(leaf, subleaf, registers);
  return {registers[0], registers[1], registers[2], registers[3]};
}

bool has_features(uint64_t mask) {
  uint64_t word = __atomic_load_n(&__zarik_tev_feature_indicator_x, __ATOMIC_RELAXED);
  if (word == 0) {
    __zarik_tev_features_init_x();
    word = __atomic_load_n(&__zarik_tev_feature_indicator_x, __ATOMIC_RELAXED);
  }
  return (word & mask) == mask;
}

bool has_e1() {
  static constinit int32_t answer = -1;
  return decide_once(answer, [] {
           constexpr uint32_t kE1 = bit(2) | bit(3);
           return (read_leaf(7, 0).edx & kE1) == kE1;
         }) != 0;
}

}  // namespace tev::service

// Threads that get here at the same time store the same word.
extern "C" void __zarik_tev_features_init_x(void) {
  using namespace tev::service;
  const report found = read_report();
  uint64_t word = kInitialised;
  for (const row& r : kRows) {
    if ((found.*r.source & r.bits) == r.bits && (found.xcr0 & r.state) == r.state) {
      word |= r.feature;
    }
  }
  if (is_small_core(found.model)) {
    word |= kSmallCore;
  }
  __atomic_store_n(&__zarik_tev_feature_indicator_x, word, __ATOMIC_RELAXED);
}
