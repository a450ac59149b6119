// SPDX-License-Identifier: BSD-3-Clause
// Cholesky on one thread.
#pragma once

#include <cstdint>

#include "factorizations/matrix_view.h"
#include "factorizations/step_observer.h"

namespace tev::lapack {

// A = L L^H (uplo L) or U^H U in place; the other triangle is neither read nor written, nor are the imaginary parts of
// the diagonal read. Returns 0, or the order j of the first leading minor that is not positive; then the first j - 1
// columns of the factor (rows of U) are done. `told`, where there is one, learns of them.
template <class T>
int64_t factor_cholesky(char uplo, const matrix_view<T>& a, columns_done* told = nullptr);

}  // namespace tev::lapack
