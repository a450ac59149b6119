// SPDX-License-Identifier: BSD-3-Clause
// ?trmm: B := alpha op(A) B or alpha B op(A) with a triangular A. ?trsm: the same with the inverse of op(A).
//
// The right-hand sides (columns of B on side L, rows on side R) do not depend on each other: each thread takes some.
// But each packs the whole triangle then, so few right-hand sides and a large triangle go block by block, where the
// team shares the work of each step:
//
//   solve, side L, op(A) lower                     multiply, side L, op(A) upper
//
//   D          1. solve by the block D             D x        1. add the products of the blocks x beside D,
//   x .        2. take the products of the         . D x         which still need the old rows of D
//   x . .         blocks x from the rows below     . . D      2. multiply by the block D
//
// The other cases are these turned round, mirrored, or both.
#include "blas_threading/alone.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/shares.h"
#include "blas_threading/run.h"
#include "kernels/diagonal_blocks.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

constexpr int64_t kDiagonalBlock = 256;

template <class T>
const operand& triangle_of(const operation<T>& p) {
  return p.from_right != 0 ? p.b : p.a;
}

// The lines of B that the triangle acts along.
template <class T>
operand lines_of(const operation<T>& p, const span& lines) {
  return p.from_right != 0 ? columns_of(p.c, lines) : rows_of(p.c, lines);
}

template <class T>
operation<T> with_operands(operation<T> p, T alpha, const operand& triangle, const operand& c) {
  p.alpha = alpha;
  return p.from_right != 0 ? narrowed(p, c, triangle, c) : narrowed(p, triangle, c, c);
}

// `lines` := beta lines + factor times what the blocks of A between them and `others` make of the latter.
template <class T>
void add_products(const operation<T>& p, const span& lines, const span& others, T factor, T beta) {
  const operand& triangle = triangle_of(p);
  run(p.from_right != 0
          ? matrix_product(factor, lines_of(p, others), block_of(triangle, others, lines), beta, lines_of(p, lines))
          : matrix_product(factor, block_of(triangle, lines, others), lines_of(p, others), beta, lines_of(p, lines)));
}

template <class T>
void triangular(const level3_routine& routine, kernels::triangular_fn<T>* entry, int32_t code, char side, char uplo,
                char transa, char diag, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, T* b, int64_t ldb) {
  const level3_arguments arguments = {
      .side = side, .uplo = uplo, .trans = transa, .diag = diag, .m = m, .n = n, .lda = lda, .ldb = ldb};
  if (!arguments_are_right<T>(routine, arguments) || m == 0 || n == 0) return;
  if (is_value(alpha, 0)) return kernel_calls<T>::mscale(&m, &n, &alpha, b, &ldb);
  if (threads_worth<T>(code, m, n, kernels::side_code(side) == 0 ? m : n) == 1)
    return entry(&side, &uplo, &transa, &diag, &m, &n, &alpha, a, &lda, b, &ldb);
  run(kernels::make_triangular_operation(code, side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb));
}

}  // namespace

template <class T>
void compute_by_diagonal_blocks(const operation<T>& p) {
  const operand& triangle = triangle_of(p);
  const bool upper = (kernels::stored_triangle(&triangle) == 'U') == (kernels::stored_transposition(&triangle) == 'N');
  kernels::for_diagonal_blocks(
      {.solves = p.code == kernels::kOpTrsm,
       .forward = upper == (p.from_right != 0),
       .gathers = false,
       .order = triangle.rows,
       .step = kDiagonalBlock},
      p.alpha,
      [&](int64_t k, int64_t depth, T factor) {
        const span lines = {k, k + depth};
        run(with_operands(p, factor, block_of(triangle, lines, lines), lines_of(p, lines)));
      },
      [&](int64_t i, int64_t count, int64_t k, int64_t depth, T factor, T beta) {
        add_products(p, {i, i + count}, {k, k + depth}, factor, beta);
      });
}

template <class T>
void compute_sides(const operation<T>& p, int64_t threads) {
  const bool right = p.from_right != 0;
  run_team(threads, [&](int64_t thread, int64_t team) {
    const span share = part_of(thread, team, right ? p.m : p.n, kLine<T>);
    if (right)
      compute_alone(p, rows_of(p.a, share), p.b, rows_of(p.c, share));
    else
      compute_alone(p, p.a, columns_of(p.b, share), columns_of(p.c, share));
  });
}

#define TEV_INSTANTIATE(p, T)                                    \
  template void compute_by_diagonal_blocks(const operation<T>&); \
  template void compute_sides(const operation<T>&, int64_t);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas

#define TEV_TRIANGULAR(p, name, Name, T)                                                                              \
  void tev_blas_##p##name(const char* side, const char* uplo, const char* transa, const char* diag, const int64_t* m, \
                          const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b,                     \
                          const int64_t* ldb) {                                                                       \
    tev::blas::triangular(tev::blas::k##Name, tev_blas_x##p##name, tev::kernels::kOp##Name, *side, *uplo, *transa,    \
                          *diag, *m, *n, *alpha, a, *lda, b, *ldb);                                                   \
  }
#define TEV_TRIANGULAR_PAIR(p, T) TEV_TRIANGULAR(p, trmm, Trmm, T) TEV_TRIANGULAR(p, trsm, Trsm, T)
TEV_FOR_EACH_PRECISION(TEV_TRIANGULAR_PAIR)
