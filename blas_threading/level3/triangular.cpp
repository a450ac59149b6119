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
#include <algorithm>

#include "blas_threading/gemm/gemm.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/thread_count.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// Of the diagonal; and the fewest right-hand sides for each thread, so that packing the triangle is a small part of its
// work.
constexpr int64_t kDiagonalBlock = 256, kFewestSides = 64;
// Blocks that a triangle needs for the work beside the diagonal to matter.
constexpr int64_t kFewestBlocks = 4;

template <class T>
const operand& triangle_of(const operation<T>& p) {
  return p.from_right != 0 ? p.b : p.a;
}

// The lines of B that the triangle acts along, or the right-hand sides.
template <class T>
operand lines_of(const operation<T>& p, const span& lines) {
  return p.from_right != 0 ? columns_of(p.c, lines) : rows_of(p.c, lines);
}
template <class T>
operand sides_of(const operation<T>& p, const span& sides) {
  return p.from_right != 0 ? rows_of(p.c, sides) : columns_of(p.c, sides);
}

template <class T>
operation<T> with_operands(operation<T> p, T alpha, const operand& triangle, const operand& c) {
  p.alpha = alpha;
  return p.from_right != 0 ? narrowed(p, c, triangle, c) : narrowed(p, triangle, c, c);
}

template <class T>
void compute_alone(const operation<T>& p, const operand& c) {
  if (c.rows < 1 || c.columns < 1) return;
  const operand& triangle = triangle_of(p);
  const char side = p.from_right != 0 ? 'R' : 'L', uplo = kernels::stored_triangle(&triangle);
  const char trans = kernels::stored_transposition(&triangle), diag = kernels::stored_diagonal(&triangle);
  (p.code == kernels::kOpTrsm ? kernel_calls<T>::xtrsm : kernel_calls<T>::xtrmm)(
      &side, &uplo, &trans, &diag, &c.rows, &c.columns, &p.alpha, elements<T>(triangle), &triangle.ld, elements<T>(c),
      &c.ld);
}

// lines `others` := beta others + factor times what the blocks of A between them and `lines` make of the latter.
template <class T>
void add_products(const operation<T>& p, const span& lines, const span& others, T factor, T beta) {
  if (others.size() < 1) return;
  const operand& triangle = triangle_of(p);
  multiply_over_team(
      p.from_right != 0
          ? matrix_product(factor, lines_of(p, lines), block_of(triangle, lines, others), beta, lines_of(p, others))
          : matrix_product(factor, block_of(triangle, others, lines), lines_of(p, lines), beta, lines_of(p, others)));
}

template <class T>
void compute_over_team(const operation<T>& p);

template <class T>
void compute_by_blocks(const operation<T>& p) {
  const operand& triangle = triangle_of(p);
  const bool solves = p.code == kernels::kOpTrsm;
  const bool upper = (kernels::stored_triangle(&triangle) == 'U') == (kernels::stored_transposition(&triangle) == 'N');
  const bool acts_forward = upper == (p.from_right != 0), upwards = acts_forward == solves;
  const int64_t order = triangle.rows, blocks = ceil_div(order, kDiagonalBlock);
  const T one = element_of<T>(1);
  for (int64_t step = 0; step < blocks; ++step) {
    const int64_t begin = (upwards ? step : blocks - 1 - step) * kDiagonalBlock;
    const span lines = {begin, std::min(begin + kDiagonalBlock, order)};
    const span others = acts_forward ? span{lines.end, order} : span{0, lines.begin};
    const T alpha = solves && step > 0 ? one : p.alpha;  // a solution takes it into all of B in its first step
    if (!solves) add_products(p, lines, others, alpha, one);
    compute_over_team(with_operands(p, alpha, block_of(triangle, lines, lines), lines_of(p, lines)));
    if (solves) add_products(p, lines, others, element_of<T>(-1), alpha);
  }
}

template <class T>
void compute_over_team(const operation<T>& p) {
  const int64_t order = triangle_of(p).rows, sides = p.from_right != 0 ? p.m : p.n;
  const int64_t threads = thread_count<T>(p.m, p.n, order / 2);
  if (threads == 1) return compute_alone(p, p.c);
  if (sides < threads * kFewestSides && order >= kFewestBlocks * kDiagonalBlock) return compute_by_blocks(p);
  run_team(std::min(threads, ceil_div(sides, kLine<T>)), [&](int64_t thread, int64_t team) {
    compute_alone(p, sides_of(p, part_of(thread, team, sides, kLine<T>)));
  });
}

template <class T>
void triangular(const level3_routine& routine, int32_t code, char side, char uplo, char transa, char diag, int64_t m,
                int64_t n, T alpha, const T* a, int64_t lda, T* b, int64_t ldb) {
  const level3_arguments arguments = {
      .side = side, .uplo = uplo, .trans = transa, .diag = diag, .m = m, .n = n, .lda = lda, .ldb = ldb};
  if (!arguments_are_right<T>(routine, arguments) || m == 0 || n == 0) return;
  if (is_value(alpha, 0)) return kernel_calls<T>::mscale(&m, &n, &alpha, b, &ldb);
  compute_over_team(kernels::make_triangular_operation(code, side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb));
}

}  // namespace
}  // namespace tev::blas

#define TEV_TRIANGULAR(p, name, Name, T)                                                                              \
  void tev_blas_##p##name(const char* side, const char* uplo, const char* transa, const char* diag, const int64_t* m, \
                          const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b,                     \
                          const int64_t* ldb) {                                                                       \
    tev::blas::triangular(tev::blas::k##Name, tev::kernels::kOp##Name, *side, *uplo, *transa, *diag, *m, *n, *alpha,  \
                          a, *lda, b, *ldb);                                                                          \
  }
#define TEV_TRIANGULAR_PAIR(p, T) TEV_TRIANGULAR(p, trmm, Trmm, T) TEV_TRIANGULAR(p, trsm, Trsm, T)
TEV_TRIANGULAR_PAIR(s, float)
TEV_TRIANGULAR_PAIR(d, double)
TEV_TRIANGULAR_PAIR(c, tev_complex8)
TEV_TRIANGULAR_PAIR(z, tev_complex16)
