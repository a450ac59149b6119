// SPDX-License-Identifier: BSD-3-Clause
// Products that are really matrix-vector products or rank-1 updates, and the arguments of a product as values.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"

namespace tev::blas {

template <class T>
struct gemm_arguments {
  int32_t op_a, op_b;  // kernels::kNoTrans ...
  int64_t m, n, k;
  T alpha;
  const T* a;
  int64_t lda;
  const T* b;
  int64_t ldb;
  T beta;
  T* c;
  int64_t ldc;
};

// Cheap first test: false for almost every product.
inline bool may_be_degenerate(int64_t m, int64_t n, int64_t k, int64_t ldb) {
  return m == 1 || n == 1 || k == 1 || (m < 8 && ldb % 256 == 0);
}

// C := alpha op(A) op(B) + beta C through level 2 when one of the sizes is 1, or on the many-core tier for a few rows
// whose columns would all fall into the same cache sets. m, n, k are at least 1 and alpha is not 0. False when the
// product is of another kind or memory for a conjugated vector is short: nothing was computed then.
template <class T>
bool degenerate_product(const gemm_arguments<T>& p);

}  // namespace tev::blas
