// SPDX-License-Identifier: BSD-3-Clause
// Reciprocal condition numbers from factors.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "factorizations/arguments.h"
#include "factorizations/norm1_estimate.h"

namespace tev::lapack {

template <class T>
bool has_nan(const T* x, int64_t n) {
  return std::any_of(x, x + n, [](T y) { return std::isnan(modulus1(y)); });
}

// 1 / (|A| |A^-1|), of which anorm is given and the norm of the inverse is estimated. apply and apply_adjoint:
// x := A^-1 x, A^-H x. factors_have_nan() is asked when something overflows.
template <class T, class Apply, class ApplyAdjoint, class Question>
real_of<T> reciprocal_condition(int64_t n, real_of<T> anorm, T* x, int64_t* signs, const Apply& apply,
                                const ApplyAdjoint& apply_adjoint, const Question& factors_have_nan) {
  using R = real_of<T>;
  if (n == 0) return 1;
  if (anorm == 0) return 0;
  const R inverse = estimate_norm1(n, x, signs, apply, apply_adjoint);
  if (std::isfinite(inverse)) return inverse == 0 ? 0 : (1 / inverse) / anorm;
  return factors_have_nan() ? std::numeric_limits<R>::quiet_NaN() : 0;  // or the inverse is beyond all numbers
}

}  // namespace tev::lapack
