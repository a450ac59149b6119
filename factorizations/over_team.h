// SPDX-License-Identifier: BSD-3-Clause
// Level 3 with many independent right-hand sides, dealt out to the team: the parts depend on the sizes and on the
// threads that are permitted, never on what else the machine does.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/plan.h"
#include "blas_threading/team/team.h"
#include "factorizations/kernels.h"

namespace tev::lapack {

using blas::span;

// Multiply-adds of a double that are worth waking a thread for.
inline constexpr double kWorkOfAThread = 1e5;

// body(part) for parts of [0, sides), each on a thread.
template <class T, class Body>
void deal_out(int64_t sides, double work, const Body& body) {
  if (blas::kWorkPerElement<T> * work < 2 * kWorkOfAThread || sides < 2 * blas::kLine<T>) return body(span{0, sides});
  const int64_t threads = std::min(blas::permitted_threads(), blas::ceil_div(sides, blas::kLine<T>));
  if (threads == 1) return body(span{0, sides});
  blas::run_team(threads, [&](int64_t thread, int64_t team) {
    if (const span part = blas::part_of(thread, team, sides, blas::kLine<T>); part.size() > 0) body(part);
  });
}

template <class T>
matrix_view<T> sides_of(char side, const matrix_view<T>& b, const span& part) {
  return side == 'L' ? b.block(0, part.begin, b.rows, part.size()) : b.block(part.begin, 0, part.size(), b.columns);
}

// B := op(A)^-1 B (side L), B op(A)^-1 (side R), A triangular.
template <class T>
void solve_over_team(char side, char uplo, char op, char diag, const matrix_view<T>& a, const matrix_view<T>& b) {
  deal_out<T>(side == 'L' ? b.columns : b.rows, blas::product_work(b.rows, b.columns, a.rows / 2),
              [&](const span& part) { solve(side, uplo, op, diag, a, sides_of(side, b, part)); });
}

// B := factor op(A) B (side L), factor B op(A) (side R), A triangular.
template <class T>
void multiply_over_team(char side, char uplo, char op, char diag, T factor, const matrix_view<T>& a,
                        const matrix_view<T>& b) {
  deal_out<T>(side == 'L' ? b.columns : b.rows, blas::product_work(b.rows, b.columns, a.rows / 2),
              [&](const span& part) {
                const matrix_view<T> own = sides_of(side, b, part);
                kernel_calls<T>::xtrmm(&side, &uplo, &op, &diag, &own.rows, &own.columns, &factor, a.data, &a.ld,
                                       own.data, &own.ld);
              });
}

// C := C - A B, rows of C dealt out.
template <class T>
void subtract_product_over_team(const matrix_view<T>& a, const matrix_view<T>& b, const matrix_view<T>& c) {
  deal_out<T>(c.rows, blas::product_work(c.rows, c.columns, a.columns),
              [&](const span& part) { subtract_product('N', sides_of('R', a, part), 'N', b, sides_of('R', c, part)); });
}

}  // namespace tev::lapack
