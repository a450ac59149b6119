// SPDX-License-Identifier: BSD-3-Clause
// ?trmm: B := alpha op(A) B or alpha B op(A) with a triangular A, in place.
#include "blas_threading/level3/triangle.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// x := alpha D x for a column of the block.
template <class T>
void multiply_column(const triangle_call<T>& call, const diagonal_block<T>& d, T* x) {
  for (int64_t step = 0; step < d.order; ++step) {
    const int64_t j = call.upper ? step : d.order - 1 - step;
    const span beside = beside_diagonal(call.upper, j, d.order);
    const T* column = d.at + j * d.order;
    const T t = multiply(call.alpha, x[j]);
    add_multiple(beside.end - beside.begin, t, column + beside.begin, x + beside.begin);
    x[j] = call.unit ? t : multiply(t, column[j]);
  }
}

// X := X (alpha D) for `rows` rows; the columns of X are ldb apart.
template <class T>
void multiply_rows(const triangle_call<T>& call, const diagonal_block<T>& d, int64_t rows, T* x) {
  for (int64_t step = 0; step < d.order; ++step) {
    const int64_t j = call.upper ? d.order - 1 - step : step;
    const span beside = beside_diagonal(call.upper, j, d.order);
    const T* column = d.at + j * d.order;
    scale(rows, call.unit ? call.alpha : multiply(call.alpha, column[j]), x + j * call.ldb);
    for (int64_t l = beside.begin; l < beside.end; ++l)
      add_multiple(rows, multiply(call.alpha, column[l]), x + l * call.ldb, x + j * call.ldb);
  }
}

template <class T>
void multiply_share(const triangle_call<T>& call, span share) {
  walk(call, needs_later(call), [&](span block, span needed) {
    const diagonal_block<T> d = copy_diagonal(call, block);
    if (call.left)
      for (int64_t j = share.begin; j < share.end; ++j) multiply_column(call, d, call.b + block.begin + j * call.ldb);
    else
      for (int64_t i = share.begin; i < share.end; i += kDiagonalBlock)
        multiply_rows(call, d, std::min(kDiagonalBlock, share.end - i), call.b + i + block.begin * call.ldb);
    add_needed(call, block, needed, share, call.alpha);
  });
}

}  // namespace
}  // namespace tev::blas

#define TEV_TRMM(name, T)                                                                                 \
  void name(const char* side, const char* uplo, const char* transa, const char* diag, const int64_t* m,   \
            const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b, const int64_t* ldb) { \
    tev::blas::over_team("TRMM", side, uplo, transa, diag, *m, *n, *alpha, a, *lda, b, *ldb,              \
                         tev::blas::multiply_share<T>);                                                   \
  }
TEV_TRMM(tev_blas_strmm, float)
TEV_TRMM(tev_blas_dtrmm, double)
TEV_TRMM(tev_blas_ctrmm, tev_complex8)
TEV_TRMM(tev_blas_ztrmm, tev_complex16)
