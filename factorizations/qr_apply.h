// SPDX-License-Identifier: BSD-3-Clause
// Q = H1 H2 ... Hk as ?geqrf leaves it: multiplied with a matrix, and written out. The reflectors are taken in blocks.
#pragma once

#include <cstdint>

#include "factorizations/matrix_view.h"

namespace tev::lapack {

// C := Q C, Q^H C (side L), C Q or C Q^H (side R). V has a column for each reflector, with anything on and above its
// diagonal. False when there is no memory; C is untouched then.
template <class T>
bool apply_q(bool left, bool transposed, const matrix_view<T>& v, const T* tau, const matrix_view<T>& c);

// The first columns of Q replace V, which stands in the first k columns of A. False: as above.
template <class T>
bool generate_q(const matrix_view<T>& a, int64_t k, const T* tau);

}  // namespace tev::lapack
