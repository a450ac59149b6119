// SPDX-License-Identifier: BSD-3-Clause
// Describing an operation: from letters and arguments to the records of records.h, and from there to blocks and back to
// letters. Front ends describe a call once; drivers narrow what they were given.
//
// Every tier compiles this for itself. Hence all of it is inlined always: nothing here becomes a symbol that the linker
// could take from another tier.
#pragma once

#include "kernels/records.h"

#define TEV_DESCRIBE inline __attribute__((always_inline))

namespace tev::kernels {

// op_b of an operation without a second letter.
inline constexpr int32_t kAbsentTrans = 3;

// ---- Letters and codes ---------------------------------------------------------------------------------------------

TEV_DESCRIBE char upper_case(char letter) { return static_cast<char>(letter & ~0x20); }

// `first` 0, `second` 1, any other letter -1.
TEV_DESCRIBE int32_t code_among(char letter, char first, char second) {
  return upper_case(letter) == first ? 0 : upper_case(letter) == second ? 1 : -1;
}
TEV_DESCRIBE int32_t side_code(char letter) { return code_among(letter, 'L', 'R'); }
TEV_DESCRIBE int32_t uplo_code(char letter) { return code_among(letter, 'U', 'L'); }
TEV_DESCRIBE int32_t diag_code(char letter) { return code_among(letter, 'U', 'N'); }

TEV_DESCRIBE int32_t transposition_code(char letter) {
  return upper_case(letter) == 'C' ? kConjTrans : code_among(letter, 'N', 'T');
}

// Letter for an operand that is addressed by its code; an unknown letter means transposed, not conjugated.
TEV_DESCRIBE char letter_of(int32_t code) { return code == kNoTrans ? 'N' : code == kConjTrans ? 'C' : 'T'; }

// How an operand is stored, as bits of its copy mode. Letters that are none of those listed add nothing.
TEV_DESCRIBE int32_t transposition_bit(int32_t code) {
  return code == kNoTrans ? kCopyPlain : code == kTrans ? kCopyTrans : code == kConjTrans ? kCopyConjTrans : 0;
}
TEV_DESCRIBE int32_t triangle_bit(char uplo) {
  const int32_t code = uplo_code(uplo);
  return code == 0 ? kCopyUpper : code == 1 ? kCopyLower : 0;
}
TEV_DESCRIBE int32_t diagonal_bit(char diag) {
  const int32_t code = diag_code(diag);
  return code == 0 ? kCopyUnit : code == 1 ? kCopyNonUnit : 0;
}

TEV_DESCRIBE char stored_triangle(const operand* x) { return x->copy_mode & kCopyUpper ? 'U' : 'L'; }
TEV_DESCRIBE char stored_diagonal(const operand* x) { return x->copy_mode & kCopyUnit ? 'U' : 'N'; }
TEV_DESCRIBE char stored_transposition(const operand* x) {
  return x->copy_mode & kCopyConjTrans ? 'C' : x->copy_mode & kCopyTrans ? 'T' : 'N';
}

// ---- Operands ------------------------------------------------------------------------------------------------------

// op(X), rows x columns.
template <class T>
TEV_DESCRIBE operand make_operand(int32_t code, const T* data, int64_t rows, int64_t columns, int64_t ld) {
  return {.data = const_cast<T*>(data),
          .rows = rows,
          .columns = columns,
          .ld = ld,
          .row_offset = 0,
          .column_offset = 0,
          .extent = rows,
          .element_size = sizeof(T),
          .copy_mode = transposition_bit(code),
          .at = code == kNoTrans ? getPointer_notrans : getPointer_trans};
}

// The matrix that an operation writes; `bits`: the triangle of it.
template <class T>
TEV_DESCRIBE operand make_result(T* data, int64_t rows, int64_t columns, int64_t ld, int32_t bits = 0) {
  operand c = make_operand(kNoTrans, static_cast<const T*>(data), rows, columns, ld);
  c.copy_mode = bits;
  return c;
}

// Rows [i, i + rows) and columns [j, j + columns) of op(X). The block knows its place in X by its offsets: that is how
// a symmetric matrix is read on the side of the diagonal where it is stored.
TEV_DESCRIBE operand block_of(const operand* x, int64_t i, int64_t j, int64_t rows, int64_t columns) {
  operand block = *x;
  block.data = x->at(i, j, x);
  block.rows = block.extent = rows;
  block.columns = columns;
  block.row_offset += i;
  block.column_offset += j;
  return block;
}
TEV_DESCRIBE operand block_of(const operand& x, int64_t i, int64_t j, int64_t rows, int64_t columns) {
  return block_of(&x, i, j, rows, columns);
}

TEV_DESCRIBE float one_like(float) { return 1; }
TEV_DESCRIBE double one_like(double) { return 1; }
TEV_DESCRIBE tev_complex8 one_like(tev_complex8) { return {1, 0}; }
TEV_DESCRIBE tev_complex16 one_like(tev_complex16) { return {1, 0}; }
TEV_DESCRIBE float minus_one_like(float) { return -1; }
TEV_DESCRIBE double minus_one_like(double) { return -1; }
TEV_DESCRIBE tev_complex8 minus_one_like(tev_complex8) { return {-1, 0}; }
TEV_DESCRIBE tev_complex16 minus_one_like(tev_complex16) { return {-1, 0}; }

// ---- Operations ----------------------------------------------------------------------------------------------------

// C := alpha A B + beta C of operands that are described already.
template <class T>
TEV_DESCRIBE operation<T> product_of(int32_t code, T alpha, const operand& a, const operand& b, T beta,
                                     const operand& c) {
  return {.op_a = kNoTrans,
          .op_b = kNoTrans,
          .alpha = alpha,
          .beta = beta,
          .m = c.rows,
          .n = c.columns,
          .k = a.columns,
          .a = a,
          .b = b,
          .c = c,
          .from_right = 0,
          .side = kAbsent,
          .uplo = kAbsent,
          .diag = kAbsent,
          .code = code};
}

// C := alpha op(A) op(B) + beta C.
template <class T>
TEV_DESCRIBE operation<T> make_operation(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a,
                                         int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  const int32_t op_a = transposition_code(transa), op_b = transposition_code(transb);
  operation<T> op = product_of(kOpGemm, alpha, make_operand(op_a, a, m, k, lda), make_operand(op_b, b, k, n, ldb), beta,
                               make_result(c, m, n, ldc));
  op.op_a = op_a;
  op.op_b = op_b;
  return op;
}

// C := alpha A B + beta C (side L) or alpha B A + beta C (side R), A symmetric: `bits` 0, or Hermitian.
template <class T>
TEV_DESCRIBE operation<T> make_symmetric_operation(char side, char uplo, int64_t m, int64_t n, T alpha, const T* a,
                                                   int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc,
                                                   int32_t bits = 0) {
  const bool right = side_code(side) != 0;
  const int64_t order = right ? n : m;
  operand symmetric = make_operand(kNoTrans, a, order, order, lda);
  symmetric.copy_mode |= triangle_bit(uplo) | bits;
  const operand other = make_operand(kNoTrans, b, m, n, ldb);
  operation<T> op =
      product_of(kOpSymm, alpha, right ? other : symmetric, right ? symmetric : other, beta, make_result(c, m, n, ldc));
  op.from_right = right;
  op.side = side_code(side);
  op.uplo = uplo_code(uplo);
  return op;
}

// B := alpha op(A) B (side L) or alpha B op(A) (side R), or the same with the inverse of op(A): kOpTrmm, kOpTrsm. C is
// B.
template <class T>
TEV_DESCRIBE operation<T> make_triangular_operation(int32_t code, char side, char uplo, char transa, char diag,
                                                    int64_t m, int64_t n, T alpha, const T* a, int64_t lda, T* b,
                                                    int64_t ldb) {
  const bool right = side_code(side) != 0;
  const int64_t order = right ? n : m;
  operand triangle = make_operand(transposition_code(transa), a, order, order, lda);
  triangle.copy_mode |= triangle_bit(uplo) | diagonal_bit(diag);
  const operand other = make_operand(kNoTrans, static_cast<const T*>(b), m, n, ldb);
  operation<T> op = product_of(code, alpha, right ? other : triangle, right ? triangle : other, one_like(alpha),
                               make_result(b, m, n, ldb));
  op.op_a = transposition_code(transa);
  op.op_b = kAbsentTrans;
  op.from_right = right;
  op.side = side_code(side);
  op.uplo = uplo_code(uplo);
  op.diag = diag_code(diag);
  return op;
}

// C := alpha op(A) op(B)^T + beta C in the triangle uplo of C, n x n; op(A) is n x k. With B = A that is syrk, with the
// conjugate transposed for Hermitian results herk; and one half of the rank-2k updates, whose other half has A and B
// exchanged. Any letter but N means transposed.
template <class T>
TEV_DESCRIBE operation<T> make_rank_k_operation(char uplo, char trans, bool hermitian, int64_t n, int64_t k, T alpha,
                                                const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c,
                                                int64_t ldc) {
  const int32_t flipped = hermitian ? kConjTrans : kTrans;
  const bool plain = transposition_code(trans) == kNoTrans;
  const int32_t op_a = plain ? kNoTrans : flipped, op_b = plain ? flipped : kNoTrans;
  operation<T> op = product_of(kOpSyrk, alpha, make_operand(op_a, a, n, k, lda), make_operand(op_b, b, k, n, ldb), beta,
                               make_result(c, n, n, ldc, kCopyPlain | triangle_bit(uplo)));
  op.op_a = op_a;
  op.op_b = op_b;
  op.uplo = uplo_code(uplo);
  return op;
}

}  // namespace tev::kernels

#undef TEV_DESCRIBE
