// SPDX-License-Identifier: BSD-3-Clause
// The updates of a factorization as requests to the sink's LAPACK workers: for a range of blocks as few as there can
// be.
#pragma once

#include <vector>

#include "factorizations/lu.h"
#include "factorizations/matrix_view.h"
#include "offload/connection.h"
#include "offload/sink_steps.h"

namespace tev::offload {

using lapack::matrix_view;
using lapack::span;

// Interchanges, solve and product are one request.
template <class T>
struct lu_requests {
  matrix_view<T> a;
  const int64_t* pivots;
  const lapack::column_division& division;

  static constexpr block_shape kShape = block_shape::columns;
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;
};

// The square on the diagonal, and the product beside it. There is no step for Hermitian updates, so of a complex matrix
// the squares of all blocks stay with the caller, and what is beside them is covered by rectangles, large ones first:
//
//   real  | s       |    complex  | .       |     s  square    .  the caller's
//         | p s     |             | 1 .     |     p  product, one for all rows below the square
//         | p p s   |             | 2 2 .   |
//         | p p p s |             | 2 2 3 . |     1, 2, 3  products
template <class T>
struct cholesky_requests {
  char uplo;
  matrix_view<T> a;
  int64_t width;

  static constexpr block_shape kShape = blas::kComplex<T> ? block_shape::without_diagonal : block_shape::triangle;
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;

 private:
  span lines(const span& several) const { return {several.begin * width, std::min(several.end * width, a.rows)}; }
  T* at(int64_t i, int64_t j) const { return uplo == 'L' ? &a(i, j) : &a(j, i); }
  step_request square(int64_t panel, const span& own) const;
  step_request product(int64_t panel, const span& rows, const span& columns) const;
  void cover_triangle(int64_t panel, const span& blocks, std::vector<step_request>* requests) const;
};

// A block reflector. The work space is that of qr_factorization: T of all panels, R, and the reflector's work array.
template <class T>
struct qr_requests {
  matrix_view<T> a;
  const T* workspace;
  const lapack::column_division& division;

  static constexpr block_shape kShape = block_shape::columns;
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;
};

}  // namespace tev::offload
