// SPDX-License-Identifier: BSD-3-Clause
// LU with partial pivoting as steps: what a step does to its block.
#pragma once

#include <cstdint>

#include "factorizations/column_division.h"
#include "factorizations/matrix_view.h"
#include "factorizations/steps.h"

namespace tev::lapack {

template <class T>
class lu_factorization {
 public:
  lu_factorization(const matrix_view<T>& a, int64_t* pivots, int64_t width)
      : a_(a), pivots_(pivots), division_(a.rows, a.columns, width) {}

  const column_division& division() const { return division_; }
  // The position of the first zero on the diagonal of U, from 1; 0: there is none.
  int64_t info() const { return info_; }

  bool factor(int64_t panel);
  void update(int64_t panel, const span& blocks);

 private:
  const matrix_view<T> a_;
  int64_t* const pivots_;
  const column_division division_;
  int64_t info_ = 0;
};

// The whole factorization in this process; returns info.
template <class T>
int64_t lu_in_process(const matrix_view<T>& a, int64_t* pivots);

}  // namespace tev::lapack
