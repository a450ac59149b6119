// SPDX-License-Identifier: BSD-3-Clause
// A level-3 call as the front ends describe it to drivers and kernels.
#pragma once

#include "kernels/operation.h"
#include "tests/support/blas_case.h"

namespace tev::test {

// `result`: the matrix that the call writes. Of the symmetric operations those without a conjugate, of the rank-k
// updates syrk.
template <class T>
kernels::operation<c_element_t<T>> described(const problem<T>& p, const matrix<T>& result) {
  using E = c_element_t<T>;
  const E alpha = *in(&p.alpha), beta = *in(&p.beta), *const a = in(p.a), *const b = in(p.b);
  E* const c = at(result);
  if (p.op == operation::gemm)
    return kernels::make_operation(p.transa, p.transb, p.m, p.n, p.k, alpha, a, p.lda, b, p.ldb, beta, c, result.ld());
  if (p.op == operation::symm)
    return kernels::make_symmetric_operation(p.side, p.uplo, p.m, p.n, alpha, a, p.lda, b, p.ldb, beta, c, result.ld());
  if (p.op == operation::syrk)
    return kernels::make_rank_k_operation(p.uplo, p.transa, false, p.n, p.k, alpha, a, p.lda, a, p.lda, beta, c,
                                          result.ld());
  return kernels::make_triangular_operation(p.op == operation::trmm ? kernels::kOpTrmm : kernels::kOpTrsm, p.side,
                                            p.uplo, p.transa, p.diag, p.m, p.n, alpha, a, p.lda, c, result.ld());
}

}  // namespace tev::test
