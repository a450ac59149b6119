// SPDX-License-Identifier: BSD-3-Clause
// A few columns factored as Q R on one thread, Q as a block reflector: H1 H2 ... = I - V T V^H.
#pragma once

#include <cstdint>

#include "factorizations/matrix_view.h"

namespace tev::lapack {

// What stands beside V; n x n for a panel of n columns, of which the upper triangles are written.
template <class T>
struct qr_factors {
  matrix_view<T> t, r;
};

// A = Q R; A has at least as many rows as columns. A becomes V with its ones and the zeros above them, so that it is a
// plain matrix in products.
//
//   A  x x x      V  1          R  x x x     T  x x x
//      x x x         v 1             x x          x x
//      x x x         v v 1             x            x
//      x x x         v v v
template <class T>
void factor_qr_panel(const matrix_view<T>& a, T* tau, const qr_factors<T>& f);

// C := Q^H C by V as the function above leaves it. W: as many rows as V has columns, as many columns as C.
template <class T>
void apply_qr_panel(const matrix_view<T>& v, const matrix_view<T>& t, const matrix_view<T>& c, const matrix_view<T>& w);

// T of reflectors that stand below the diagonal of V; on it and above it is anything.
template <class T>
void form_qr_factor(const matrix_view<T>& v, const T* tau, const matrix_view<T>& t);

}  // namespace tev::lapack
