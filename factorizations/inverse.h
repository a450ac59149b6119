// SPDX-License-Identifier: BSD-3-Clause
// Inverses of triangles, and what makes those of whole matrices from them.
#pragma once

#include <cstdint>

#include "factorizations/matrix_view.h"

namespace tev::lapack {

// A := A^-1, of the triangle uplo. Returns 0, or the first j, from 1, with a(j, j) = 0; then A is unchanged.
template <class T>
int64_t invert_triangle(char uplo, const matrix_view<T>& a);

// A := U U^H (uplo U) or L^H L (uplo L), of the triangle.
template <class T>
void square_triangle(char uplo, const matrix_view<T>& a);

}  // namespace tev::lapack
