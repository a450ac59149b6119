// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx2: 256-bit vectors, fused multiply-add, 16 vector registers.
#pragma once

#define TEV_TIER avx2
#include "kernels/families/gemm_shape.h"
#include "kernels/families/names.h"
#include "kernels/families/simd-inl.h"

namespace tev::avx2 {

inline constexpr int kVectorBytes = 32;
inline constexpr int kVectorRegisters = 16;
inline constexpr bool kPeelsToAlignment = false;
inline constexpr bool kHasFma = true;
inline constexpr int32_t kApiVersion = 2, kApiSupport = 4;  // what the drivers ask for
inline constexpr bool kBdzOnlyInDouble = false;

// A strip of A stays in the first cache.
inline constexpr bool kLargeStrips = false;
// Strips of A that share a register tile.
inline constexpr int kStripsTogether = 1;
// Broadcasts come with the load.
template <class R>
inline constexpr bool kRotatesB = false;

// mr nr, t1 t2, kc mc nc, wide kc nc, in place mr nr: gemm_shape.h says what each is.
template <class T>
inline constexpr gemm_shape kGemm = {};
template <>
inline constexpr gemm_shape kGemm<float> = {24, 4, 256, 384, 192, 10000, 384, 192, 384, 16, 6};
template <>
inline constexpr gemm_shape kGemm<double> = {12, 4, 256, 384, 192, 5000, 192, 192, 192, 8, 6};
template <>
inline constexpr gemm_shape kGemm<tev_complex8> = {12, 2, 256, 384, 192, 5000, 192, 192, 192, 12, 2};
template <>
inline constexpr gemm_shape kGemm<tev_complex16> = {6, 2, 256, 384, 192, 2500, 96, 192, 96, 6, 2};

// Kernels of fixed sizes that the sequential product may use: m = k = 6; 2 or 3 columns; k from 1 to 10.
template <class T>
inline constexpr bool kHasMeq6 = sizeof(T) == alignof(T);
template <class T>
inline constexpr bool kHasSmallN = false;
template <class T>
inline constexpr bool kHasFixedDepth = sizeof(T) == 2 * alignof(T);

template <class T>
inline constexpr least_packed kLeastPacked = {72, 56, 193};

}  // namespace tev::avx2
