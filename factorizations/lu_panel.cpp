// SPDX-License-Identifier: BSD-3-Clause
// Recursive: the left half of the columns is factored, applied to the right half, which is factored then. So nearly
// all of the work is in products as deep as can be.
//
//   | A11 A12 |     1. factor A11, A21     3. solve A12 by the unit lower triangle of A11     5. factor A22
//   | A21 A22 |     2. exchange rows       4. A22 := A22 - A21 A12                            6. exchange rows of A21
#include "factorizations/lu_panel.h"

#include <algorithm>
#include <utility>

#include "factorizations/kernels.h"
#include "factorizations/scalars.h"
#include "tev/lapack.h"

namespace tev::lapack {

namespace {

// Columns that are factored one by one, and of which halves are whole multiples.
constexpr int64_t kNarrow = 8;

template <class T>
int64_t largest_of(const T* x, int64_t n) {
  int64_t place = 0;
  auto largest = modulus1(x[0]);
  for (int64_t i = 1; i < n; ++i)
    if (const auto size = modulus1(x[i]); size > largest) largest = size, place = i;
  return place;
}

template <class T>
void divide(T* x, int64_t n, T divisor) {
  if (modulus1(divisor) >= kSafeMinimum<real_of<T>>) {
    const T reciprocal = quotient(element_of<T>(1), divisor);
    const int64_t step = 1;
    kernel_calls<T>::xscal(&n, &reciprocal, x, &step);
  } else {
    for (int64_t i = 0; i < n; ++i) x[i] = quotient(x[i], divisor);
  }
}

template <class T>
int64_t factor_narrow(const matrix_view<T>& a, int64_t* pivots) {
  int64_t info = 0;
  const T minus_one = element_of<T>(-1);
  const int64_t step = 1;
  for (int64_t j = 0; j < std::min(a.rows, a.columns); ++j) {
    const int64_t pivot = j + largest_of(&a(j, j), a.rows - j), below = a.rows - j - 1, right = a.columns - j - 1;
    pivots[j] = pivot + 1;
    if (is_zero(a(pivot, j))) {
      if (info == 0) info = j + 1;
      continue;
    }
    if (pivot != j)
      for (int64_t l = 0; l < a.columns; ++l) std::swap(a(j, l), a(pivot, l));
    if (below == 0) continue;
    divide(&a(j + 1, j), below, a(j, j));
    if (right > 0)
      kernel_calls<T>::xgeru(&below, &right, &minus_one, &a(j + 1, j), &step, &a(j, j + 1), &a.ld, &a(j + 1, j + 1),
                             &a.ld);
  }
  return info;
}

}  // namespace

template <class T>
int64_t factor_lu(const matrix_view<T>& a, int64_t* pivots, columns_done* told) {
  const int64_t order = std::min(a.rows, a.columns);
  if (a.columns <= kNarrow) {
    const int64_t info = factor_narrow(a, pivots);
    if (told != nullptr) told->add(order);
    return info;
  }
  const int64_t left = std::max(order / 2 / kNarrow * kNarrow, std::min(order, kNarrow)), right = a.columns - left;
  const matrix_view<T> beside = a.block(0, left, a.rows, right);
  int64_t info = factor_lu(a.block(0, 0, a.rows, left), pivots, told);
  interchange_rows(beside, pivots, 0, left);
  solve('L', 'L', 'N', 'U', a.block(0, 0, left, left), beside.block(0, 0, left, right));
  const matrix_view<T> rest = a.block(left, left, a.rows - left, right);
  if (rest.rows == 0) return info;
  subtract_product('N', a.block(left, 0, rest.rows, left), 'N', beside.block(0, 0, left, right), rest);
  const int64_t info_of_rest = factor_lu(rest, pivots + left, told);
  if (info == 0 && info_of_rest != 0) info = left + info_of_rest;
  for (int64_t i = left; i < order; ++i) pivots[i] += left;
  interchange_rows(a.block(0, 0, a.rows, left), pivots, left, order);
  return info;
}

namespace {

template <class T>
constexpr auto laswp = tev_lapack_xslaswp;
template <>
constexpr auto laswp<double> = tev_lapack_xdlaswp;
template <>
constexpr auto laswp<tev_complex8> = tev_lapack_xclaswp;
template <>
constexpr auto laswp<tev_complex16> = tev_lapack_xzlaswp;

template <class T>
void interchange(const matrix_view<T>& a, const int64_t* pivots, int64_t first, int64_t last, int64_t step) {
  const int64_t from = first + 1;
  laswp<T>(&a.columns, a.data, &a.ld, &from, &last, pivots, &step);
}

}  // namespace

template <class T>
void interchange_rows(const matrix_view<T>& a, const int64_t* pivots, int64_t first, int64_t last) {
  interchange(a, pivots, first, last, 1);
}

template <class T>
void interchange_rows_backward(const matrix_view<T>& a, const int64_t* pivots, int64_t first, int64_t last) {
  interchange(a, pivots, first, last, -1);
}

#define TEV_LU_PANEL(T)                                                                    \
  template int64_t factor_lu(const matrix_view<T>&, int64_t*, columns_done*);              \
  template void interchange_rows(const matrix_view<T>&, const int64_t*, int64_t, int64_t); \
  template void interchange_rows_backward(const matrix_view<T>&, const int64_t*, int64_t, int64_t);
TEV_LU_PANEL(float)
TEV_LU_PANEL(double)
TEV_LU_PANEL(tev_complex8)
TEV_LU_PANEL(tev_complex16)
#undef TEV_LU_PANEL

}  // namespace tev::lapack
