// SPDX-License-Identifier: BSD-3-Clause
// ?getrf and what stands on it.
#include "factorizations/arguments.h"
#include "factorizations/lu.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class T>
void getrf(int64_t m, int64_t n, T* a, int64_t lda, int64_t* ipiv, int64_t* info) {
  if (!are_right<T>("GETRF", info, {{1, m >= 0}, {2, n >= 0}, {4, holds(lda, m)}}) || m == 0 || n == 0) return;
  *info = lu_in_process<T>({a, m, n, lda}, ipiv);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_LU(p, T)                                                                                      \
  void tev_lapack_##p##getrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, int64_t* ipiv, \
                             int64_t* info) {                                                             \
    tev::lapack::getrf(*m, *n, a, *lda, ipiv, info);                                                      \
  }
TEV_LU(s, float)
TEV_LU(d, double)
TEV_LU(c, tev_complex8)
TEV_LU(z, tev_complex16)
