// SPDX-License-Identifier: BSD-3-Clause
// Elementary reflectors, H = I - tau v v^H with v(0) = 1.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"

namespace tev::lapack {

// sqrt(sum |x(i)|^2) without overflow or underflow; an infinity gives infinity, a NaN gives NaN.
template <class T>
typename blas::element<T>::real norm2(const T* x, int64_t n);

// H^H (alpha, x)^T = (beta, 0)^T with real beta. alpha becomes beta, the n - 1 elements of x become v without its 1.
// Returns tau; it is zero where alpha is real and x zero, or where there is no x in a real type: H is I then.
template <class T>
T generate_reflector(int64_t n, T& alpha, T* x);

}  // namespace tev::lapack
