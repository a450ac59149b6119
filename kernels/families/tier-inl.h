// SPDX-License-Identifier: BSD-3-Clause
// A tier's numbers and roster under the names that the families use. The last line of every tier.h includes it.
#pragma once

#include "kernels/families/names.h"
#include "kernels/families/simd-inl.h"

namespace tev::TEV_TIER {

inline constexpr int kVectorBytes = kTier.vector_bytes.value;
inline constexpr int kVectorRegisters = kTier.vector_registers.value;
inline constexpr bool kHasFma = kTier.fused_multiply_add.value;
inline constexpr bool kBranchesOnAddresses = kTier.branches_on_addresses.value;
inline constexpr bool kPeelsToAlignment = kTier.peels_to_alignment.value;
static_assert(kBranchesOnAddresses || !kPeelsToAlignment);
inline constexpr int32_t kApiVersion = kTier.api_version.value, kApiSupport = kTier.api_support.value;
inline constexpr bool kLargeStrips = kTier.large_strips.value;
inline constexpr int kStripsTogether = kTier.strips_together.value;
template <class R>
inline constexpr bool kRotatesB = sizeof(R) == 4 ? kTier.rotates_floats.value : kTier.rotates_doubles.value;
template <class T>
inline constexpr least_packed kLeastPacked = kTier.packs_from.value;

template <class T>
inline constexpr gemm_shape kGemm = {};
template <>
inline constexpr gemm_shape kGemm<float> = kTier.s.value;
template <>
inline constexpr gemm_shape kGemm<double> = kTier.d.value;
template <>
inline constexpr gemm_shape kGemm<tev_complex8> = kTier.c.value;
template <>
inline constexpr gemm_shape kGemm<tev_complex16> = kTier.z.value;
static_assert(is_complete(kGemm<float>) && is_complete(kGemm<double>) && is_complete(kGemm<tev_complex8>) &&
              is_complete(kGemm<tev_complex16>));

// Has T's precision what a row of the roster names?
template <class T>
inline constexpr char kLetter = sizeof(T) == alignof(T) ? (sizeof(T) == 4 ? 's' : 'd') : (sizeof(T) == 8 ? 'c' : 'z');
#define TEV_HAS_FOR_T(row) TEV_HAS_##row(kLetter<T> == 's', kLetter<T> == 'd', kLetter<T> == 'c', kLetter<T> == 'z')
// Kernels of fixed sizes that the sequential product may use: m = k = 6; 2 or 3 columns; k from 1 to 10.
template <class T>
inline constexpr bool kHasMeq6 = TEV_HAS_FOR_T(gemm_meq6);
template <class T>
inline constexpr bool kHasSmallN = TEV_HAS_FOR_T(gemm_t_smalln);
template <class T>
inline constexpr bool kHasFixedDepth = TEV_HAS_FOR_T(gemm_sm);
// Blocks of a two-dimensional partition with buffers and copies of their own.
template <class T>
inline constexpr bool kHasBdz = TEV_HAS_FOR_T(gemm_bdz_copies);
#undef TEV_HAS_FOR_T

}  // namespace tev::TEV_TIER
