// SPDX-License-Identifier: BSD-3-Clause
// ?potrf, and what stands on its factor: solutions, inverse, condition.
#include "factorizations/arguments.h"
#include "factorizations/cholesky.h"
#include "factorizations/condition.h"
#include "factorizations/inverse.h"
#include "factorizations/over_team.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class T>
void potrf(char uplo, int64_t n, T* a, int64_t lda, int64_t* info) {
  if (!are_right<T>("POTRF", info, {{1, is_one_of(uplo, "UL")}, {2, n >= 0}, {4, holds(lda, n)}}) || n == 0) return;
  *info = cholesky_in_process<T>(upper_case(uplo), {a, n, n, lda});
}

// B := A^-1 B, `with` each of the two triangular solutions.
template <class T, class Solve>
void solve_system(char uplo, const matrix_view<T>& factor, const matrix_view<T>& b, const Solve& with) {
  with('L', uplo, uplo == 'L' ? 'N' : kAdjoint<T>, 'N', factor, b);
  with('L', uplo, uplo == 'L' ? kAdjoint<T> : 'N', 'N', factor, b);
}

template <class T>
bool system_is_right(const char* name, char uplo, int64_t n, int64_t nrhs, int64_t lda, int64_t ldb, int64_t* info) {
  return are_right<T>(
      name, info, {{1, is_one_of(uplo, "UL")}, {2, n >= 0}, {3, nrhs >= 0}, {5, holds(lda, n)}, {7, holds(ldb, n)}});
}

template <class T>
void potrs(char uplo, int64_t n, int64_t nrhs, const T* a, int64_t lda, T* b, int64_t ldb, int64_t* info) {
  if (system_is_right<T>("POTRS", uplo, n, nrhs, lda, ldb, info))
    solve_system<T>(upper_case(uplo), {const_cast<T*>(a), n, n, lda}, {b, n, nrhs, ldb}, solve_over_team<T>);
}

template <class T>
void posv(char uplo, int64_t n, int64_t nrhs, T* a, int64_t lda, T* b, int64_t ldb, int64_t* info) {
  if (!system_is_right<T>("POSV", uplo, n, nrhs, lda, ldb, info) || n == 0) return;
  *info = cholesky_in_process<T>(upper_case(uplo), {a, n, n, lda});
  if (*info == 0) solve_system<T>(upper_case(uplo), {a, n, n, lda}, {b, n, nrhs, ldb}, solve_over_team<T>);
}

template <class T>
void potri(char uplo, int64_t n, T* a, int64_t lda, int64_t* info) {
  if (!are_right<T>("POTRI", info, {{1, is_one_of(uplo, "UL")}, {2, n >= 0}, {4, holds(lda, n)}}) || n == 0) return;
  const matrix_view<T> all = {a, n, n, lda};
  *info = invert_triangle(upper_case(uplo), all);
  if (*info == 0) square_triangle(upper_case(uplo), all);
}

template <class T>
void pocon(char uplo, int64_t n, const T* a, int64_t lda, real_of<T> anorm, real_of<T>* rcond, T* work, int64_t* iwork,
           int64_t* info) {
  if (!are_right<T>("POCON", info, {{1, is_one_of(uplo, "UL")}, {2, n >= 0}, {4, holds(lda, n)}, {5, !(anorm < 0)}}))
    return;
  const char triangle = upper_case(uplo);
  const matrix_view<T> factor = {const_cast<T*>(a), n, n, lda};
  const auto apply = [&](T* x) { solve_system<T>(triangle, factor, {x, n, 1, n}, solve<T>); };
  const auto any_nan = [&] {
    for (int64_t j = 0; j < n; ++j)
      if (triangle == 'U' ? has_nan(&factor(0, j), j + 1) : has_nan(&factor(j, j), n - j)) return true;
    return false;
  };
  *rcond = reciprocal_condition(n, anorm, work, iwork, apply, apply, any_nan);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_CHOLESKY(p, T)                                                                                            \
  void tev_lapack_##p##potrf(const char* uplo, const int64_t* n, T* a, const int64_t* lda, int64_t* info) {           \
    tev::lapack::potrf(*uplo, *n, a, *lda, info);                                                                     \
  }                                                                                                                   \
  void tev_lapack_##p##potrs(const char* uplo, const int64_t* n, const int64_t* nrhs, const T* a, const int64_t* lda, \
                             T* b, const int64_t* ldb, int64_t* info) {                                               \
    tev::lapack::potrs(*uplo, *n, *nrhs, a, *lda, b, *ldb, info);                                                     \
  }                                                                                                                   \
  void tev_lapack_##p##posv(const char* uplo, const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, T* b,  \
                            const int64_t* ldb, int64_t* info) {                                                      \
    tev::lapack::posv(*uplo, *n, *nrhs, a, *lda, b, *ldb, info);                                                      \
  }                                                                                                                   \
  void tev_lapack_##p##potri(const char* uplo, const int64_t* n, T* a, const int64_t* lda, int64_t* info) {           \
    tev::lapack::potri(*uplo, *n, a, *lda, info);                                                                     \
  }
TEV_CHOLESKY(s, float)
TEV_CHOLESKY(d, double)
TEV_CHOLESKY(c, tev_complex8)
TEV_CHOLESKY(z, tev_complex16)

// Real types have integer work besides, complex ones real work, which is not needed.
#define TEV_POCON(p, T, R, Extra, signs)                                                                         \
  void tev_lapack_##p##pocon(const char* uplo, const int64_t* n, const T* a, const int64_t* lda, const R* anorm, \
                             R* rcond, T* work, [[maybe_unused]] Extra* extra, int64_t* info) {                  \
    tev::lapack::pocon(*uplo, *n, a, *lda, *anorm, rcond, work, signs, info);                                    \
  }
TEV_POCON(s, float, float, int64_t, extra)
TEV_POCON(d, double, double, int64_t, extra)
TEV_POCON(c, tev_complex8, float, float, nullptr)
TEV_POCON(z, tev_complex16, double, double, nullptr)
