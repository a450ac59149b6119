// SPDX-License-Identifier: BSD-3-Clause
// The processor's features as one word, filled once. Every test reads the word, and fills it if it is still zero.
#pragma once

#include <cstdint>

namespace tev::service {

inline constexpr uint64_t kInitialised = 0x1;
inline constexpr uint64_t kFpu = 0x2;
inline constexpr uint64_t kCmov = 0x4;
inline constexpr uint64_t kMmx = 0x8;
inline constexpr uint64_t kFxsave = 0x10;
inline constexpr uint64_t kSse = 0x20;
inline constexpr uint64_t kSse2 = 0x40;
inline constexpr uint64_t kSse3 = 0x80;
inline constexpr uint64_t kSsse3 = 0x100;
inline constexpr uint64_t kSse41 = 0x200;
inline constexpr uint64_t kSse42 = 0x400;
inline constexpr uint64_t kMovbe = 0x800;
inline constexpr uint64_t kPopcnt = 0x1000;
inline constexpr uint64_t kPclmulqdq = 0x2000;
inline constexpr uint64_t kAes = 0x4000;
inline constexpr uint64_t kF16c = 0x8000;
inline constexpr uint64_t kAvx = 0x10000;
inline constexpr uint64_t kRdrand = 0x20000;
inline constexpr uint64_t kFma = 0x40000;
inline constexpr uint64_t kBmi = 0x80000;  // BMI1 and BMI2
inline constexpr uint64_t kLzcnt = 0x100000;
inline constexpr uint64_t kHle = 0x200000;
inline constexpr uint64_t kRtm = 0x400000;
inline constexpr uint64_t kAvx2 = 0x800000;
inline constexpr uint64_t kAvx512Dq = 0x1000000;
inline constexpr uint64_t kAvx512F = 0x8000000;
inline constexpr uint64_t kAdx = 0x10000000;
inline constexpr uint64_t kRdseed = 0x20000000;
inline constexpr uint64_t kAvx512Ifma = 0x40000000;
inline constexpr uint64_t kSmallCore = 0x80000000;
inline constexpr uint64_t kAvx512Er = 0x100000000;
inline constexpr uint64_t kAvx512Pf = 0x200000000;
inline constexpr uint64_t kAvx512Cd = 0x400000000;
inline constexpr uint64_t kSha = 0x800000000;
inline constexpr uint64_t kMpx = 0x1000000000;
inline constexpr uint64_t kAvx512Bw = 0x2000000000;
inline constexpr uint64_t kAvx512Vl = 0x4000000000;
inline constexpr uint64_t kAvx512Vbmi = 0x8000000000;

// What a tier needs.
inline constexpr uint64_t kAvx2Group = 0x9C2000;          // PCLMULQDQ, FMA, BMI, LZCNT, AVX2
inline constexpr uint64_t kAvx512Group = 0x6009000000;    // F, DQ, BW, VL
inline constexpr uint64_t kAvx512ZelGroup = 0x708000000;  // F, ER, PF, CD

// True when the processor has all features of the mask.
bool has_features(uint64_t mask);

// The many-core processors' E1 extensions, which are not in the word.
bool has_e1();

// One leaf of CPUID; zeros when the processor does not report it.
struct cpuid_leaf {
  uint32_t eax, ebx, ecx, edx;
};
cpuid_leaf read_leaf(uint32_t leaf, uint32_t subleaf);

}  // namespace tev::service

extern "C" {

extern uint64_t __zarik_tev_feature_indicator_x;  // zero until filled
void __zarik_tev_features_init_x(void);

}  // extern "C"
