// SPDX-License-Identifier: BSD-3-Clause
// Whole matrices in the tool's memory, and the library's routines for them by precision.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

#include "host/kinds.h"
#include "host/wide.h"
#include "tev/blas.h"
#include "tev/lapack.h"
#include "tev/offload.h"

namespace tev::host {

// The routines of one precision, with std::complex for the library's own types.
template <class T>
struct routines;
#define TEV_ROUTINES(T, E, p, orgqr_name, ormqr_name)         \
  template <>                                                 \
  struct routines<T> {                                        \
    using element = E;                                        \
    static constexpr auto getrf = tev_offload_##p##getrf;     \
    static constexpr auto potrf = tev_offload_##p##potrf;     \
    static constexpr auto geqrf = tev_offload_##p##geqrf;     \
    static constexpr auto getrs = tev_offload_##p##getrs;     \
    static constexpr auto gecon = tev_offload_##p##gecon;     \
    static constexpr auto pocon = tev_offload_##p##pocon;     \
    static constexpr auto laswp = tev_lapack_##p##laswp;      \
    static constexpr auto orgqr = tev_lapack_##p##orgqr_name; \
    static constexpr auto ormqr = tev_lapack_##p##ormqr_name; \
    static constexpr auto trsm = tev_blas_##p##trsm;          \
    static constexpr auto gemm = tev_blas_##p##gemm;          \
  };
TEV_ROUTINES(float, float, s, orgqr, ormqr)
TEV_ROUTINES(double, double, d, orgqr, ormqr)
TEV_ROUTINES(std::complex<float>, tev_complex8, c, ungqr, unmqr)
TEV_ROUTINES(std::complex<double>, tev_complex16, z, ungqr, unmqr)
#undef TEV_ROUTINES

template <class T>
using real_of = decltype(std::real(T()));
template <class T>
using element_of = typename routines<T>::element;

template <class T>
element_of<T>* in(T* x) {
  return reinterpret_cast<element_of<T>*>(x);
}
template <class T>
const element_of<T>* in(const T* x) {
  return reinterpret_cast<const element_of<T>*>(x);
}

// A plain column-major matrix.
template <class T>
struct dense {
  dense(int64_t rows_, int64_t columns_)
      : rows(rows_), columns(columns_), elements(static_cast<size_t>(rows_ * columns_)) {}
  T& operator()(int64_t i, int64_t j) { return elements[static_cast<size_t>(i + j * rows)]; }
  const T& operator()(int64_t i, int64_t j) const { return elements[static_cast<size_t>(i + j * rows)]; }
  int64_t ld() const { return std::max<int64_t>(rows, 1); }

  int64_t rows, columns;
  std::vector<T> elements;
};

template <class T>
double column_sum(const T* column, int64_t rows) {
  double sum = 0;
  for (int64_t i = 0; i < rows; ++i) sum += static_cast<double>(std::abs(column[i]));
  return sum;
}

// Not below a NaN.
inline double larger(double x, double y) { return x >= y ? x : y; }

template <class T>
double norm1(const dense<T>& a) {
  double norm = 0;
  for (int64_t j = 0; j < a.columns; ++j) norm = larger(norm, column_sum(&a(0, j), a.rows));
  return norm;
}

template <class T>
double largest_modulus(const dense<T>& a) {
  double largest = 0;
  for (const T& x : a.elements) largest = std::max(largest, static_cast<double>(std::abs(x)));
  return largest;
}

// C := C + factor op(A) B.
template <class T>
void add_product(T factor, char op, const dense<T>& a, char op_b, const dense<T>& b, dense<T>& c) {
  const int64_t k = op == 'N' ? a.columns : a.rows, lda = a.ld(), ldb = b.ld(), ldc = c.ld();
  const T one(1);
  routines<T>::gemm(&op, &op_b, &c.rows, &c.columns, &k, in(&factor), in(a.elements.data()), &lda,
                    in(b.elements.data()), &ldb, in(&one), in(c.elements.data()), &ldc);
}

// The triangle of a that is meant, zeros elsewhere, `rows` x `columns`.
template <class T>
dense<T> triangle_of(const dense<T>& a, int64_t rows, int64_t columns, bool upper, bool unit) {
  dense<T> result(rows, columns);
  for (int64_t j = 0; j < columns; ++j)
    for (int64_t i = 0; i < rows; ++i)
      if (i == j || (i < j) == upper) result(i, j) = i == j && unit ? T(1) : a(i, j);
  return result;
}

// In real precisions the transpose.
template <class T>
inline constexpr char kAdjoint = kIsComplex<T> ? 'C' : 'T';

// C := op(Q) C, Q of the reflectors that ?geqrf left in the first columns of v.
template <class T>
void apply_q(char trans, const dense<T>& v, const std::vector<T>& tau, dense<T>& c) {
  const int64_t k = static_cast<int64_t>(tau.size()), ld = v.ld(), ldc = c.ld();
  int64_t lwork = -1, info = 0;
  T best(0);
  const auto call = [&](T* work) {
    routines<T>::ormqr("L", &trans, &c.rows, &c.columns, &k, in(v.elements.data()), &ld, in(tau.data()),
                       in(c.elements.data()), &ldc, in(work), &lwork, &info);
  };
  call(&best);
  lwork = static_cast<int64_t>(std::real(best));
  std::vector<T> work(static_cast<size_t>(std::max<int64_t>(lwork, 1)));
  call(work.data());
}

// As many columns as there are reflectors.
template <class T>
dense<T> first_columns_of_q(const dense<T>& v, const std::vector<T>& tau) {
  const int64_t k = static_cast<int64_t>(tau.size()), ld = v.ld(), lwork = std::max<int64_t>(64 * k, 1);
  dense<T> q(v.rows, k);
  std::copy_n(v.elements.begin(), q.elements.size(), q.elements.begin());
  std::vector<T> work(static_cast<size_t>(lwork));
  int64_t info = 0;
  routines<T>::orgqr(&q.rows, &k, &k, in(q.elements.data()), &ld, in(tau.data()), in(work.data()), &lwork, &info);
  return q;
}

}  // namespace tev::host
