// SPDX-License-Identifier: BSD-3-Clause
// C := alpha L R + beta C over the team: C is cut into a grid of blocks, one per thread, and no thread waits for
// another.
#pragma once

#include <cstdint>

#include "blas_threading/level3/tile_product.h"

namespace tev::blas {

// Threads along the rows: the divisor of `threads` whose grid has the blocks of the smallest half perimeter, since that
// is what a thread copies of L and R per unit of work.
inline int64_t grid_rows(int64_t threads, int64_t m, int64_t n) {
  int64_t best = 1;
  double best_perimeter = 0;
  for (int64_t rows = 1; rows <= threads; ++rows) {
    if (threads % rows != 0) continue;
    const double perimeter = static_cast<double>(m) / static_cast<double>(rows) +
                             static_cast<double>(n * rows) / static_cast<double>(threads);
    if (rows == 1 || perimeter < best_perimeter) best = rows, best_perimeter = perimeter;
  }
  return best;
}

template <class T, class Left, class Right>
void team_product(int64_t m, int64_t n, int64_t k, T alpha, const Left& left, const Right& right, T beta, T* c,
                  int64_t ldc) {
  if (m < 1 || n < 1) return;
  const bool empty_sum = k < 1 || is_value(alpha, 0);
  if (empty_sum && is_value(beta, 1)) return;
  on_team(product_work(m, n, empty_sum ? 1 : k), [&](int64_t index, int64_t threads) {
    const int64_t row_parts = grid_rows(threads, m, n);
    const span rows = part_of(index % row_parts, row_parts, m, blocking<T>::mr);
    const span columns = part_of(index / row_parts, threads / row_parts, n, blocking<T>::nr);
    scale_block(rows, columns, beta, c, ldc);
    if (!empty_sum) add_product(rows, columns, {0, k}, left, alpha, right, c, ldc);
  });
}

}  // namespace tev::blas
