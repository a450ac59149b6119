// SPDX-License-Identifier: BSD-3-Clause
// The next wider type, for oracles, and the bound of what so many roundings in the narrow one may add up to.
#pragma once

#include "host/wide.h"
#include "tests/support/matrix.h"

namespace tev::test {

// gamma(n) = n u / (1 - n u). A complex multiply-add rounds like four real ones.
template <class T>
double rounding_bound(int64_t roundings) {
  const double nu = static_cast<double>(roundings) * (kIsComplex<T> ? 4 : 1) *
                    static_cast<double>(std::numeric_limits<real_part_t<T>>::epsilon()) / 2;
  return nu / (1 - nu);
}

// A plain column-major matrix of wide numbers.
template <class W>
struct wide_matrix {
  wide_matrix(int64_t rows_, int64_t columns_)
      : rows(rows_), columns(columns_), data(static_cast<size_t>(rows_ * columns_)) {}
  W& operator()(int64_t i, int64_t j) { return data[static_cast<size_t>(i + j * rows)]; }
  const W& operator()(int64_t i, int64_t j) const { return data[static_cast<size_t>(i + j * rows)]; }

  int64_t rows, columns;
  std::vector<W> data;
};

template <class W>
wide_matrix<W> operator*(const wide_matrix<W>& a, const wide_matrix<W>& b) {
  wide_matrix<W> c(a.rows, b.columns);
  for (int64_t j = 0; j < b.columns; ++j)
    for (int64_t p = 0; p < a.columns; ++p)
      for (int64_t i = 0; i < a.rows; ++i) c(i, j) += a(i, p) * b(p, j);
  return c;
}

template <class W>
wide_matrix<W> adjoint(const wide_matrix<W>& a) {
  wide_matrix<W> result(a.columns, a.rows);
  for (int64_t j = 0; j < a.columns; ++j)
    for (int64_t i = 0; i < a.rows; ++i) result(j, i) = conjugate(a(i, j));
  return result;
}

template <class W>
wide_matrix<real_part_t<W>> moduli(const wide_matrix<W>& a) {
  wide_matrix<real_part_t<W>> result(a.rows, a.columns);
  for (size_t i = 0; i < a.data.size(); ++i) result.data[i] = std::abs(a.data[i]);
  return result;
}

template <class T>
wide_matrix<wide_t<T>> widened(const matrix<T>& a) {
  wide_matrix<wide_t<T>> result(a.rows(), a.columns());
  for (int64_t j = 0; j < a.columns(); ++j)
    for (int64_t i = 0; i < a.rows(); ++i) result(i, j) = a(i, j);
  return result;
}

}  // namespace tev::test
