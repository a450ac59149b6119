// SPDX-License-Identifier: BSD-3-Clause
// How LU and QR divide a matrix.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "factorizations/steps.h"

namespace tev::lapack {

// Panels and blocks of columns: the panels cover the first min(m, n) columns, what is beyond them are blocks only.
struct column_division {
  int64_t order, columns, width;

  column_division(int64_t m, int64_t n, int64_t block_width) : order(std::min(m, n)), columns(n), width(block_width) {}

  int64_t panels() const { return blas::ceil_div(order, width); }
  int64_t blocks() const { return panels() + blas::ceil_div(columns - order, width); }
  span block(int64_t number) const { return {begin(number), begin(number + 1)}; }
  span columns_of(const span& several) const { return {begin(several.begin), begin(several.end)}; }

 private:
  int64_t begin(int64_t number) const {
    return number < panels() ? number * width : std::min(order + (number - panels()) * width, columns);
  }
};

}  // namespace tev::lapack
