// SPDX-License-Identifier: BSD-3-Clause
// The updates of a factorization as requests to the sink's LAPACK workers: for a range of blocks as few as there can
// be.
#pragma once

#include <vector>

#include "factorizations/lu.h"
#include "factorizations/matrix_view.h"
#include "offload/connection.h"

namespace tev::offload {

using lapack::matrix_view;
using lapack::span;

// Interchanges, solve and product are one request.
template <class T>
struct lu_requests {
  matrix_view<T> a;
  const int64_t* pivots;
  const lapack::column_division& division;

  static constexpr bool kIsTriangular = false;  // blocks are as long as the matrix
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;
};

// Of the real types: there is no step for Hermitian updates. The square on the diagonal, and the product beside it.
template <class T>
struct cholesky_requests {
  char uplo;
  matrix_view<T> a;
  int64_t width;

  static constexpr bool kIsTriangular = true;  // blocks get shorter
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;
};

// A block reflector. The work space is that of qr_factorization: T of all panels, R, and the reflector's work array.
template <class T>
struct qr_requests {
  matrix_view<T> a;
  const T* workspace;
  const lapack::column_division& division;

  static constexpr bool kIsTriangular = false;
  std::vector<step_request> operator()(int64_t panel, const span& blocks) const;
};

}  // namespace tev::offload
