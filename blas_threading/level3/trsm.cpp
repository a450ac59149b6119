// SPDX-License-Identifier: BSD-3-Clause
// ?trsm: solves op(A) X = alpha B or X op(A) = alpha B with a triangular A; X overwrites B. Divides by the diagonal
// rather than multiplying by its reciprocals, which costs little and saves a rounding.
#include "blas_threading/level3/triangle.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// x := D^-1 x for a column of the block.
template <class T>
void solve_column(const triangle_call<T>& call, const diagonal_block<T>& d, T* x) {
  for (int64_t step = 0; step < d.order; ++step) {
    const int64_t j = call.upper ? d.order - 1 - step : step;
    const span beside = beside_diagonal(call.upper, j, d.order);
    const T* column = d.at + j * d.order;
    if (!call.unit) x[j] = divide(x[j], column[j]);
    add_multiple(beside.end - beside.begin, negate(x[j]), column + beside.begin, x + beside.begin);
  }
}

// X := X D^-1 for `rows` rows; the columns of X are ldb apart.
template <class T>
void solve_rows(const triangle_call<T>& call, const diagonal_block<T>& d, int64_t rows, T* x) {
  for (int64_t step = 0; step < d.order; ++step) {
    const int64_t j = call.upper ? step : d.order - 1 - step;
    const span beside = beside_diagonal(call.upper, j, d.order);
    const T* column = d.at + j * d.order;
    T* solved = x + j * call.ldb;
    for (int64_t l = beside.begin; l < beside.end; ++l) add_multiple(rows, negate(column[l]), x + l * call.ldb, solved);
    if (call.unit) continue;
    for (int64_t i = 0; i < rows; ++i) solved[i] = divide(solved[i], column[j]);
  }
}

template <class T>
void solve_share(const triangle_call<T>& call, span share) {
  if (call.left)
    scale_block({0, call.m}, share, call.alpha, call.b, call.ldb);
  else
    scale_block(share, {0, call.n}, call.alpha, call.b, call.ldb);

  walk(call, !needs_later(call), [&](span block, span needed) {
    add_needed(call, block, needed, share, element_of<T>(-1));
    const diagonal_block<T> d = copy_diagonal(call, block);
    if (call.left)
      for (int64_t j = share.begin; j < share.end; ++j) solve_column(call, d, call.b + block.begin + j * call.ldb);
    else
      for (int64_t i = share.begin; i < share.end; i += kDiagonalBlock)
        solve_rows(call, d, std::min(kDiagonalBlock, share.end - i), call.b + i + block.begin * call.ldb);
  });
}

}  // namespace
}  // namespace tev::blas

#define TEV_TRSM(name, T)                                                                                 \
  void name(const char* side, const char* uplo, const char* transa, const char* diag, const int64_t* m,   \
            const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b, const int64_t* ldb) { \
    tev::blas::over_team("TRSM", side, uplo, transa, diag, *m, *n, *alpha, a, *lda, b, *ldb,              \
                         tev::blas::solve_share<T>);                                                      \
  }
TEV_TRSM(tev_blas_strsm, float)
TEV_TRSM(tev_blas_dtrsm, double)
TEV_TRSM(tev_blas_ctrsm, tev_complex8)
TEV_TRSM(tev_blas_ztrsm, tev_complex16)
