// SPDX-License-Identifier: BSD-3-Clause
// ?potrf and what stands on it.
#include "factorizations/arguments.h"
#include "factorizations/cholesky.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class T>
void potrf(char uplo, int64_t n, T* a, int64_t lda, int64_t* info) {
  if (!are_right<T>("POTRF", info, {{1, is_one_of(uplo, "UL")}, {2, n >= 0}, {4, holds(lda, n)}}) || n == 0) return;
  *info = cholesky_in_process<T>(upper_case(uplo), {a, n, n, lda});
}

}  // namespace
}  // namespace tev::lapack

#define TEV_CHOLESKY(p, T)                                                                                  \
  void tev_lapack_##p##potrf(const char* uplo, const int64_t* n, T* a, const int64_t* lda, int64_t* info) { \
    tev::lapack::potrf(*uplo, *n, a, *lda, info);                                                           \
  }
TEV_CHOLESKY(s, float)
TEV_CHOLESKY(d, double)
TEV_CHOLESKY(c, tev_complex8)
TEV_CHOLESKY(z, tev_complex16)
