// SPDX-License-Identifier: BSD-3-Clause
// ?gels, with the QR factorization that it stands on made wherever the caller wants it.
#pragma once

#include <cstdint>
#include <functional>

#include "factorizations/matrix_view.h"

namespace tev::lapack {

// As qr_in_process; false: there is no memory.
template <class T>
using qr_function = std::function<bool(const matrix_view<T>& a, T* tau)>;

template <class T>
void gels(char trans, int64_t m, int64_t n, int64_t nrhs, T* a, int64_t lda, T* b, int64_t ldb, T* work, int64_t lwork,
          int64_t* info, const qr_function<T>& factor);

}  // namespace tev::lapack
