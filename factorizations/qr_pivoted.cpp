// SPDX-License-Identifier: BSD-3-Clause
// ?geqp3: A P = Q R. Each step takes the longest of the remaining columns, as it is without the directions of those
// before. A block of steps leaves the columns beyond it as they were: what they lack is V F^H. Of each step's row of A,
// and of the column that a step takes, what is lacking is made up for at once:
//
//         begin   step
//   R R R R R R R R R R      A := A - V F^H beyond the block, when it ends
//     R R R R R R R R R
//       R r r r r r r r      rows of the block: finished
//         v r r r r r r
//         v v x . . . .      step: column x is finished, and this row
//         v v x . . . .
//
// The norms of the columns go down with the rows that are finished. Where too little of one is left to know it, the
// block ends and it is computed anew. (G. Quintana-Orti, X. Sun, C. H. Bischof, SIAM J. Sci. Comput. 19, 1998.)
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "factorizations/arguments.h"
#include "factorizations/chunks.h"
#include "factorizations/kernels.h"
#include "factorizations/qr.h"
#include "factorizations/qr_apply.h"
#include "factorizations/reflector.h"
#include "factorizations/scalars.h"
#include "factorizations/workspace.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

constexpr int64_t kMostSteps = 32;  // in a block

// Columns of A that one thread takes: as many as have this many elements.
constexpr int64_t kChunkElements = 32768;

template <class T>
struct pivoted_qr {
  using R = real_of<T>;

  matrix_view<T> a;
  int64_t* pivots;
  T* tau;
  R* norms;          // of what is left of the columns, as reckoned
  R* true_norms;     // when they were last computed
  matrix_view<T> f;  // row: column of A, column: step of the block
};

template <class T, class Body>
void for_column_chunks(int64_t rows, const blas::span& columns, const Body& body) {
  const int64_t width = std::max<int64_t>(kChunkElements / std::max<int64_t>(rows, 1), 8);
  for_chunks(blas::ceil_div(columns.size(), width), [&](int64_t i) {
    const int64_t begin = columns.begin + i * width;
    body(blas::span{begin, std::min(begin + width, columns.end)});
  });
}

template <class T>
void compute_norms(const pivoted_qr<T>& q, int64_t first_row, const blas::span& columns) {
  for_column_chunks<T>(q.a.rows - first_row, columns, [&](const blas::span& own) {
    for (int64_t j = own.begin; j < own.end; ++j)
      q.norms[j] = q.true_norms[j] = norm2(&q.a(first_row, j), q.a.rows - first_row);
  });
}

template <class T>
void exchange(const pivoted_qr<T>& q, int64_t j, int64_t other) {
  if (j == other) return;
  std::swap_ranges(&q.a(0, j), &q.a(0, j) + q.a.rows, &q.a(0, other));
  std::swap(q.pivots[j], q.pivots[other]);
}

// y := alpha op(A) x + beta y.
template <class T>
void multiply(const char* op, T alpha, const matrix_view<T>& a, const T* x, int64_t incx, T beta, T* y, int64_t incy) {
  if (a.rows > 0 && a.columns > 0)
    kernel_calls<T>::xgemv(op, &a.rows, &a.columns, &alpha, a.data, &a.ld, x, &incx, &beta, y, &incy);
}

// C := C - A (rows of F)^H, for one row or column, or a block, of C.
template <class T>
void subtract_by_f(const matrix_view<T>& v, const matrix_view<T>& f, const matrix_view<T>& c) {
  subtract_product('N', v, kAdjoint<T>, f, c);
}

// Column `step` of F: tau (A^H v - F V^H v), of the columns beyond. Those up to the step itself have none.
template <class T>
void extend_f(const pivoted_qr<T>& q, int64_t begin, int64_t step) {
  const int64_t done = step - begin, rows = q.a.rows - step;
  const T one = element_of<T>(1), zero = element_of<T>(0), tau = q.tau[step];
  const T* const v = &q.a(step, step);
  T products[kMostSteps];
  multiply("C", one, q.a.block(step, begin, rows, done), v, 1, zero, products, 1);
  const T minus_tau = difference(zero, tau);
  for_column_chunks<T>(rows, {step + 1, q.a.columns}, [&](const blas::span& own) {
    T* const target = &q.f(own.begin, done);
    multiply("C", tau, q.a.block(step, own.begin, rows, own.size()), v, 1, zero, target, 1);
    multiply("N", minus_tau, q.f.block(own.begin, 0, own.size(), done), products, 1, one, target, 1);
  });
}

// False when the norm of a column is no longer known.
template <class T>
bool reduce_norms(const pivoted_qr<T>& q, int64_t step) {
  using R = real_of<T>;
  static const R kLeastLeft = std::sqrt(kRoundoff<R>);
  bool all_known = true;
  for (int64_t j = step + 1; j < q.a.columns; ++j) {
    if (q.norms[j] == 0) continue;
    const R ratio = norm2(&q.a(step, j), 1) / q.norms[j], left = std::max<R>(0, (1 + ratio) * (1 - ratio));
    const R of_true = q.norms[j] / q.true_norms[j];
    if (left * of_true * of_true <= kLeastLeft) {
      q.true_norms[j] = 0;  // to be computed
      all_known = false;
    } else {
      q.norms[j] *= std::sqrt(left);
    }
  }
  return all_known;
}

