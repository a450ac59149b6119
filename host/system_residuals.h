// SPDX-License-Identifier: BSD-3-Clause
// How well factors and solutions fit, as the reference LAPACK's test programs judge (host/linear_system.h has the
// formulas).
#pragma once

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "host/dense.h"
#include "host/linear_system.h"
#include "host/system_operands.h"

namespace tev::host {

// What a call found.
template <class T>
struct found {
  std::vector<int64_t> pivots;
  std::vector<T> tau;
  dense<T> factors = {0, 0};   // as LAPACK leaves them
  dense<T> solution = {0, 0};  // of solve and lstsq
};

template <class T>
class judge {
 public:
  judge(const system_call& c, const found<T>& f) : call_(c), found_(f), a_(whole_matrix<T>(c)), norm_(norm1(a_)) {}

  // Once: the first residual takes the matrix.
  std::vector<residual> residuals() {
    const auto rows = static_cast<double>(call_.m), columns = static_cast<double>(call_.n);
    switch (call_.what) {
      case task::lu:
        return {scaled("|P A - L U| / (n |A| u)", lu_error(), columns * norm_)};
      case task::cholesky:
        return {scaled("|A - L L^H| / (n |A| u)", cholesky_error(), columns * norm_)};
      case task::qr:
        return {scaled("|R - Q^H A| / (m |A| u)", qr_error(), rows * norm_),
                scaled("|I - Q^H Q| / (m u)", orthogonality_error(), rows)};
      case task::solve:
        return {scaled("|b - A x| / (|A| |x| u)", solution_error(), norm_)};
      case task::lstsq:
        return {scaled("|(B - A X)^H A| / (max(m, n) |A| |B| u)", least_squares_error(),
                       std::max(rows, columns) * norm_ * norm1(right_sides<T>(call_)))};
    }
    return {};
  }

 private:
  static residual scaled(const char* of, double error, double scale) {
    constexpr double kUnit = static_cast<double>(std::numeric_limits<real_of<T>>::epsilon()) / 2;
    return {of, error == 0 ? 0 : error / (scale * kUnit)};
  }
  int64_t order() const { return std::min(call_.m, call_.n); }

  double lu_error() {
    const int64_t k = order(), ld = a_.ld(), first = 1, step = 1;
    routines<T>::laswp(&a_.columns, in(a_.elements.data()), &ld, &first, &k, found_.pivots.data(), &step);
    add_product(T(-1), 'N', triangle_of(found_.factors, call_.m, k, false, true), 'N',
                triangle_of(found_.factors, k, call_.n, true, false), a_);
    return norm1(a_);
  }

  double cholesky_error() {
    const bool upper = call_.uplo == 'U';
    const dense<T> factor = triangle_of(found_.factors, call_.n, call_.n, upper, false);
    add_product(T(-1), upper ? kAdjoint<T> : 'N', factor, upper ? 'N' : kAdjoint<T>, factor, a_);
    return norm1(a_);
  }

  double qr_error() {
    apply_q(kAdjoint<T>, found_.factors, found_.tau, a_);
    for (int64_t j = 0; j < a_.columns; ++j)
      for (int64_t i = 0; i <= std::min(j, a_.rows - 1); ++i) a_(i, j) -= found_.factors(i, j);
    return norm1(a_);
  }

  double orthogonality_error() const {
    dense<T> q(call_.m, order()), product(order(), order());
    for (int64_t j = 0; j < order(); ++j) q(j, j) = product(j, j) = T(1);
    apply_q('N', found_.factors, found_.tau, q);
    add_product(T(-1), kAdjoint<T>, q, 'N', q, product);
    return norm1(product);
  }

  double solution_error() const {
    dense<T> b = right_sides<T>(call_);
    const dense<T>& x = found_.solution;
    add_product(T(-1), 'N', a_, 'N', x, b);
    double worst = 0;
    for (int64_t j = 0; j < b.columns; ++j) {
      const double error = column_sum(&b(0, j), b.rows);
      worst = larger(worst, error == 0 ? 0 : error / column_sum(&x(0, j), x.rows));
    }
    return worst;
  }

  double least_squares_error() const {
    dense<T> b = right_sides<T>(call_), product(call_.right_sides, call_.n);
    add_product(T(-1), 'N', a_, 'N', found_.solution, b);
    add_product(T(1), kAdjoint<T>, b, 'N', a_, product);
    return norm1(product);
  }

  const system_call& call_;
  const found<T>& found_;
  dense<T> a_;
  const double norm_;
};

}  // namespace tev::host
