// SPDX-License-Identifier: BSD-3-Clause
// The packed product of a tier, for routines beside it: the templates of gemm_driver-inl.h are compiled once, with the
// product itself (exports/gemm.inc), and only named here.
#pragma once

#include "kernels/families/gemm_driver-inl.h"

namespace tev::TEV_TIER {

#define TEV_COMPILED_WITH_THE_PRODUCT(T)                                                                            \
  extern template void initialize_packed_info<T>(const operand*, const operand*, const strategy*, kernel_info<T>*); \
  extern template void ker0<T>(const int64_t*, const T*, const T*, const T*, const operand*);
TEV_COMPILED_WITH_THE_PRODUCT(float)
TEV_COMPILED_WITH_THE_PRODUCT(double)
TEV_COMPILED_WITH_THE_PRODUCT(tev_complex8)
TEV_COMPILED_WITH_THE_PRODUCT(tev_complex16)
#undef TEV_COMPILED_WITH_THE_PRODUCT

// Triangles and what meets them stay unpacked below this size on 512-bit vectors, as far as their products do;
// transposed ones below the smaller size from which a product packs such an operand.
inline constexpr int64_t kUnpackedBoth = kVectorBytes == 64 ? kBothPlain<double> : 0;
inline constexpr int64_t kUnpackedTransposed = kVectorBytes == 64 ? kLeastPacked<double>.both : 0;

// Where no product is packed, a triangle is halved. Order of its first half: whole blocks, more than half of them if
// they do not divide.
TEV_INLINE int64_t first_half(int64_t order, int64_t block) { return (order / 2 + block - 1) / block * block; }

// The records of a packed product of op's operands.
template <class T>
TEV_INLINE void packed_info_of(const operation<T>& op, kernel_info<T>* info) {
  strategy plan;
  initialize_strategy<T>(&plan);
  initialize_packed_info<T>(&op.a, &op.b, &plan, info);
}

}  // namespace tev::TEV_TIER
