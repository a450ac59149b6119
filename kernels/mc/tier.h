// SPDX-License-Identifier: BSD-3-Clause
// kernels/mc: 128-bit vectors, SSSE3, multiply and add apart.
#pragma once

#define TEV_TIER mc
#include "kernels/families/gemm_shape.h"
#include "kernels/families/names.h"
#include "kernels/families/simd-inl.h"

namespace tev::mc {

inline constexpr int kVectorBytes = 16;
inline constexpr int kVectorRegisters = 16;
inline constexpr bool kPeelsToAlignment = true;
inline constexpr bool kHasFma = false;
inline constexpr int32_t kApiVersion = 1, kApiSupport = 1;  // what the drivers ask for
inline constexpr bool kBdzOnlyInDouble = false;

// A strip of A stays in the first cache.
inline constexpr bool kLargeStrips = false;
// Strips of A that share a register tile.
inline constexpr int kStripsTogether = 1;
// A broadcast of floats takes a shuffle: rotate rows of B instead.
template <class R>
inline constexpr bool kRotatesB = sizeof(R) == 4;

// mr nr, t1 t2, kc mc nc, wide kc nc, in place mr nr: gemm_shape.h says what each is.
template <class T>
inline constexpr gemm_shape kGemm = {};
template <>
inline constexpr gemm_shape kGemm<float> = {8, 4, 256, 384, 256, 4992, 384, 256, 384, 8, 4};
template <>
inline constexpr gemm_shape kGemm<double> = {4, 4, 256, 384, 256, 4992, 192, 256, 192, 4, 4};
template <>
inline constexpr gemm_shape kGemm<tev_complex8> = {4, 2, 256, 384, 256, 4992, 192, 256, 192, 4, 2};
template <>
inline constexpr gemm_shape kGemm<tev_complex16> = {2, 2, 256, 384, 256, 2496, 96, 256, 96, 2, 2};

// Kernels of fixed sizes that the sequential product may use: m = k = 6; 2 or 3 columns; k from 1 to 10.
template <class T>
inline constexpr bool kHasMeq6 = false;
template <class T>
inline constexpr bool kHasSmallN = false;
template <class T>
inline constexpr bool kHasFixedDepth = true;

template <class T>
inline constexpr least_packed kLeastPacked = {40, 40, 64};

}  // namespace tev::mc
