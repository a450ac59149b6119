// SPDX-License-Identifier: BSD-3-Clause
// Recursive halves, upper; lower is the mirror image:
//
//   | A11 A12 |   inverse:   A12 := - A11^-1 A12 A22^-1, then A11 and A22
//   |     A22 |   square:    A11 := A11 A11^H + A12 A12^H, A12 := A12 A22^H, A22 := A22 A22^H
#include "factorizations/inverse.h"

#include "factorizations/over_team.h"
#include "factorizations/scalars.h"

namespace tev::lapack {

namespace {

// Orders that are worked on element by element.
constexpr int64_t kNarrow = 8;

template <class T>
struct halves {
  matrix_view<T> first, beside, second;

  halves(char uplo, const matrix_view<T>& a) {
    const int64_t n = a.rows, half = n / 2, rest = n - half;
    first = a.block(0, 0, half, half);
    beside = uplo == 'U' ? a.block(0, half, half, rest) : a.block(half, 0, rest, half);
    second = a.block(half, half, rest, rest);
  }
};

// Element (i, j) of an upper triangle at i row + j column.
template <class T>
void invert_narrow(T* a, int64_t n, int64_t row, int64_t column) {
  const auto at = [&](int64_t i, int64_t j) -> T& { return a[i * row + j * column]; };
  for (int64_t j = 0; j < n; ++j) {
    at(j, j) = quotient(element_of<T>(1), at(j, j));
    for (int64_t i = 0; i < j; ++i) {
      T sum = {};
      for (int64_t k = i; k < j; ++k) sum = difference(sum, product(at(i, k), at(k, j)));
      at(i, j) = product(sum, at(j, j));
    }
  }
}

template <class T>
void invert(char uplo, const matrix_view<T>& a) {
  if (a.rows <= kNarrow) return invert_narrow(a.data, a.rows, uplo == 'U' ? 1 : a.ld, uplo == 'U' ? a.ld : 1);
  const halves<T> h(uplo, a);
  solve_over_team(uplo == 'U' ? 'L' : 'R', uplo, 'N', 'N', h.first, h.beside);
  invert(uplo, h.second);
  multiply_over_team(uplo == 'U' ? 'R' : 'L', uplo, 'N', 'N', element_of<T>(-1), h.second, h.beside);
  invert(uplo, h.first);
}

template <class T>
T conjugate_product(T x, T y) {
  return product(x, blas::conjugate(y));
}

// U U^H; the formula of the mirror image L^H L is the conjugate of it.
template <class T>
void square_narrow(T* a, int64_t n, int64_t row, int64_t column) {
  const auto at = [&](int64_t i, int64_t j) -> T& { return a[i * row + j * column]; };
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i <= j; ++i) {
      T sum = {};
      for (int64_t k = j; k < n; ++k) sum = difference(sum, conjugate_product(at(i, k), at(j, k)));
      at(i, j) = difference(T{}, sum);
    }
}

// C := C + A A^H (op N) or C + A^H A, by columns of C.
template <class T>
void add_square_over_team(char uplo, char op, const matrix_view<T>& a, const matrix_view<T>& c) {
  const auto lines = [&](const span& part) {
    return op == 'N' ? a.block(part.begin, 0, part.size(), a.columns) : a.block(0, part.begin, a.rows, part.size());
  };
  const int64_t k = op == 'N' ? a.columns : a.rows;
  const char other = op == 'N' ? kAdjoint<T> : 'N';
  deal_out<T>(c.columns, blas::product_work(c.rows, c.columns, k / 2), [&](const span& part) {
    const span beside = uplo == 'U' ? span{0, part.begin} : span{part.end, c.rows};
    add_square(uplo, op, lines(part), c.block(part.begin, part.begin, part.size(), part.size()));
    add_product(op, lines(beside), other, lines(part), c.block(beside.begin, part.begin, beside.size(), part.size()));
  });
}

}  // namespace

template <class T>
int64_t invert_triangle(char uplo, const matrix_view<T>& a) {
  for (int64_t j = 0; j < a.rows; ++j)
    if (is_zero(a(j, j))) return j + 1;
  invert(uplo, a);
  return 0;
}

template <class T>
void square_triangle(char uplo, const matrix_view<T>& a) {
  const bool upper = uplo == 'U';
  if (a.rows <= kNarrow) return square_narrow(a.data, a.rows, upper ? 1 : a.ld, upper ? a.ld : 1);
  const halves<T> h(uplo, a);
  square_triangle(uplo, h.first);
  add_square_over_team(uplo, upper ? 'N' : kAdjoint<T>, h.beside, h.first);
  multiply_over_team(upper ? 'R' : 'L', uplo, kAdjoint<T>, 'N', element_of<T>(1), h.second, h.beside);
  square_triangle(uplo, h.second);
}

#define TEV_INVERSE(T)                                           \
  template int64_t invert_triangle(char, const matrix_view<T>&); \
  template void square_triangle(char, const matrix_view<T>&);
TEV_INVERSE(float)
TEV_INVERSE(double)
TEV_INVERSE(tev_complex8)
TEV_INVERSE(tev_complex16)
#undef TEV_INVERSE

}  // namespace tev::lapack
