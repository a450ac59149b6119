// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx: 256-bit vectors, multiply and add apart, 16 vector registers.
#pragma once

#define TEV_TIER avx
#include "kernels/families/gemm_shape.h"
#include "kernels/families/names.h"
#include "kernels/families/simd-inl.h"

namespace tev::avx {

inline constexpr int kVectorBytes = 32;
inline constexpr int kVectorRegisters = 16;
inline constexpr bool kPeelsToAlignment = false;
inline constexpr bool kHasFma = false;
inline constexpr int32_t kApiVersion = 1, kApiSupport = 1;  // what the drivers ask for
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
inline constexpr gemm_shape kGemm<float> = {16, 4, 256, 384, 256, 4992, 384, 256, 384, 16, 4};
template <>
inline constexpr gemm_shape kGemm<double> = {8, 4, 256, 384, 256, 4992, 192, 256, 192, 8, 4};
template <>
inline constexpr gemm_shape kGemm<tev_complex8> = {8, 2, 256, 384, 256, 4992, 192, 256, 192, 8, 2};
template <>
inline constexpr gemm_shape kGemm<tev_complex16> = {4, 2, 256, 384, 256, 2496, 96, 256, 96, 4, 2};

// Kernels of fixed sizes that the sequential product may use: m = k = 6; 2 or 3 columns; k from 1 to 10.
template <class T>
inline constexpr bool kHasMeq6 = sizeof(T) == alignof(T);
template <class T>
inline constexpr bool kHasSmallN = false;
template <class T>
inline constexpr bool kHasFixedDepth = true;

template <class T>
inline constexpr least_packed kLeastPacked = {72, 56, 105};

}  // namespace tev::avx
