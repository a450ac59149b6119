// SPDX-License-Identifier: BSD-3-Clause
// ?getrf, and what stands on its factors: solutions, inverse, condition, refinement, determinant.
#include <cmath>

#include "factorizations/arguments.h"
#include "factorizations/condition.h"
#include "factorizations/inverse.h"
#include "factorizations/lu.h"
#include "factorizations/lu_panel.h"
#include "factorizations/over_team.h"
#include "factorizations/refinement.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class T>
using view = matrix_view<T>;

// The factors are only read; views of them are not.
template <class T>
view<T> factors_at(const T* a, int64_t n, int64_t lda) {
  return {const_cast<T*>(a), n, n, lda};
}

template <class T>
void getrf(int64_t m, int64_t n, T* a, int64_t lda, int64_t* ipiv, int64_t* info) {
  if (!are_right<T>("GETRF", info, {{1, m >= 0}, {2, n >= 0}, {4, holds(lda, m)}}) || m == 0 || n == 0) return;
  *info = lu_in_process<T>({a, m, n, lda}, ipiv);
}

// B := op(A)^-1 B.
template <class T>
void solve_system(char op, const view<T>& lu, const int64_t* ipiv, const view<T>& b) {
  const int64_t n = lu.rows;
  if (op == 'N') {
    interchange_rows(b, ipiv, 0, n);
    solve_over_team('L', 'L', 'N', 'U', lu, b);
    solve_over_team('L', 'U', 'N', 'N', lu, b);
  } else {
    solve_over_team('L', 'U', op, 'N', lu, b);
    solve_over_team('L', 'L', op, 'U', lu, b);
    interchange_rows_backward(b, ipiv, 0, n);
  }
}

template <class T>
void getrs(char trans, int64_t n, int64_t nrhs, const T* a, int64_t lda, const int64_t* ipiv, T* b, int64_t ldb,
           int64_t* info) {
  if (are_right<T>("GETRS", info,
                   {{1, is_one_of(trans, "NTC")}, {2, n >= 0}, {3, nrhs >= 0}, {5, holds(lda, n)}, {8, holds(ldb, n)}}))
    solve_system<T>(upper_case(trans), factors_at(a, n, lda), ipiv, {b, n, nrhs, ldb});
}

template <class T>
void gesv(int64_t n, int64_t nrhs, T* a, int64_t lda, int64_t* ipiv, T* b, int64_t ldb, int64_t* info) {
  if (!are_right<T>("GESV", info, {{1, n >= 0}, {2, nrhs >= 0}, {4, holds(lda, n)}, {7, holds(ldb, n)}}) || n == 0)
    return;
  *info = lu_in_process<T>({a, n, n, lda}, ipiv);
  if (*info == 0) solve_system<T>('N', {a, n, n, lda}, ipiv, {b, n, nrhs, ldb});
}

// ---- Inverse -------------------------------------------------------------------------------------------------------

// Columns that the inverse of L is applied to at a time.
constexpr int64_t kInverseWidth = 64;

// X L = A in place, where A holds U^-1 above L: from right to left, block columns of L go to `work` and make room.
template <class T>
void divide_by_lower(const view<T>& a, T* work, int64_t width) {
  const int64_t n = a.rows;
  for (int64_t begin = (n - 1) / width * width; begin >= 0; begin -= width) {
    const int64_t own = std::min(width, n - begin), beyond = n - begin - own;
    const view<T> lower = {work, n - begin, own, n - begin};
    for (int64_t j = 0; j < own; ++j)
      for (int64_t i = j + 1; i < lower.rows; ++i) {
        lower(i, j) = a(begin + i, begin + j);
        a(begin + i, begin + j) = {};
      }
    const view<T> target = a.block(0, begin, n, own);
    subtract_product_over_team(a.block(0, begin + own, n, beyond), lower.block(own, 0, beyond, own), target);
    solve_over_team('R', 'L', 'N', 'U', lower.block(0, 0, own, own), target);
  }
}

