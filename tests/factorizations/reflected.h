// SPDX-License-Identifier: BSD-3-Clause
// A QR factorization by the library, and its Q as the stored reflectors say, applied one by one in the next wider type.
#pragma once

#include "tests/factorizations/factored.h"

namespace tev::test {

template <class W>
wide_matrix<W> unit_matrix(int64_t rows, int64_t columns) {
  wide_matrix<W> result(rows, columns);
  for (int64_t j = 0; j < std::min(rows, columns); ++j) result(j, j) = W(1);
  return result;
}

template <class W>
std::vector<real_part_t<W>> column_norms(const wide_matrix<W>& a) {
  std::vector<real_part_t<W>> norms(static_cast<size_t>(a.columns));
  for (int64_t j = 0; j < a.columns; ++j) {
    for (int64_t i = 0; i < a.rows; ++i) norms[static_cast<size_t>(j)] += std::norm(a(i, j));
    norms[static_cast<size_t>(j)] = std::sqrt(norms[static_cast<size_t>(j)]);
  }
  return norms;
}

// Reflectors of length m, one after the other: |error| of a column <= 30 m u |column|, with which the reference's test
// programs judge, too, and what underflows.
template <class T, class W>
void expect_columns_close(const wide_matrix<W>& result, const wide_matrix<W>& expected,
                          const std::vector<real_part_t<W>>& norms, int64_t m, const std::string& what) {
  using S = real_part_t<W>;
  wide_matrix<W> error = result;
  for (size_t i = 0; i < error.data.size(); ++i) error.data[i] -= expected.data[i];
  const std::vector<S> errors = column_norms(error);
  const S underflow = std::numeric_limits<real_part_t<T>>::denorm_min() * static_cast<S>(30 * (m + 1) * (m + 1));
  for (size_t j = 0; j < errors.size(); ++j)
    ASSERT_TRUE(errors[j] <= static_cast<S>(rounding_bound<T>(30 * m / (kIsComplex<T> ? 4 : 1))) * norms[j] + underflow)
        << what << ": " << errors[j] << " beside " << norms[j] << " in column " << j;
}

template <class T>
struct factored_qr {
  using W = wide_t<T>;

  explicit factored_qr(const matrix<T>& start) : a(start), tau(order(), 1) {
    run([&](auto* work, const int64_t* lwork) {
      const int64_t m = a.rows(), n = a.columns(), lda = a.ld();
      TEV_LAPACK(geqrf)(&m, &n, at(a), &lda, at(tau), work, lwork, &info);
    });
  }

  int64_t order() const { return std::min(a.rows(), a.columns()); }

  // With zeros below, as high as A.
  wide_matrix<W> upper() const {
    wide_matrix<W> r(a.rows(), a.columns());
    for (int64_t j = 0; j < a.columns(); ++j)
      for (int64_t i = 0; i <= std::min(j, a.rows() - 1); ++i) r(i, j) = a(i, j);
    return r;
  }

  // Q X or Q^H X.
  wide_matrix<W> reflected(wide_matrix<W> x, bool transposed) const {
    const wide_matrix<W> v = widened(a);
    for (int64_t i = 0; i < order(); ++i) {
      const int64_t k = transposed ? i : order() - 1 - i;
      x.reflect(v, k, transposed ? conjugate(W(tau(k, 0))) : W(tau(k, 0)));
    }
    return x;
  }

  void multiply(char side, char trans, const matrix<T>& c) const {
    run([&](auto* work, const int64_t* lwork) {
      const int64_t m = c.rows(), n = c.columns(), k = order(), lda = a.ld(), ldc = c.ld();
      of_precision<T>(tev_lapack_sormqr, tev_lapack_dormqr, tev_lapack_cunmqr, tev_lapack_zunmqr)(
          &side, &trans, &m, &n, &k, at(a), &lda, at(tau), at(c), &ldc, work, lwork, &info);
    });
  }

  matrix<T> generate(int64_t columns) const {
    matrix<T> q(a.rows(), columns);
    for (int64_t j = 0; j < std::min(columns, order()); ++j) std::copy_n(&a(0, j), a.rows(), &q(0, j));
    run([&](auto* work, const int64_t* lwork) {
      const int64_t m = q.rows(), k = std::min(columns, order()), ldq = q.ld();
      of_precision<T>(tev_lapack_sorgqr, tev_lapack_dorgqr, tev_lapack_cungqr, tev_lapack_zungqr)(
          &m, &columns, &k, at(q), &ldq, at(tau), work, lwork, &info);
    });
    return q;
  }

  // Asks for the length of the work array, then calls with one.
  template <class Call>
  void run(const Call& call) const {
    matrix<T> length(1, 1);
    int64_t lwork = -1;
    call(at(length), &lwork);
    EXPECT_EQ(info, 0);
    lwork = static_cast<int64_t>(std::real(length(0, 0)));
    call(at(matrix<T>(lwork, 1)), &lwork);
    EXPECT_EQ(info, 0);
  }

  matrix<T> a, tau;
  mutable int64_t info = 7;
};

}  // namespace tev::test
