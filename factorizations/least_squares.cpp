// SPDX-License-Identifier: BSD-3-Clause
// ?gels: least squares and minimum norm by QR. What is factored is tall: F = A, or A^H where A is wide. Then, with F =
// Q R,
//
//   F x = b, too many equations     min |F x - b|     x = R^-1 (Q^H b), its first rows
//   F^H x = b, too few              min |x|           x = Q (R^-H b, 0)
//
// Matrices near the ends of the range are brought to a safe size first, and the solution is brought back.
#include "factorizations/least_squares.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "factorizations/arguments.h"
#include "factorizations/chunks.h"
#include "factorizations/kernels.h"
#include "factorizations/qr.h"
#include "factorizations/qr_apply.h"
#include "factorizations/scalars.h"
#include "factorizations/workspace.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class R>
inline constexpr R kSmall = kSafeMinimum<R> / std::numeric_limits<R>::epsilon();

template <class T>
real_of<T> modulus(const T& x) {
  if constexpr (kComplex<T>)
    return std::hypot(x.real, x.imag);
  else
    return std::abs(x);
}

// NaN when there is one.
template <class T>
real_of<T> largest_modulus(const matrix_view<T>& a) {
  real_of<T> largest = 0;
  for (int64_t j = 0; j < a.columns; ++j)
    for (int64_t i = 0; i < a.rows; ++i)
      if (const real_of<T> size = modulus(a(i, j)); !(size <= largest) && largest == largest) largest = size;
  return largest;
}

template <class T>
void multiply(const matrix_view<T>& a, real_of<T> factor) {
  for (int64_t j = 0; j < a.columns; ++j)
    for (int64_t i = 0; i < a.rows; ++i) a(i, j) = product(a(i, j), real_element<T>(factor));
}

template <class T>
void set_to_zero(const matrix_view<T>& a) {
  for (int64_t j = 0; j < a.columns; ++j) std::fill_n(&a(0, j), a.rows, element_of<T>(0));
}

// A matrix was multiplied by to / from.
template <class R>
struct rescaling {
  R from = 1, to = 1;
};

// Largest elements are those that they had, or at the end of the safe range.
template <class T>
rescaling<real_of<T>> bring_into_range(const matrix_view<T>& a) {
  using R = real_of<T>;
  const R largest = largest_modulus(a);
  const bool is_small = largest > 0 && largest < kSmall<R>;
  if (!is_small && !(largest > 1 / kSmall<R>)) return {largest, largest};
  const R bound = is_small ? kSmall<R> : 1 / kSmall<R>;
  multiply(a, bound / largest);
  return {largest, bound};
}

// B := A^H.
template <class T>
void copy_adjoint(const matrix_view<T>& a, const matrix_view<T>& b) {
  for_chunks(b.columns, [&](int64_t j) {
    for (int64_t i = 0; i < b.rows; ++i) b(i, j) = blas::conjugate(a(j, i));
  });
}

// B := op(R)^-1 B. Returns the position of the first zero on the diagonal, from 1, and does nothing then.
template <class T>
int64_t solve_by_r(char op, const matrix_view<T>& r, const matrix_view<T>& b) {
  constexpr int64_t kChunk = 64;
  for (int64_t i = 0; i < r.columns; ++i)
    if (is_zero(r(i, i))) return i + 1;
  for_chunks(blas::ceil_div(b.columns, kChunk), [&](int64_t i) {
    const int64_t begin = i * kChunk;
    solve('L', 'U', op, 'N', r, b.block(0, begin, b.rows, std::min(kChunk, b.columns - begin)));
  });
  return 0;
}

template <class T>
struct least_squares_problem {
  bool is_transposed;  // F^H x = b, else F x = b
  matrix_view<T> f;
  T* tau;
  matrix_view<T> b;  // as many rows as F

  int64_t unknowns() const { return is_transposed ? f.rows : f.columns; }
};

enum class outcome { solved, singular, no_memory };

