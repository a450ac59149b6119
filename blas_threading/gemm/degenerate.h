// SPDX-License-Identifier: BSD-3-Clause
// Products that are really matrix-vector products or rank-1 updates.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"
#include "blas_threading/operands.h"

namespace tev::blas {

// Cheap first test: false for almost every product.
inline bool may_be_degenerate(int64_t m, int64_t n, int64_t k, int64_t ldb) {
  return m == 1 || n == 1 || k == 1 || (m < 8 && ldb % 256 == 0);
}

// C := alpha op(A) op(B) + beta C through level 2 when one of the sizes is 1, or on the many-core tier for a few rows
// whose columns would all fall into the same cache sets. m, n, k are at least 1 and alpha is not 0. False when the
// product is of another kind or memory for a conjugated vector is short: nothing was computed then.
template <class T>
bool degenerate_product(const operation<T>& p);

template <class T>
bool done_by_level2(const operation<T>& p) {
  return p.code == kernels::kOpGemm && may_be_degenerate(p.m, p.n, p.k, p.b.ld) && degenerate_product(p);
}

}  // namespace tev::blas