template <class T>
void take_step(const pivoted_qr<T>& q, int64_t begin, int64_t step) {
  const int64_t done = step - begin, rows = q.a.rows - step, beyond = q.a.columns - step - 1;
  const auto pivot = std::max_element(q.norms + step, q.norms + q.a.columns) - q.norms;
  exchange(q, step, pivot);
  q.norms[pivot] = q.norms[step], q.true_norms[pivot] = q.true_norms[step];
  for (int64_t i = 0; i < done; ++i) std::swap(q.f(step, i), q.f(pivot, i));
  subtract_by_f(q.a.block(step, begin, rows, done), q.f.block(step, 0, 1, done), q.a.block(step, step, rows, 1));
  q.tau[step] = generate_reflector(rows, q.a(step, step), &q.a(step, step) + 1);
  const T diagonal = std::exchange(q.a(step, step), element_of<T>(1));
  extend_f(q, begin, step);
  subtract_by_f(q.a.block(step, begin, 1, done + 1), q.f.block(step + 1, 0, beyond, done + 1),
                q.a.block(step, step + 1, 1, beyond));
  q.a(step, step) = diagonal;
}

// Returns where the block ends.
template <class T>
int64_t take_block(const pivoted_qr<T>& q, int64_t begin) {
  const int64_t order = std::min(q.a.rows, q.a.columns), last = std::min(begin + kMostSteps, order);
  int64_t step = begin;
  for (bool goes_on = true; goes_on && step < last; ++step) {
    take_step(q, begin, step);
    goes_on = reduce_norms(q, step);
  }
  const int64_t below = q.a.rows - step, steps = step - begin;
  for_column_chunks<T>(below, {step, q.a.columns}, [&](const blas::span& own) {
    subtract_by_f(q.a.block(step, begin, below, steps), q.f.block(own.begin, 0, own.size(), steps),
                  q.a.block(step, own.begin, below, own.size()));
  });
  for (int64_t j = step; j < q.a.columns; ++j)
    if (q.true_norms[j] == 0) compute_norms(q, step, {j, j + 1});
  return step;
}

// The columns that the caller wants first; the others have their numbers. Returns how many.
template <class T>
int64_t gather_fixed(const pivoted_qr<T>& q) {
  int64_t fixed = 0;
  for (int64_t j = 0; j < q.a.columns; ++j) {
    const bool is_fixed = q.pivots[j] != 0;
    q.pivots[j] = j + 1;
    if (is_fixed) exchange(q, fixed++, j);
  }
  return fixed;
}

template <class T>
bool factor_fixed(const pivoted_qr<T>& q, int64_t fixed) {
  const matrix_view<T> first = q.a.block(0, 0, q.a.rows, fixed);
  const int64_t reflectors = std::min(q.a.rows, fixed);
  return qr_in_process(first, q.tau) && apply_q(true, true, first.block(0, 0, q.a.rows, reflectors), q.tau,
                                                q.a.block(0, fixed, q.a.rows, q.a.columns - fixed));
}

template <class T>
bool factor_pivoted(const matrix_view<T>& a, int64_t* pivots, T* tau) {
  const workspace<T> space(a.columns * kMostSteps);
  const workspace<real_of<T>> norms(2 * a.columns);
  if (!space || !norms) return false;
  const pivoted_qr<T> q = {
      a, pivots, tau, norms.data(), norms.data() + a.columns, {space.data(), a.columns, kMostSteps, a.columns}};
  const int64_t fixed = gather_fixed(q), order = std::min(a.rows, a.columns);
  if (order == 0) return true;
  if (fixed > 0 && !factor_fixed(q, fixed)) return false;
  if (fixed < order) compute_norms(q, fixed, {fixed, a.columns});
  for (int64_t step = fixed; step < order;) step = take_block(q, step);
  return true;
}

template <class T>
void geqp3(int64_t m, int64_t n, T* a, int64_t lda, int64_t* jpvt, T* tau, T* work, int64_t lwork, int64_t* info) {
  const int64_t order = std::min(m, n), least = order < 1 ? 1 : kComplex<T> ? n + 1 : 3 * n + 1;
  if (!are_right<T>("GEQP3", info, {{1, m >= 0}, {2, n >= 0}, {4, holds(lda, m)}, work_length(8, lwork, least)}))
    return;
  if (is_query(work, lwork, least) || n == 0) return;
  if (!factor_pivoted<T>({a, m, n, lda}, jpvt, tau)) report_no_memory<T>("GEQP3", info);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_GEQP3(p, T, rwork)                                                                                    \
  void tev_lapack_##p##geqp3(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, int64_t* jpvt, T* tau, \
                             T* work, const int64_t* lwork, rwork int64_t* info) {                                \
    tev::lapack::geqp3(*m, *n, a, *lda, jpvt, tau, work, *lwork, info);                                           \
  }
#define TEV_RWORK(real) real*,
TEV_GEQP3(s, float, )
TEV_GEQP3(d, double, )
TEV_GEQP3(c, tev_complex8, TEV_RWORK(float))
TEV_GEQP3(z, tev_complex16, TEV_RWORK(double))
