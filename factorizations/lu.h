// SPDX-License-Identifier: BSD-3-Clause
// LU with partial pivoting as steps: how the matrix is divided, and what a step does to its block.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "factorizations/matrix_view.h"
#include "factorizations/steps.h"

namespace tev::lapack {

// Panels and blocks of columns: the panels cover the first min(m, n) columns, what is beyond them are blocks only.
struct lu_division {
  int64_t order, columns, width;

  lu_division(int64_t m, int64_t n, int64_t block_width) : order(std::min(m, n)), columns(n), width(block_width) {}

  int64_t panels() const { return blas::ceil_div(order, width); }
  int64_t blocks() const { return panels() + blas::ceil_div(columns - order, width); }
  span block(int64_t number) const { return {begin(number), begin(number + 1)}; }
  span columns_of(const span& several) const { return {begin(several.begin), begin(several.end)}; }

 private:
  int64_t begin(int64_t number) const {
    return number < panels() ? number * width : std::min(order + (number - panels()) * width, columns);
  }
};

template <class T>
class lu_factorization {
 public:
  lu_factorization(const matrix_view<T>& a, int64_t* pivots, int64_t width)
      : a_(a), pivots_(pivots), division_(a.rows, a.columns, width) {}

  const lu_division& division() const { return division_; }
  // The position of the first zero on the diagonal of U, from 1; 0: there is none.
  int64_t info() const { return info_; }

  bool factor(int64_t panel);
  void update(int64_t panel, const span& blocks);

 private:
  const matrix_view<T> a_;
  int64_t* const pivots_;
  const lu_division division_;
  int64_t info_ = 0;
};

// The whole factorization in this process; returns info.
template <class T>
int64_t lu_in_process(const matrix_view<T>& a, int64_t* pivots);

}  // namespace tev::lapack
