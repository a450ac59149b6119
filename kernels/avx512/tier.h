// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx512: 512-bit vectors (F, DQ, BW, VL), fused multiply-add, 32 vector registers.
#pragma once

#define TEV_TIER avx512
#include "kernels/families/gemm_shape.h"
#include "kernels/families/names.h"
#include "kernels/families/simd-inl.h"

namespace tev::avx512 {

inline constexpr int kVectorBytes = 64;
inline constexpr int kVectorRegisters = 32;
inline constexpr bool kPeelsToAlignment = false;
inline constexpr bool kHasFma = true;
inline constexpr int32_t kApiVersion = 2, kApiSupport = 4;  // what the drivers ask for
inline constexpr bool kBdzOnlyInDouble = false;

// A strip of A as deep as a panel outgrows the first cache: fetch ahead.
inline constexpr bool kLargeStrips = true;
// Strips of A that share a register tile.
inline constexpr int kStripsTogether = 1;
// Broadcasts come with the load.
template <class R>
inline constexpr bool kRotatesB = false;

// mr nr, t1 t2, kc mc nc, wide kc nc, in place mr nr: gemm_shape.h says what each is.
template <class T>
inline constexpr gemm_shape kGemm = {};
template <>
inline constexpr gemm_shape kGemm<float> = {48, 8, 384, 768, 384, 9984, 384, 384, 384, 48, 8};
template <>
inline constexpr gemm_shape kGemm<double> = {24, 8, 384, 768, 384, 4992, 192, 384, 192, 24, 8};
template <>
inline constexpr gemm_shape kGemm<tev_complex8> = {24, 4, 384, 768, 384, 4992, 192, 384, 192, 24, 4};
template <>
inline constexpr gemm_shape kGemm<tev_complex16> = {12, 4, 384, 768, 384, 2496, 96, 384, 96, 12, 4};

// Kernels of fixed sizes that the sequential product may use: m = k = 6; 2 or 3 columns; k from 1 to 10.
template <class T>
inline constexpr bool kHasMeq6 = false;
template <class T>
inline constexpr bool kHasSmallN = sizeof(T) == alignof(T);
template <class T>
inline constexpr bool kHasFixedDepth = sizeof(T) == 2 * alignof(T);

template <class T>
inline constexpr least_packed kLeastPacked = {72, 56, 193};

}  // namespace tev::avx512