// x in the first rows of B. `zero`: the position of a zero on the diagonal of R.
template <class T>
outcome solve_tall(const least_squares_problem<T>& p, const qr_function<T>& factor, int64_t* zero) {
  if (!factor(p.f, p.tau)) return outcome::no_memory;
  const int64_t n = p.f.columns;
  const matrix_view<T> r = p.f.block(0, 0, n, n), top = p.b.block(0, 0, n, p.b.columns);
  if (!p.is_transposed && !apply_q(true, true, p.f, p.tau, p.b)) return outcome::no_memory;
  *zero = solve_by_r(p.is_transposed ? kAdjoint<T> : 'N', r, top);
  if (*zero != 0) return outcome::singular;
  if (!p.is_transposed) return outcome::solved;
  set_to_zero(p.b.block(n, 0, p.b.rows - n, p.b.columns));
  return apply_q(true, false, p.f, p.tau, p.b) ? outcome::solved : outcome::no_memory;
}

// B has max(m, n) rows.
template <class T>
outcome solve_scaled(bool transposed, const matrix_view<T>& a, T* tau, const matrix_view<T>& b,
                     const qr_function<T>& factor, int64_t* zero) {
  using R = real_of<T>;
  const bool is_tall = a.rows >= a.columns;
  const workspace<T> space(is_tall ? 1 : a.rows * a.columns);
  if (!space) return outcome::no_memory;
  const matrix_view<T> f = is_tall ? a : matrix_view<T>{space.data(), a.columns, a.rows, a.columns};
  const least_squares_problem<T> p = {transposed == is_tall, f, tau, b};
  const rescaling<R> of_a = bring_into_range(a);
  if (of_a.from == 0) return set_to_zero(b), outcome::solved;
  const rescaling<R> of_b = bring_into_range(b.block(0, 0, transposed ? a.columns : a.rows, b.columns));
  if (!is_tall) copy_adjoint(a, f);
  const outcome result = solve_tall(p, factor, zero);
  if (!is_tall) copy_adjoint(f, a);
  if (result != outcome::solved) return result;
  const matrix_view<T> x = b.block(0, 0, p.unknowns(), b.columns);
  if (of_a.from != of_a.to) multiply(x, of_a.to / of_a.from);
  if (of_b.from != of_b.to) multiply(x, of_b.from / of_b.to);
  return result;
}

}  // namespace

template <class T>
void gels(char trans, int64_t m, int64_t n, int64_t nrhs, T* a, int64_t lda, T* b, int64_t ldb, T* work, int64_t lwork,
          int64_t* info, const qr_function<T>& factor) {
  const int64_t order = std::min(m, n), length = std::max(m, n);
  const int64_t least = std::max<int64_t>(1, order + std::max(order, nrhs));
  if (!are_right<T>("GELS", info,
                    {{1, is_one_of(trans, kComplex<T> ? "NC" : "NT")},
                     {2, m >= 0},
                     {3, n >= 0},
                     {4, nrhs >= 0},
                     {6, holds(lda, m)},
                     {8, holds(ldb, length)},
                     work_length(10, lwork, least)}))
    return;
  if (is_query(work, lwork, least)) return;
  const matrix_view<T> right = {b, length, nrhs, ldb};
  if (order == 0 || nrhs == 0) return set_to_zero(right);
  if (solve_scaled(!is_one_of(trans, "N"), {a, m, n, lda}, work, right, factor, info) == outcome::no_memory)
    report_no_memory<T>("GELS", info);
}

}  // namespace tev::lapack

#define TEV_GELS(p, T)                                                                                                \
  template void tev::lapack::gels(char, int64_t, int64_t, int64_t, T*, int64_t, T*, int64_t, T*, int64_t, int64_t*,   \
                                  const tev::lapack::qr_function<T>&);                                                \
  void tev_lapack_##p##gels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs, T* a,         \
                            const int64_t* lda, T* b, const int64_t* ldb, T* work, const int64_t* lwork,              \
                            int64_t* info) {                                                                          \
    tev::lapack::gels<T>(*trans, *m, *n, *nrhs, a, *lda, b, *ldb, work, *lwork, info, tev::lapack::qr_in_process<T>); \
  }
TEV_GELS(s, float)
TEV_GELS(d, double)
TEV_GELS(c, tev_complex8)
TEV_GELS(z, tev_complex16)
