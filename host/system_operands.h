// SPDX-License-Identifier: BSD-3-Clause
// The matrices of a system_call, from their files or from the seed.
#pragma once

#include "host/dense.h"
#include "host/fill.h"
#include "host/system_call.h"
#include "host/wide.h"

namespace tev::host {

// Of a matrix for Cholesky only the triangle has numbers, unless it comes from a file.
template <class T>
void load_matrix(const system_call& c, T* a) {
  if (c.a) return c.a->read(a);
  fill_general(a, c.m, c.n, c.seed);
  if (c.what != task::cholesky) return;
  for (int64_t j = 0; j < c.n; ++j)
    for (int64_t i = 0; i < c.n; ++i) {
      T& x = a[i + j * c.m];
      if (i == j)
        x = T(static_cast<real_of<T>>(2 * c.n));
      else if ((i < j) != (c.uplo == 'U'))
        x = not_a_number<T>();
    }
}

// What is meant by it.
template <class T>
dense<T> whole_matrix(const system_call& c) {
  dense<T> a(c.m, c.n);
  load_matrix(c, a.elements.data());
  if (c.what != task::cholesky) return a;
  const auto mirrored = [](T x) {
    if constexpr (kIsComplex<T>)
      return std::conj(x);
    else
      return x;
  };
  for (int64_t j = 0; j < a.columns; ++j) {
    a(j, j) = T(std::real(a(j, j)));
    for (int64_t i = 0; i < j; ++i) {
      T &upper = a(i, j), &lower = a(j, i);
      (c.uplo == 'U' ? lower : upper) = mirrored(c.uplo == 'U' ? upper : lower);
    }
  }
  return a;
}

template <class T>
dense<T> right_sides(const system_call& c) {
  dense<T> b(c.m, c.right_sides);
  if (c.b)
    c.b->read(b.elements.data());
  else
    fill_general(b.elements.data(), b.rows, b.columns, c.seed + 1);
  return b;
}

}  // namespace tev::host
