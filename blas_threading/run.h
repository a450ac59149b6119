// SPDX-License-Identifier: BSD-3-Clause
// Carries out plans: every operation of level 3 ends up here, the steps of one that is computed block by block, too.
#pragma once

#include "blas_threading/plan.h"

namespace tev::blas {

template <class T>
void run(const operation<T>& p, const plan& how);

// As planned. m, n and k are at least 1 and alpha is not 0.
template <class T>
void run(const operation<T>& p);

}  // namespace tev::blas
