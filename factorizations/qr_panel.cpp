// SPDX-License-Identifier: BSD-3-Clause
// Recursive: the left half of the columns is factored and applied to the right half, whose lower part is factored then.
// The two block reflectors become one:
//
//   T  T11  -T11 (V1^H V2) T22
//                          T22
#include "factorizations/qr_panel.h"

#include <algorithm>

#include "factorizations/kernels.h"
#include "factorizations/reflector.h"
#include "factorizations/scalars.h"

namespace tev::lapack {

namespace {

// Columns that are factored one by one, and of which halves are whole multiples.
constexpr int64_t kNarrow = 8;

// C := A^H B + beta C.
template <class T>
void adjoint_product(const matrix_view<T>& a, const matrix_view<T>& b, int beta, const matrix_view<T>& c) {
  const char op_a = kAdjoint<T>;
  const T one = element_of<T>(1), factor = element_of<T>(beta);
  kernel_calls<T>::xgemm(&op_a, "N", &c.rows, &c.columns, &a.rows, &one, a.data, &a.ld, b.data, &b.ld, &factor, c.data,
                         &c.ld);
}

// B := factor op(A) B (side L) or factor B op(A) (side R), A upper triangular.
template <class T>
void multiply_by_upper(char side, char op, int factor, const matrix_view<T>& a, const matrix_view<T>& b) {
  const T alpha = element_of<T>(factor);
  kernel_calls<T>::xtrmm(&side, "U", &op, "N", &b.rows, &b.columns, &alpha, a.data, &a.ld, b.data, &b.ld);
}

template <class T>
void move_to(const matrix_view<T>& target, const matrix_view<T>& source) {
  for (int64_t j = 0; j < source.columns; ++j)
    for (int64_t i = 0; i < source.rows; ++i) {
      target(i, j) = source(i, j);
      source(i, j) = element_of<T>(0);
    }
}

// Column j of T: -tau T (V^H v) above the diagonal. Without a reflector it is zero.
template <class T>
void extend_factor(const matrix_view<T>& t, int64_t j, T tau, const T* v_times_v) {
  t(j, j) = tau;
  for (int64_t i = 0; i < j; ++i) {
    T sum = element_of<T>(0);
    if (!is_zero(tau))
      for (int64_t l = i; l < j; ++l) sum = difference(sum, product(t(i, l), v_times_v[l]));
    t(i, j) = product(tau, sum);
  }
}

// T12, which holds V1^H V2 before.
template <class T>
void couple(const matrix_view<T>& t1, const matrix_view<T>& t2, const matrix_view<T>& t12) {
  multiply_by_upper('L', 'N', -1, t1, t12);
  multiply_by_upper('R', 'N', 1, t2, t12);
}

// The first half of n columns.
int64_t left_half(int64_t n) { return std::max(n / 2 / kNarrow, int64_t{1}) * kNarrow; }

template <class T>
void factor_narrow(const matrix_view<T>& a, T* tau, const qr_factors<T>& f) {
  const T one = element_of<T>(1), zero = element_of<T>(0);
  const int64_t step = 1;
  T products[kNarrow];  // of all columns with v
  for (int64_t j = 0; j < a.columns; ++j) {
    const int64_t rows = a.rows - j, right = a.columns - j - 1;
    T* const v = &a(j, j);
    tau[j] = generate_reflector(rows, *v, v + 1);
    f.r(j, j) = *v;
    *v = one;
    kernel_calls<T>::xgemv("C", &rows, &a.columns, &one, &a(j, 0), &a.ld, v, &step, &zero, products, &step);
    extend_factor(f.t, j, tau[j], products);
    if (right == 0) break;
    const T factor = difference(zero, blas::conjugate(tau[j]));
    if (!is_zero(factor))
      kernel_calls<T>::xgerc(&rows, &right, &factor, v, &step, products + j + 1, &step, &a(j, j + 1), &a.ld);
    move_to(f.r.block(j, j + 1, 1, right), a.block(j, j + 1, 1, right));
  }
}

template <class T>
void form_narrow_factor(const matrix_view<T>& v, const T* tau, const matrix_view<T>& t) {
  const T one = element_of<T>(1);
  const int64_t step = 1;
  T products[kNarrow];  // of the columns before with v
  for (int64_t j = 0; j < v.columns; ++j) {
    const int64_t below = v.rows - j - 1;
    for (int64_t i = 0; i < j; ++i) products[i] = blas::conjugate(v(j, i));
    if (below > 0 && j > 0)
      kernel_calls<T>::xgemv("C", &below, &j, &one, &v(j + 1, 0), &v.ld, &v(j + 1, j), &step, &one, products, &step);
    extend_factor(t, j, tau[j], products);
  }
}

}  // namespace

template <class T>
void factor_qr_panel(const matrix_view<T>& a, T* tau, const qr_factors<T>& f) {
  if (a.columns <= kNarrow) return factor_narrow(a, tau, f);
  const int64_t left = left_half(a.columns), right = a.columns - left;
  const int64_t below = a.rows - left;
  const matrix_view<T> v1 = a.block(0, 0, a.rows, left), beside = a.block(0, left, a.rows, right);
  const matrix_view<T> v2 = a.block(left, left, below, right);
  const matrix_view<T> t1 = f.t.block(0, 0, left, left), t2 = f.t.block(left, left, right, right);
  const matrix_view<T> t12 = f.t.block(0, left, left, right);
  factor_qr_panel(v1, tau, {t1, f.r.block(0, 0, left, left)});
  apply_qr_panel(v1, t1, beside, t12);
  move_to(f.r.block(0, left, left, right), beside.block(0, 0, left, right));
  factor_qr_panel(v2, tau + left, {t2, f.r.block(left, left, right, right)});
  adjoint_product(v1.block(left, 0, below, left), v2, 0, t12);
  couple(t1, t2, t12);
}

template <class T>
void apply_qr_panel(const matrix_view<T>& v, const matrix_view<T>& t, const matrix_view<T>& c,
                    const matrix_view<T>& w) {
  adjoint_product(v, c, 0, w);
  multiply_by_upper('L', 'C', 1, t, w);
  subtract_product('N', v, 'N', w, c);
}

template <class T>
void form_qr_factor(const matrix_view<T>& v, const T* tau, const matrix_view<T>& t) {
  if (v.columns <= kNarrow) return form_narrow_factor(v, tau, t);
  const int64_t left = left_half(v.columns), right = v.columns - left, below = v.rows - v.columns;
  const T one = element_of<T>(1);
  const matrix_view<T> v2 = v.block(left, left, v.rows - left, right);
  const matrix_view<T> t1 = t.block(0, 0, left, left), t2 = t.block(left, left, right, right);
  const matrix_view<T> t12 = t.block(0, left, left, right);
  form_qr_factor(v.block(0, 0, v.rows, left), tau, t1);
  form_qr_factor(v2, tau + left, t2);
  for (int64_t j = 0; j < right; ++j)
    for (int64_t i = 0; i < left; ++i) t12(i, j) = blas::conjugate(v(left + j, i));
  kernel_calls<T>::xtrmm("R", "L", "N", "U", &left, &right, &one, v2.data, &v2.ld, t12.data, &t12.ld);
  if (below > 0) adjoint_product(v.block(v.columns, 0, below, left), v.block(v.columns, left, below, right), 1, t12);
  couple(t1, t2, t12);
}

#define TEV_QR_PANEL(T)                                                                             \
  template void factor_qr_panel(const matrix_view<T>&, T*, const qr_factors<T>&);                   \
  template void apply_qr_panel(const matrix_view<T>&, const matrix_view<T>&, const matrix_view<T>&, \
                               const matrix_view<T>&);                                              \
  template void form_qr_factor(const matrix_view<T>&, const T*, const matrix_view<T>&);
TEV_QR_PANEL(float)
TEV_QR_PANEL(double)
TEV_QR_PANEL(tev_complex8)
TEV_QR_PANEL(tev_complex16)
#undef TEV_QR_PANEL

}  // namespace tev::lapack
