// SPDX-License-Identifier: BSD-3-Clause
// Types of the routines around triangular operands and results.
#pragma once

#include <cstdint>

#include "kernels/records.h"

namespace tev::kernels {

// The row of one operation in the kernel information: replaces those routines of gemm's that it does not share.
template <class T>
using kernel_row_fn = void(const operation<T>*, const operand* a, const operand* b, const operand* c, kernel_info<T>*);
// Works out strips of packed lines in place with a packed triangle.
template <class T>
using triangle_kernel_fn = void(const int64_t* places, const T* triangle, T* strips);

// Packs a triangle that meets the lines of B from `side`.
using triangle_copy_fn = void(const char* side, const operand* source, packed* target);
// Solves one strip of packed lines in place.
template <class T>
using solve_tile_fn = void(const T* triangle, T* strip);
// Of the n elements on the diagonal of A; 1: yes.
template <class T>
using has_denormal_fn = int32_t(const int64_t* n, const T* a, const int64_t* lda);

}  // namespace tev::kernels
