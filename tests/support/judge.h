// SPDX-License-Identifier: BSD-3-Clause
// The judgement of host/check.h as an assertion; link host/check.cpp.
#pragma once

#include "host/check.h"
#include "tests/support/blas_case.h"

namespace tev::test {

// Is `result` what the routine of the case leaves, and what it must not write as it was? exactly: nothing was rounded,
// as with whole numbers.
template <class T>
testing::AssertionResult is_right(const blas_case<T>& x, const matrix<T>& result, bool exactly = false) {
  const host::verdict verdict = host::check(x.p, result.data(), 1);
  if (!verdict.passed || (exactly && verdict.worst > 0))
    return testing::AssertionFailure() << x << ": " << verdict.text;
  if (!x.unwritten_is_intact(result)) return testing::AssertionFailure() << x << ": written beside the result";
  return testing::AssertionSuccess();
}

// result = alpha op(A) op(B) + beta C? The two letters are those of A and B.
template <class T>
testing::AssertionResult is_product(const std::string& letters, int64_t k, T alpha, const matrix<T>& a,
                                    const matrix<T>& b, T beta, const matrix<T>& c, const matrix<T>& result,
                                    bool exactly = false) {
  problem<T> p = problem_of<T>(operation::gemm, letters, c.rows(), c.columns(), k, alpha, beta);
  p.a = a.data(), p.lda = a.ld();
  p.b = b.data(), p.ldb = b.ld();
  p.c = c.data(), p.ldc = c.ld();
  const host::verdict verdict = host::check(p, result.data(), 1);
  if (verdict.passed && !(exactly && verdict.worst > 0) && result.padding_is_intact())
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << letters << ' ' << p.m << 'x' << p.n << 'x' << k << " alpha " << alpha
                                     << " beta " << beta << ": " << verdict.text;
}

}  // namespace tev::test
