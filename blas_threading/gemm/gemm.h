// SPDX-License-Identifier: BSD-3-Clause
// A described product over the team: what the front ends of level 3 hand on.
#pragma once

#include "blas_threading/operands.h"

namespace tev::blas {

// C := alpha A B + beta C; no size is below 1 and alpha is not 0. Decides how many threads it is worth.
template <class T>
void multiply_over_team(const operation<T>& product);

}  // namespace tev::blas
