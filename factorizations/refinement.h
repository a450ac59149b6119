// SPDX-License-Identifier: BSD-3-Clause
// Iterative refinement of the solutions of op(A) x = b, and bounds of their errors: the componentwise backward error,
// and from the norm of |A^-1| (|r| + what rounding may have made of r) the forward error.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "factorizations/norm1_estimate.h"

namespace tev::lapack {

// sizes := |b| + |op(A)| |x|, by |re| + |im|.
template <class T>
void sizes_of_residual(char op, const matrix_view<T>& a, const T* b, const T* x, real_of<T>* sizes) {
  using R = real_of<T>;
  const int64_t n = a.rows;
  for (int64_t i = 0; i < n; ++i) sizes[i] = modulus1(b[i]);
  for (int64_t j = 0; j < n; ++j) {
    const R factor = modulus1(x[j]);
    R sum = 0;
    if (op == 'N')
      for (int64_t i = 0; i < n; ++i) sizes[i] += modulus1(a(i, j)) * factor;
    else
      for (int64_t i = 0; i < n; ++i) sum += modulus1(a(i, j)) * modulus1(x[i]);
    sizes[j] += sum;
  }
}

template <class R>
struct error_bounds {
  R forward, backward;
};

// One right-hand side. solve(adjoint, y): y := op(A)^-1 y, or its adjoint. r, signs and sizes: work of n elements.
template <class T, class Solve>
error_bounds<real_of<T>> refine(char op, const matrix_view<T>& a, const T* b, T* x, T* r, int64_t* signs,
                                real_of<T>* sizes, const Solve& solve_system) {
  using R = real_of<T>;
  constexpr int kMostSteps = 5;
  const int64_t n = a.rows, step = 1;
  const R terms = static_cast<R>(n + 1), safe1 = terms * kSafeMinimum<R>, safe2 = safe1 / kRoundoff<R>;
  const T one = element_of<T>(1), minus_one = element_of<T>(-1);
  R backward = 0, last = 3;
  for (int count = 1;; ++count) {
    std::copy_n(b, n, r);
    kernel_calls<T>::xgemv(&op, &n, &n, &minus_one, a.data, &a.ld, x, &step, &one, r, &step);
    sizes_of_residual(op, a, b, x, sizes);
    backward = 0;
    for (int64_t i = 0; i < n; ++i) {
      const R guard = sizes[i] > safe2 ? 0 : safe1;
      backward = larger(backward, (modulus1(r[i]) + guard) / (sizes[i] + guard));
    }
    if (!(backward > kRoundoff<R> && 2 * backward <= last && count <= kMostSteps)) break;
    solve_system(false, r);
    kernel_calls<T>::xaxpy(&n, &one, r, &step, x, &step);
    last = backward;
  }
  for (int64_t i = 0; i < n; ++i)
    sizes[i] = modulus1(r[i]) + terms * kRoundoff<R> * sizes[i] + (sizes[i] > safe2 ? 0 : safe1);
  const auto scale = [&](T* y) {
    for (int64_t i = 0; i < n; ++i) y[i] = product(y[i], real_element<T>(sizes[i]));
  };
  // The 1-norm of the adjoint: sizes times op(A)^-H.
  R forward = estimate_norm1(
      n, r, signs, [&](T* y) { solve_system(true, y), scale(y); }, [&](T* y) { scale(y), solve_system(false, y); });
  R largest = 0;
  for (int64_t i = 0; i < n; ++i) largest = larger(largest, modulus1(x[i]));
  if (largest != 0) forward /= largest;
  return {forward, backward};
}

}  // namespace tev::lapack
