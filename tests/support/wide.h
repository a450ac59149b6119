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

  wide_matrix operator*(const wide_matrix& b) const {
    wide_matrix c(rows, b.columns);
    for (int64_t j = 0; j < b.columns; ++j)
      for (int64_t p = 0; p < columns; ++p)
        for (int64_t i = 0; i < rows; ++i) c(i, j) += (*this)(i, p) * b(p, j);
    return c;
  }
  wide_matrix adjoint() const {
    wide_matrix result(columns, rows);
    for (int64_t j = 0; j < columns; ++j)
      for (int64_t i = 0; i < rows; ++i) result(j, i) = conjugate((*this)(i, j));
    return result;
  }
  // Without factor v (v^H this), v being column k of V from row k on, where it is 1.
  void reflect(const wide_matrix& v, int64_t k, W factor) {
    for (int64_t j = 0; j < columns; ++j) {
      W sum = (*this)(k, j);
      for (int64_t i = k + 1; i < rows; ++i) sum += conjugate(v(i, k)) * (*this)(i, j);
      sum *= factor;
      (*this)(k, j) -= sum;
      for (int64_t i = k + 1; i < rows; ++i) (*this)(i, j) -= v(i, k) * sum;
    }
  }
  wide_matrix<real_part_t<W>> moduli() const {
    wide_matrix<real_part_t<W>> result(rows, columns);
    for (size_t i = 0; i < data.size(); ++i) result.data[i] = std::abs(data[i]);
    return result;
  }

  int64_t rows, columns;
  std::vector<W> data;
};

extern template struct wide_matrix<double>;
extern template struct wide_matrix<long double>;
extern template struct wide_matrix<std::complex<double>>;
extern template struct wide_matrix<std::complex<long double>>;

template <class W>
wide_matrix<W> adjoint(const wide_matrix<W>& a) {
  return a.adjoint();
}
template <class W>
wide_matrix<real_part_t<W>> moduli(const wide_matrix<W>& a) {
  return a.moduli();
}

template <class T>
wide_matrix<wide_t<T>> widened(const matrix<T>& a) {
  wide_matrix<wide_t<T>> result(a.rows(), a.columns());
  for (int64_t j = 0; j < a.columns(); ++j)
    for (int64_t i = 0; i < a.rows(); ++i) result(i, j) = a(i, j);
  return result;
}

}  // namespace tev::test
