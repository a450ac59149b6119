// SPDX-License-Identifier: BSD-3-Clause
// Recursive, so that nearly all of the work is in products as deep as can be:
//
//   | A11         |     1. factor A11     3. A22 := A22 - A21 A21^H     and mirrored, U^H U
//   | A21   A22   |     2. solve A21      4. factor A22
#include "factorizations/cholesky_block.h"

#include <algorithm>
#include <cmath>

#include "factorizations/kernels.h"
#include "factorizations/scalars.h"

namespace tev::lapack {

namespace {

// Orders that are factored column by column, and of which halves are whole multiples.
constexpr int64_t kNarrow = 8;

// The formulas of L; of U, the mirror image is at hand. Those of U^H U are the conjugates of them, which are the same.
template <bool kLower, class T>
int64_t factor_narrow(const matrix_view<T>& a) {
  using R = real_of<T>;
  const int64_t n = a.rows;
  const auto at = [&](int64_t i, int64_t j) -> T& { return kLower ? a(i, j) : a(j, i); };
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t k = 0; k < j; ++k)
      for (int64_t i = j; i < n; ++i) at(i, j) = difference(at(i, j), product(at(i, k), blas::conjugate(at(j, k))));
    const R pivot = real_part(at(j, j));
    at(j, j) = real_element<T>(pivot);
    if (!(pivot > 0)) return j + 1;
    const R root = std::sqrt(pivot), reciprocal = 1 / root;
    at(j, j) = real_element<T>(root);
    for (int64_t i = j + 1; i < n; ++i) at(i, j) = product(at(i, j), real_element<T>(reciprocal));
  }
  return 0;
}

}  // namespace

template <class T>
int64_t factor_cholesky(char uplo, const matrix_view<T>& a, columns_done* told) {
  const bool lower = uplo == 'L';
  const int64_t n = a.rows;
  if (n <= kNarrow) {
    const int64_t info = lower ? factor_narrow<true>(a) : factor_narrow<false>(a);
    if (told != nullptr) told->add(n);
    return info;
  }
  const int64_t first = std::max(n / 2 / kNarrow, int64_t{1}) * kNarrow, rest = n - first;
  const matrix_view<T> done = a.block(0, 0, first, first), below = a.block(first, first, rest, rest);
  const matrix_view<T> beside = lower ? a.block(first, 0, rest, first) : a.block(0, first, first, rest);
  if (const int64_t info = factor_cholesky(uplo, done, told); info != 0) return info;
  solve(lower ? 'R' : 'L', uplo, kAdjoint<T>, 'N', done, beside);
  subtract_square(uplo, lower ? 'N' : kAdjoint<T>, beside, below);
  const int64_t info = factor_cholesky(uplo, below, told);
  return info == 0 ? 0 : first + info;
}

template int64_t factor_cholesky(char, const matrix_view<float>&, columns_done*);
template int64_t factor_cholesky(char, const matrix_view<double>&, columns_done*);
template int64_t factor_cholesky(char, const matrix_view<tev_complex8>&, columns_done*);
template int64_t factor_cholesky(char, const matrix_view<tev_complex16>&, columns_done*);

}  // namespace tev::lapack
