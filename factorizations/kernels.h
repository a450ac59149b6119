// SPDX-License-Identifier: BSD-3-Clause
// Level 3 on the calling thread alone, by value. Empty operands are fine.
#pragma once

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "factorizations/matrix_view.h"

namespace tev::lapack {

using blas::element_of;
using blas::kComplex;
using blas::kernel_calls;

template <class T>
using real_of = typename blas::element<T>::real;

// What turns a matrix round where the real types transpose and the complex ones conjugate, too.
template <class T>
inline constexpr char kAdjoint = kComplex<T> ? 'C' : 'T';

// C := C + factor op(A) op(B).
template <class T>
void accumulate_product(T factor, char op_a, const matrix_view<T>& a, char op_b, const matrix_view<T>& b,
                        const matrix_view<T>& c) {
  const int64_t k = op_a == 'N' ? a.columns : a.rows;
  if (c.rows < 1 || c.columns < 1 || k < 1) return;
  const T one = element_of<T>(1);
  kernel_calls<T>::xgemm(&op_a, &op_b, &c.rows, &c.columns, &k, &factor, a.data, &a.ld, b.data, &b.ld, &one, c.data,
                         &c.ld);
}
template <class T>
void add_product(char op_a, const matrix_view<T>& a, char op_b, const matrix_view<T>& b, const matrix_view<T>& c) {
  accumulate_product(element_of<T>(1), op_a, a, op_b, b, c);
}
template <class T>
void subtract_product(char op_a, const matrix_view<T>& a, char op_b, const matrix_view<T>& b, const matrix_view<T>& c) {
  accumulate_product(element_of<T>(-1), op_a, a, op_b, b, c);
}

// C := C + factor A A^H (op N) or C + factor A^H A (op C, real types T); the triangle uplo of C is read and written.
template <class T>
void accumulate_square(real_of<T> factor, char uplo, char op, const matrix_view<T>& a, const matrix_view<T>& c) {
  const int64_t k = op == 'N' ? a.columns : a.rows;
  if (c.rows < 1 || k < 1) return;
  const real_of<T> one = 1;
  if constexpr (kComplex<T>)
    kernel_calls<T>::xherk(&uplo, &op, &c.rows, &k, &factor, a.data, &a.ld, &one, c.data, &c.ld, 0, 0);
  else
    kernel_calls<T>::xsyrk(&uplo, &op, &c.rows, &k, &factor, a.data, &a.ld, &one, c.data, &c.ld, 0, 0);
}
template <class T>
void add_square(char uplo, char op, const matrix_view<T>& a, const matrix_view<T>& c) {
  accumulate_square<T>(1, uplo, op, a, c);
}
template <class T>
void subtract_square(char uplo, char op, const matrix_view<T>& a, const matrix_view<T>& c) {
  accumulate_square<T>(-1, uplo, op, a, c);
}

// B := op(A)^-1 B (side L) or B op(A)^-1 (side R), A triangular.
template <class T>
void solve(char side, char uplo, char op, char diag, const matrix_view<T>& a, const matrix_view<T>& b) {
  if (b.rows < 1 || b.columns < 1) return;
  const T one = element_of<T>(1);
  kernel_calls<T>::xtrsm(&side, &uplo, &op, &diag, &b.rows, &b.columns, &one, a.data, &a.ld, b.data, &b.ld);
}

}  // namespace tev::lapack