template <class T>
void getri(int64_t n, T* a, int64_t lda, const int64_t* ipiv, T* work, int64_t lwork, int64_t* info) {
  const bool asks = lwork == -1;
  if (!are_right<T>("GETRI", info, {{1, n >= 0}, {3, holds(lda, n)}, {6, asks || holds(lwork, n)}})) return;
  work[0] = real_element<T>(static_cast<real_of<T>>(std::max<int64_t>(1, n * kInverseWidth)));
  if (asks || n == 0) return;
  const view<T> all = {a, n, n, lda};
  *info = invert_triangle('U', all);
  if (*info != 0) return;
  divide_by_lower(all, work, std::min(kInverseWidth, lwork / n));
  for (int64_t j = n; j-- > 0;)
    if (ipiv[j] - 1 != j) std::swap_ranges(&all(0, j), &all(0, j) + n, &all(0, ipiv[j] - 1));
  work[0] = real_element<T>(static_cast<real_of<T>>(n * kInverseWidth));
}

// ---- Condition, refinement -----------------------------------------------------------------------------------------

template <class T>
void gecon(char norm, int64_t n, const T* a, int64_t lda, real_of<T> anorm, real_of<T>* rcond, T* work, int64_t* iwork,
           int64_t* info) {
  if (!are_right<T>("GECON", info, {{1, is_one_of(norm, "1OI")}, {2, n >= 0}, {4, holds(lda, n)}, {5, !(anorm < 0)}}))
    return;
  const view<T> lu = factors_at(a, n, lda);
  // Interchanges reorder the columns of the inverse, which its norms do not notice; they are left out.
  const auto solve_plain = [&](T* x) {
    solve<T>('L', 'L', 'N', 'U', lu, {x, n, 1, n}), solve<T>('L', 'U', 'N', 'N', lu, {x, n, 1, n});
  };
  const auto solve_adjoint = [&](T* x) {
    solve<T>('L', 'U', kAdjoint<T>, 'N', lu, {x, n, 1, n}), solve<T>('L', 'L', kAdjoint<T>, 'U', lu, {x, n, 1, n});
  };
  const auto any_nan = [&] {
    for (int64_t j = 0; j < n; ++j)
      if (has_nan(&lu(0, j), n)) return true;
    return false;
  };
  // The infinity norm is the 1-norm of the adjoint.
  *rcond = is_one_of(norm, "I") ? reciprocal_condition(n, anorm, work, iwork, solve_adjoint, solve_plain, any_nan)
                                : reciprocal_condition(n, anorm, work, iwork, solve_plain, solve_adjoint, any_nan);
}

template <class T>
void gerfs(char trans, int64_t n, int64_t nrhs, const T* a, int64_t lda, const T* af, int64_t ldaf, const int64_t* ipiv,
           const T* b, int64_t ldb, T* x, int64_t ldx, real_of<T>* ferr, real_of<T>* berr, T* work, int64_t* iwork,
           real_of<T>* sizes, int64_t* info) {
  if (!are_right<T>("GERFS", info,
                    {{1, is_one_of(trans, "NTC")},
                     {2, n >= 0},
                     {3, nrhs >= 0},
                     {5, holds(lda, n)},
                     {7, holds(ldaf, n)},
                     {10, holds(ldb, n)},
                     {12, holds(ldx, n)}}))
    return;
  const char op = upper_case(trans), adjoint_of_op = op == 'N' ? kAdjoint<T> : 'N';
  const view<T> lu = factors_at(af, n, ldaf);
  for (int64_t j = 0; j < nrhs; ++j) {
    ferr[j] = berr[j] = 0;
    if (n == 0) continue;
    const auto bounds =
        refine(op, factors_at(a, n, lda), b + j * ldb, x + j * ldx, work, iwork, sizes, [&](bool adjoint, T* y) {
          solve_system<T>(adjoint ? adjoint_of_op : op, lu, ipiv, {y, n, 1, n});
        });
    ferr[j] = bounds.forward, berr[j] = bounds.backward;
  }
}

// ---- Determinant ---------------------------------------------------------------------------------------------------

