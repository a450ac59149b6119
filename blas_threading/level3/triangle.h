// SPDX-License-Identifier: BSD-3-Clause
// What trmm and trsm share: the arguments, the split over the team, and the walk over a triangular op(A) in blocks.
//
// Side L: block row i of the result needs block row i of B, met by the diagonal block of op(A), and the block rows that
// the off-diagonal part of block row i selects; side R the same with columns.
//
//   side L, op(A) upper      side R, op(A) upper
//   D x x x  -> row 0        D x x x
//     D x x                    D x x        block j of B op(A) needs the blocks before it,
//       D x    needs the         D x        block i of op(A) B the blocks after it;
//         D    rows below          D        a lower op(A) turns both around
//
// A product must overwrite a block only when nobody needs its old value any more, a solution only use blocks that are
// solved: trmm walks towards the needed blocks, trsm comes from them.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/operands.h"
#include "blas_threading/level3/tile_product.h"

namespace tev::blas {

// Order of a diagonal block: its work runs at a third of the speed of the product, so it should be a small part.
inline constexpr int64_t kDiagonalBlock = 64;

// One call of trmm or trsm.
template <class T>
struct triangle_call {
  bool left;
  bool upper;     // of op(A), not of A as it is stored
  bool unit;      // the diagonal counts as ones and is not read
  general<T> a;   // op(A)
  int64_t order;  // of A: m or n
  int64_t m, n;
  T alpha;
  T* b;
  int64_t ldb;
};

// A diagonal block of op(A), column-major and contiguous; only the entries that are read hold values.
template <class T>
struct diagonal_block {
  int64_t order;
  T at[kDiagonalBlock * kDiagonalBlock];
};

// The position of the first wrong argument, 0 if there is none.
inline int32_t wrong_triangle_argument(const char* side, const char* uplo, const char* transa, const char* diag,
                                       int64_t m, int64_t n, int64_t lda, int64_t ldb) {
  if (!is_one_of(side, "LR")) return 1;
  if (!is_one_of(uplo, "UL")) return 2;
  if (!is_one_of(transa, "NTC")) return 3;
  if (!is_one_of(diag, "UN")) return 4;
  if (m < 0) return 5;
  if (n < 0) return 6;
  if (!holds_rows(lda, is_letter(side, 'L') ? m : n)) return 9;
  if (!holds_rows(ldb, m)) return 11;
  return 0;
}

template <class T>
diagonal_block<T> copy_diagonal(const triangle_call<T>& call, span block) {
  diagonal_block<T> d;
  d.order = block.end - block.begin;
  for (int64_t j = 0; j < d.order; ++j) {
    const int64_t begin = call.upper ? 0 : j + call.unit, end = call.upper ? j + !call.unit : d.order;
    for (int64_t i = begin; i < end; ++i) d.at[i + j * d.order] = call.a(block.begin + i, block.begin + j);
  }
  return d;
}

// The off-diagonal indices of column j of a triangle of this order.
inline span beside_diagonal(bool upper, int64_t j, int64_t order) { return upper ? span{0, j} : span{j + 1, order}; }

// Side L: do the blocks after a block contribute to it (else those before)? Side R: the same.
template <class T>
bool needs_later(const triangle_call<T>& call) {
  return call.left == call.upper;
}

// Calls body(block, needed) for the diagonal blocks, upwards or downwards.
template <class T, class Body>
void walk(const triangle_call<T>& call, bool upwards, const Body& body) {
  const int64_t blocks = (call.order + kDiagonalBlock - 1) / kDiagonalBlock;
  for (int64_t step = 0; step < blocks; ++step) {
    const int64_t begin = (upwards ? step : blocks - 1 - step) * kDiagonalBlock;
    const span block = {begin, std::min(begin + kDiagonalBlock, call.order)};
    body(block, needs_later(call) ? span{block.end, call.order} : span{0, block.begin});
  }
}

// Adds t times the off-diagonal product to a block of B, within the thread's share of columns (side L) or rows.
template <class T>
void add_needed(const triangle_call<T>& call, span block, span needed, span share, T t) {
  const general<T> b = plain<T>(call.b, call.ldb);
  if (call.left)
    add_product(block, share, needed, call.a, t, b, call.b, call.ldb);
  else
    add_product(share, block, needed, b, t, call.a, call.b, call.ldb);
}

// The whole call: arguments, quick returns, the team; work(call, share) is what one thread does.
template <class T, class Work>
void over_team(const char* stem, const char* side, const char* uplo, const char* transa, const char* diag, int64_t m,
               int64_t n, T alpha, const T* a, int64_t lda, T* b, int64_t ldb, const Work& work) {
  const int32_t wrong = wrong_triangle_argument(side, uplo, transa, diag, m, n, lda, ldb);
  if (wrong != 0) return report_wrong_argument<T>(stem, wrong);
  if (m == 0 || n == 0) return;
  if (is_value(alpha, 0)) return scale_block({0, m}, {0, n}, alpha, b, ldb);

  const bool left = is_letter(side, 'L'), transposed = !is_letter(transa, 'N');
  const triangle_call<T> call = {.left = left,
                                 .upper = is_letter(uplo, 'U') != transposed,
                                 .unit = is_letter(diag, 'U'),
                                 .a = op(transa, a, lda),
                                 .order = left ? m : n,
                                 .m = m,
                                 .n = n,
                                 .alpha = alpha,
                                 .b = b,
                                 .ldb = ldb};
  on_team(product_work(m, n, call.order), [&](int64_t index, int64_t threads) {
    const span share = left ? part_of(index, threads, n, blocking<T>::nr) : part_of(index, threads, m, blocking<T>::mr);
    if (share.begin < share.end) work(call, share);
  });
}

}  // namespace tev::blas
