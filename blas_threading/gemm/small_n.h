// SPDX-License-Identifier: BSD-3-Clause
// The gate for products with very few columns of C and a transposed A, in s and d: rows of C are dealt out, and each
// part goes to the single-threaded kernels, which have routines for two and three columns.
#pragma once

#include "blas_threading/gemm/degenerate.h"

namespace tev::blas {

// The gate's test. `tier` is a type code.
template <class T>
bool takes_small_n(int32_t tier, const operation<T>& p);

// 1 when the product was computed, 0 when the caller must go on.
template <class T>
int32_t use_smalln_kernels(int32_t tier, const operation<T>& p);

// Rows of each part for `threads` threads; the last part may have fewer.
inline int64_t small_n_rows(int64_t m, int64_t threads) { return (m + threads - 1) / threads; }

}  // namespace tev::blas
