// SPDX-License-Identifier: BSD-3-Clause
// Kernel information of the operations around a product. A row says which routines an operation has beyond those of
// gemm; where it says none, its driver computes the whole operation by the tier's routine, and a framework of its own
// puts its routines there.
//
//   operation   copies                          ker0   mscale      driver               fallback, pst
//   gemm        op(A), op(B)                    tile   all of C    by strategy          without copies
//   symm        symm_copy_*, B as it lies       tile   all of C    by strategy          without copies
//   syrk        op(A), op(A)^T                  none   a triangle  x?syrk               x?syrk
//   trmm, trsm  none (triangle), B as it lies   none   all of B    x?trmm, x?trsm       x?trmm, x?trsm
//
// Operands stand in the order of the product: from the right, the symmetric or triangular one is the second. Its copy
// mode says which triangle is stored; that of the result says it for syrk. trmm and trsm work in place: C is B.
#pragma once

#include "kernels/families/gemm_driver-inl.h"
#include "kernels/families/symmetric-inl.h"

namespace tev::TEV_TIER {

template <class T, kernels::syrk_fn<T>* Syrk>
int32_t syrk_driver(const operation<T>* op, const operand* a, const operand*, const operand* c, buffers*,
                    const kernel_info<T>*) {
  const char uplo = stored_triangle(c), trans = letter_of(op->op_a);
  Syrk(&uplo, &trans, &c->rows, &a->columns, &op->alpha, static_cast<const T*>(a->data), &a->ld, &op->beta,
       static_cast<T*>(c->data), &c->ld, 0, 0);
  return 0;
}

template <class T, kernels::triangular_fn<T>* Routine>
int32_t triangular_driver(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers*,
                          const kernel_info<T>*) {
  const operand* triangle = op->from_right != 0 ? b : a;
  const char side = op->from_right != 0 ? 'R' : 'L', uplo = stored_triangle(triangle);
  const char trans = stored_transposition(triangle), diag = stored_diagonal(triangle);
  Routine(&side, &uplo, &trans, &diag, &c->rows, &c->columns, &op->alpha, static_cast<const T*>(triangle->data),
          &triangle->ld, static_cast<T*>(c->data), &c->ld);
  return 0;
}

// C := beta C in the triangle that its copy mode names.
template <class T>
void mscale_triangle(const operand* c, const T* beta) {
  const bool upper = stored_triangle(c) == 'U';
  for (int64_t j = 0; j < c->columns; ++j) {
    const int64_t i = upper ? 0 : j;
    mscale<T>(upper ? j + 1 : c->rows - j, 1, *beta, static_cast<T*>(c->data) + i + j * c->ld, c->ld);
  }
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void use_symmetric(const operation<T>* op, const operand* symmetric, kernel_info<T>* info) {
  const bool left = op->from_right == 0;
  (left ? info->copy_a : info->copy_b) = symmetric_copy<kHermitian, T>(left, stored_triangle(symmetric) == 'U');
  info->fallback = info->pst = symm_nobufs_driver<kHermitian, T, Gemm>;
  if (info->plan.strategy_code == kNoCopy) info->driver = info->fallback;
}

// The operation is one routine: nothing of the packed product but the copies in `info` takes part.
template <class T>
TEV_INLINE void use_one_routine(driver_fn<T>* driver, kernel_info<T>* info) {
  info->driver = info->fallback = info->pst = driver;
  info->packed_product = nullptr;
  info->ker0 = nullptr;
}

// `info` holds the row of gemm.
template <class T, kernels::gemm_fn<T>* Gemm, kernels::syrk_fn<T>* Syrk, kernels::triangular_fn<T>* Trmm,
          kernels::triangular_fn<T>* Trsm>
void use_operation(const operation<T>* op, const operand* a, const operand* b, kernel_info<T>* info) {
  switch (op->code) {
    case kOpSymm: {
      const operand* const symmetric = op->from_right != 0 ? b : a;
      if constexpr (kComplex<T>)
        if (symmetric->copy_mode & kCopyHermitian) return use_symmetric<true, T, Gemm>(op, symmetric, info);
      return use_symmetric<false, T, Gemm>(op, symmetric, info);
    }
    case kOpSyrk:
      info->mscale = mscale_triangle<T>;
      return use_one_routine<T>(syrk_driver<T, Syrk>, info);
    case kOpTrmm:
    case kOpTrsm:
      (op->from_right != 0 ? info->copy_b : info->copy_a) = nullptr;
      return use_one_routine<T>(op->code == kOpTrmm ? triangular_driver<T, Trmm> : triangular_driver<T, Trsm>, info);
    default:
      return;
  }
}

}  // namespace tev::TEV_TIER
