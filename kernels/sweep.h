// SPDX-License-Identifier: BSD-3-Clause
// The routines of every tier that turn the lines of a matrix, one after the other.
#pragma once

#include <cstdint>

namespace tev::kernels {

// A sweep: rotation i turns lines i and i + 1 of the m x n matrix A, columns or rows, by c[i] and s[i],
// (x, y) := (c x + s y, c y - s x); from the first rotation on (*forward not 0) or from the last. R: the parts of T.
template <class T, class R>
using sweep_fn = void(const int64_t* forward, const int64_t* m, const int64_t* n, const R* c, const R* s, T* a,
                      const int64_t* lda);

}  // namespace tev::kernels
