// SPDX-License-Identifier: BSD-3-Clause
// The 1-norm of a matrix B that is only known by its products with vectors, from below, mostly within a factor of 3.
// N. J. Higham, Accuracy and Stability of Numerical Algorithms, 2nd ed., algorithm 15.4; the products ascend from one
// corner of the unit ball to another for as long as that pays, five times at most.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "factorizations/kernels.h"
#include "factorizations/scalars.h"

namespace tev::lapack {

template <class T>
real_of<T> sum_of_moduli(const T* x, int64_t n) {
  real_of<T> sum = 0;
  for (int64_t i = 0; i < n; ++i) sum += modulus(x[i]);
  return sum;
}

// x := the signs of x; true when all of them are what `signs` remembers, real types only.
template <class T>
bool take_signs(T* x, int64_t n, int64_t* signs) {
  bool same = !kComplex<T>;
  for (int64_t i = 0; i < n; ++i) {
    if constexpr (kComplex<T>) {
      const real_of<T> size = modulus(x[i]);
      x[i] = size > kSafeMinimum<real_of<T>> ? T{x[i].real / size, x[i].imag / size} : element_of<T>(1);
    } else {
      const int64_t sign = x[i] >= 0 ? 1 : -1;
      same &= signs[i] == sign;
      x[i] = static_cast<T>(sign);
      signs[i] = sign;
    }
  }
  return same;
}

template <class T>
int64_t place_of_largest(const T* x, int64_t n) {
  return std::max_element(x, x + n, [](T y, T z) { return modulus(y) < modulus(z); }) - x;
}

// apply(x): x := B x; apply_adjoint(x): x := B^H x. x: n elements; signs: n, not used by complex types.
template <class T, class Apply, class ApplyAdjoint>
real_of<T> estimate_norm1(int64_t n, T* x, int64_t* signs, const Apply& apply, const ApplyAdjoint& apply_adjoint) {
  constexpr int kMostAscents = 5;
  using R = real_of<T>;
  std::fill_n(x, n, real_element<T>(1 / static_cast<R>(n)));
  if constexpr (!kComplex<T>) std::fill_n(signs, n, 0);
  apply(x);
  R norm = sum_of_moduli(x, n);
  if (n == 1) return norm;
  take_signs(x, n, signs);
  apply_adjoint(x);
  int64_t corner = place_of_largest(x, n);
  for (int ascent = 2; ascent <= kMostAscents; ++ascent) {
    std::fill_n(x, n, T{});
    x[corner] = element_of<T>(1);
    apply(x);
    const R before = norm, now = sum_of_moduli(x, n);
    norm = std::isnan(now) ? now : std::max(norm, now);
    if (take_signs(x, n, signs) || !(now > before)) break;
    apply_adjoint(x);
    const int64_t last = corner;
    corner = place_of_largest(x, n);
    if (modulus(x[last]) == modulus(x[corner])) break;
  }
  // What cancellation may have hidden.
  for (int64_t i = 0; i < n; ++i) {
    const R size = 1 + static_cast<R>(i) / static_cast<R>(n - 1);
    x[i] = real_element<T>(i % 2 == 0 ? size : -size);
  }
  apply(x);
  const R other = 2 * (sum_of_moduli(x, n) / static_cast<R>(3 * n));
  return other > norm ? other : norm;
}

}  // namespace tev::lapack
