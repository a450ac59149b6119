// SPDX-License-Identifier: BSD-3-Clause
// LU with partial pivoting on one thread, and the row interchanges that belong to it.
#pragma once

#include <cstdint>

#include "factorizations/matrix_view.h"
#include "factorizations/step_observer.h"

namespace tev::lapack {

// A = P L U in place. Row i was exchanged with row pivots[i], counted from 1, for i = 0, 1, ... Returns 0, or the first
// j, from 1, with u(j, j) = 0: the factors are complete, but U is singular. `told`, where there is one, learns of
// columns.
template <class T>
int64_t factor_lu(const matrix_view<T>& a, int64_t* pivots, columns_done* told = nullptr);

// Exchanges row i with row pivots[i], counted from 1, for i = first .. last - 1, or backward.
template <class T>
void interchange_rows(const matrix_view<T>& a, const int64_t* pivots, int64_t first, int64_t last);
template <class T>
void interchange_rows_backward(const matrix_view<T>& a, const int64_t* pivots, int64_t first, int64_t last);

}  // namespace tev::lapack
