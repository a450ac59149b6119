// SPDX-License-Identifier: BSD-3-Clause
// Kernel information of the operations around a product: which routines an operation has beyond those of gemm.
//
//   operation   copies                         kernel        scaling        driver                  without buffers
//   gemm        op(A), op(B)                   tile          all of C       by strategy             gemm_nocopy_driver
//   symm        symm_copy_*, B as it lies      tile          all of C       by strategy             symm_nobufs
//   syrk        op(A), op(A)^T                 syrk_*_ker0   a triangle     x?syrk_*copybcopy       syrk_nobufs
//   syr2k       those of syrk for each half                               both halves             syr2k_nobufs
//   trmm, trsm  trxm_copy_*, lines of B        tr?m_kernel_  all of B; the  x?tr?m_*_fullacopybcopy blocks on the stack
//                                                            diagonal
//
// Hermitian results and operands have the rows of their symmetric twins. Operands stand in the order of the product:
// from the right, the symmetric or triangular one is the second. Its copy mode says which triangle is stored; that of
// the result says it for syrk. trmm and trsm work in place: C is B.
#pragma once

#include "kernels/families/gemm_driver-inl.h"
#include "kernels/families/symmetric-inl.h"
#include "kernels/triangle_routines.h"

namespace tev::TEV_TIER {

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void use_symmetric(const operation<T>* op, const operand* symmetric, kernel_info<T>* info) {
  const bool left = op->from_right == 0;
  (left ? info->copy_a : info->copy_b) = symmetric_copy<kHermitian, T>(left, stored_triangle(symmetric) == 'U');
  info->fallback = info->pst = symm_nobufs_driver<kHermitian, T, Gemm>;
  if (info->plan.strategy_code == kNoCopy) info->driver = info->fallback;
}

// `info` holds the row of gemm.
template <class T, kernels::gemm_fn<T>* Gemm, kernel_row_fn<T>* RankK, kernel_row_fn<T>* Rank2k, kernel_row_fn<T>* Trmm,
          kernel_row_fn<T>* Trsm>
TEV_INLINE void use_operation(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                              kernel_info<T>* info) {
  const operand* const symmetric = op->from_right != 0 ? b : a;
  switch (op->code) {
    case kOpSymm:
      if constexpr (kComplex<T>)
        if (symmetric->copy_mode & kCopyHermitian) return use_symmetric<true, T, Gemm>(op, symmetric, info);
      return use_symmetric<false, T, Gemm>(op, symmetric, info);
    case kOpSyrk:
      return RankK(op, a, b, c, info);
    case kOpSyr2k:
      return Rank2k(op, a, b, c, info);
    case kOpTrmm:
      return Trmm(op, a, b, c, info);
    case kOpTrsm:
      return Trsm(op, a, b, c, info);
    default:
      return;
  }
}

}  // namespace tev::TEV_TIER
