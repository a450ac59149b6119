// SPDX-License-Identifier: BSD-3-Clause
// Cholesky as steps, on blocks of columns of L, or of rows of U, from the diagonal on:
//
//   L   | F |               U   | F   F   F |     F  factor a panel
//       | F | u |                   | u   u |     u  update a block by it
//       | F | u | u |                   | u |
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "factorizations/matrix_view.h"
#include "factorizations/steps.h"

namespace tev::lapack {

template <class T>
class cholesky_factorization {
 public:
  cholesky_factorization(char uplo, const matrix_view<T>& a, int64_t width) : uplo_(uplo), a_(a), width_(width) {}

  int64_t panels() const { return blas::ceil_div(a_.rows, width_); }
  // The order of the first leading minor that is not positive; 0: all are.
  int64_t info() const { return info_; }

  bool factor(int64_t panel);
  void update(int64_t panel, const span& blocks);
  // Of one block the square on the diagonal alone.
  void update_diagonal(int64_t panel, int64_t block);

 private:
  span lines(const span& blocks) const { return {blocks.begin * width_, std::min(blocks.end * width_, a_.rows)}; }
  span lines(int64_t block) const { return lines({block, block + 1}); }
  // Of L the rows x columns, of U the mirror image.
  matrix_view<T> part(const span& rows, const span& columns) const {
    return uplo_ == 'L' ? a_.block(rows.begin, columns.begin, rows.size(), columns.size())
                        : a_.block(columns.begin, rows.begin, columns.size(), rows.size());
  }

  const char uplo_;  // U or L
  const matrix_view<T> a_;
  const int64_t width_;
  int64_t info_ = 0;
};

// The whole factorization in this process; returns info.
template <class T>
int64_t cholesky_in_process(char uplo, const matrix_view<T>& a);

}  // namespace tev::lapack
