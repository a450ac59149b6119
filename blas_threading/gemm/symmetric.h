// SPDX-License-Identifier: BSD-3-Clause
// The share of one thread in a product with a symmetric or Hermitian operand.
#pragma once

#include "blas_threading/operands.h"

namespace tev::blas {

// C := alpha A B + beta C on the calling thread. One of A and B is a block of the symmetric matrix, anywhere in it.
template <class T>
void compute_symmetric(const operation<T>& product, const operand& a, const operand& b, const operand& c);

// The same without memory, but for what the tier's routines take and can do without.
template <class T>
void compute_symmetric_in_pieces(const operation<T>& product, const operand& a, const operand& b, const operand& c);

}  // namespace tev::blas
