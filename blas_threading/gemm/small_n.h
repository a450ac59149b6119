// SPDX-License-Identifier: BSD-3-Clause
// The gate for products with very few columns of C and a transposed A, in s and d: rows of C are dealt out, and each
// part goes to the single-threaded kernels, which have routines for two and three columns.
#pragma once

#include "blas_threading/gemm/degenerate.h"

namespace tev::blas {

// The gate's test. `tier` is a type code.
template <class T>
bool takes_small_n(int32_t tier, const operation<T>& p);

template <class T>
void compute_small_n(const operation<T>& p, int64_t threads);

}  // namespace tev::blas
