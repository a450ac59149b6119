// SPDX-License-Identifier: BSD-3-Clause
// Operands as the drivers narrow them: spans of rows and columns, elements, the operand seen from the other side.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"
#include "kernels/operation.h"

namespace tev::blas {

using kernels::block_of;
using kernels::operand;
using kernels::operation;

// Half-open range of row, column or depth indices.
struct span {
  int64_t begin, end;
  int64_t size() const { return end - begin; }
};

inline operand block_of(const operand& x, const span& rows, const span& columns) {
  return block_of(x, rows.begin, columns.begin, rows.size(), columns.size());
}
inline operand rows_of(const operand& x, const span& rows) { return block_of(x, rows, {0, x.columns}); }
inline operand columns_of(const operand& x, const span& columns) { return block_of(x, {0, x.rows}, columns); }

template <class T>
T* elements(const operand& x) {
  return static_cast<T*>(x.data);
}

// X as a general matrix, whatever it is a block of.
inline operand general(operand x) {
  x.copy_mode = kernels::transposition_bit(kernels::transposition_code(kernels::stored_transposition(&x)));
  return x;
}

// C := alpha A B + beta C of general matrices.
template <class T>
operation<T> matrix_product(T alpha, const operand& a, const operand& b, T beta, const operand& c) {
  operation<T> op = kernels::product_of(kernels::kOpGemm, alpha, general(a), general(b), beta, c);
  op.op_a = kernels::transposition_code(kernels::stored_transposition(&a));
  op.op_b = kernels::transposition_code(kernels::stored_transposition(&b));
  return op;
}

// The same operation on other operands.
template <class T>
operation<T> narrowed(operation<T> op, const operand& a, const operand& b, const operand& c) {
  op.a = a, op.b = b, op.c = c;
  op.m = c.rows, op.n = c.columns, op.k = a.columns;
  return op;
}

}  // namespace tev::blas
