// SPDX-License-Identifier: BSD-3-Clause
// How a team divides operations with a symmetric, Hermitian or triangular operand or result.
#pragma once

#include "blas_threading/operands.h"

namespace tev::blas {

// symm, hemm, trmm, trsm: each thread has some columns (side L) or rows (side R) of the result.
template <class T>
void compute_sides(const operation<T>& p, int64_t threads);

// trmm, trsm: block by block along the diagonal; every step is an operation of its own.
template <class T>
void compute_by_diagonal_blocks(const operation<T>& p);

// Rank-k and rank-2k updates.
template <class T>
void update_by_columns(const operation<T>& p, int64_t threads);
template <class T>
void update_by_depth(const operation<T>& p, int64_t threads);

}  // namespace tev::blas
