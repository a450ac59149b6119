// SPDX-License-Identifier: BSD-3-Clause
// The routine of every tier that takes a band matrix.
#pragma once

#include <cstdint>

namespace tev::kernels {

// y += alpha op(A) x for elements [*begin, *end) of y, A an m x n band matrix of kl diagonals below the main one and ku
// above it. Vectors without gaps, trans in capitals.
template <class T>
using gbmv_part_fn = void(const char* trans, const int64_t* m, const int64_t* n, const int64_t* kl, const int64_t* ku,
                          const int64_t* begin, const int64_t* end, const T* alpha, const T* a, const int64_t* lda,
                          const T* x, T* y);

}  // namespace tev::kernels