// Multiplied one by one and brought back to parts below 1 each time.
template <class T>
void determinant(int64_t n, const T* a, int64_t lda, const int64_t* ipiv, T* mantissa, int64_t* exponent) {
  T value = element_of<T>(1);
  *exponent = 0;
  const auto normalize = [&](T x) {
    int32_t power = 0;
    std::frexp(largest_part(x), &power);
    if (is_zero(x) || !std::isfinite(modulus1(x))) power = 0;
    *exponent += power;
    return scaled_by_power(x, -power);
  };
  for (int64_t j = 0; j < n; ++j) {
    value = normalize(product(value, normalize(a[j + j * lda])));
    if (ipiv[j] - 1 != j) value = difference(T{}, value);
  }
  if (n == 0) value = normalize(value);
  if (is_zero(value)) *exponent = 0;
  *mantissa = value;
}

}  // namespace
}  // namespace tev::lapack

#define TEV_LU(p, T)                                                                                                   \
  void tev_lapack_##p##getrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, int64_t* ipiv,              \
                             int64_t* info) {                                                                          \
    tev::lapack::getrf(*m, *n, a, *lda, ipiv, info);                                                                   \
  }                                                                                                                    \
  void tev_lapack_##p##getrs(const char* trans, const int64_t* n, const int64_t* nrhs, const T* a, const int64_t* lda, \
                             const int64_t* ipiv, T* b, const int64_t* ldb, int64_t* info) {                           \
    tev::lapack::getrs(*trans, *n, *nrhs, a, *lda, ipiv, b, *ldb, info);                                               \
  }                                                                                                                    \
  void tev_lapack_##p##gesv(const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, int64_t* ipiv, T* b,      \
                            const int64_t* ldb, int64_t* info) {                                                       \
    tev::lapack::gesv(*n, *nrhs, a, *lda, ipiv, b, *ldb, info);                                                        \
  }                                                                                                                    \
  void tev_lapack_##p##getri(const int64_t* n, T* a, const int64_t* lda, const int64_t* ipiv, T* work,                 \
                             const int64_t* lwork, int64_t* info) {                                                    \
    tev::lapack::getri(*n, a, *lda, ipiv, work, *lwork, info);                                                         \
  }                                                                                                                    \
  void tev_lapack_##p##getdet(const int64_t* n, const T* a, const int64_t* lda, const int64_t* ipiv, T* mantissa,      \
                              int64_t* exponent) {                                                                     \
    tev::lapack::determinant(*n, a, *lda, ipiv, mantissa, exponent);                                                   \
  }
TEV_LU(s, float)
TEV_LU(d, double)
TEV_LU(c, tev_complex8)
TEV_LU(z, tev_complex16)

// Real types have integer work besides, complex ones real work. Real refinement takes its sizes from the end of `work`.
#define TEV_LU_ESTIMATES(p, T, R, Extra, signs, sizes)                                                                 \
  void tev_lapack_##p##gecon(const char* norm, const int64_t* n, const T* a, const int64_t* lda, const R* anorm,       \
                             R* rcond, T* work, [[maybe_unused]] Extra* extra, int64_t* info) {                        \
    tev::lapack::gecon(*norm, *n, a, *lda, *anorm, rcond, work, signs, info);                                          \
  }                                                                                                                    \
  void tev_lapack_##p##gerfs(const char* trans, const int64_t* n, const int64_t* nrhs, const T* a, const int64_t* lda, \
                             const T* af, const int64_t* ldaf, const int64_t* ipiv, const T* b, const int64_t* ldb,    \
                             T* x, const int64_t* ldx, R* ferr, R* berr, T* work, Extra* extra, int64_t* info) {       \
    tev::lapack::gerfs(*trans, *n, *nrhs, a, *lda, af, *ldaf, ipiv, b, *ldb, x, *ldx, ferr, berr, work, signs, sizes,  \
                       info);                                                                                          \
  }
TEV_LU_ESTIMATES(s, float, float, int64_t, extra, work + *n)
TEV_LU_ESTIMATES(d, double, double, int64_t, extra, work + *n)
TEV_LU_ESTIMATES(c, tev_complex8, float, float, nullptr, extra)
TEV_LU_ESTIMATES(z, tev_complex16, double, double, nullptr, extra)
