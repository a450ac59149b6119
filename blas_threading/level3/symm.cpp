// SPDX-License-Identifier: BSD-3-Clause
// ?symm: C := alpha A B + beta C or alpha B A + beta C with a symmetric A: the product of gemm, where the unstored
// triangle of A is read from the stored one.
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/operands.h"
#include "blas_threading/level3/team_product.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// The position of the first wrong argument, 0 if there is none.
int32_t wrong_symm_argument(const char* side, const char* uplo, int64_t m, int64_t n, int64_t lda, int64_t ldb,
                            int64_t ldc) {
  if (!is_one_of(side, "LR")) return 1;
  if (!is_one_of(uplo, "UL")) return 2;
  if (m < 0) return 3;
  if (n < 0) return 4;
  if (!holds_rows(lda, is_letter(side, 'L') ? m : n)) return 7;
  if (!holds_rows(ldb, m)) return 9;
  if (!holds_rows(ldc, m)) return 12;
  return 0;
}

template <class T>
void symm(const char* side, const char* uplo, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* b,
          int64_t ldb, T beta, T* c, int64_t ldc) {
  const int32_t wrong = wrong_symm_argument(side, uplo, m, n, lda, ldb, ldc);
  if (wrong != 0) return report_wrong_argument<T>("SYMM", wrong);
  const symmetric<T> square = {a, lda, is_letter(uplo, 'U')};
  if (is_letter(side, 'L'))
    team_product(m, n, m, alpha, square, plain(b, ldb), beta, c, ldc);
  else
    team_product(m, n, n, alpha, plain(b, ldb), square, beta, c, ldc);
}

}  // namespace
}  // namespace tev::blas

#define TEV_SYMM(name, T)                                                                                       \
  void name(const char* side, const char* uplo, const int64_t* m, const int64_t* n, const T* alpha, const T* a, \
            const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {      \
    tev::blas::symm(side, uplo, *m, *n, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);                              \
  }
TEV_SYMM(tev_blas_ssymm, float)
TEV_SYMM(tev_blas_dsymm, double)
TEV_SYMM(tev_blas_csymm, tev_complex8)
TEV_SYMM(tev_blas_zsymm, tev_complex16)
