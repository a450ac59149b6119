// SPDX-License-Identifier: BSD-3-Clause
// symm and hemm: C := alpha A B + beta C (side L; B A on side R) with A symmetric or Hermitian. A product whose copy of
// A mirrors the stored triangle (symm_copy-inl.h); where that does not pay, or memory is short, A is halved until its
// diagonal blocks are small:
//
//   | A1  X^T |   C1 := A1 B1, C2 := A2 B2, then C1 += X^T B2, C2 += X B1. Of X and X^T one is stored, the other is its
//   | X   A2  |   transposed. A small diagonal block is mirrored into a full one on the stack.
#pragma once

#include "kernels/families/few_rows-inl.h"
#include "kernels/families/in_place-inl.h"
#include "kernels/families/packed_product-inl.h"
#include "kernels/families/symm_copy-inl.h"
#include "kernels/routine_types.h"

namespace tev::TEV_TIER {

template <class T>
struct symm_call {
  bool left, upper;
  char transposed;  // T, or C if A is Hermitian
  int64_t across;   // columns (L) or rows (R) of B and C
  T alpha, beta;
  int64_t lda, ldb, ldc;
};

// Largest order of a diagonal block: mirrored, it may have 16 KiB of a small thread's stack.
template <class T>
inline constexpr int64_t kMirrored = sizeof(T) == 4   ? 64
                                     : sizeof(T) == 8 ? 40
                                                      : 32;

// The product with a block of A: side L C(rows x across) += op(A) B, side R C(across x rows) += B op(A).
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void multiply_block(const symm_call<T>& s, char trans, int64_t rows, int64_t depth, const T* a, int64_t lda,
                               const T* b, T beta, T* c) {
  const char plain = 'N';
  if (s.left)
    Gemm(&trans, &plain, &rows, &s.across, &depth, &s.alpha, a, &lda, b, &s.ldb, &beta, c, &s.ldc);
  else
    Gemm(&plain, &trans, &s.across, &rows, &depth, &s.alpha, b, &s.ldb, a, &lda, &beta, c, &s.ldc);
}

template <bool kHermitian, class T>
TEV_INLINE void mirror(bool upper, int64_t n, const T* a, int64_t lda, T* full) {
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = upper ? 0 : j, end = upper ? j + 1 : n; i < end; ++i) {
      T x = a[i + j * lda];
      if constexpr (kHermitian)
        if (i == j) x.imag = 0;
      full[j + i * n] = conjugate_if(kHermitian && i != j, x);
      full[i + j * n] = x;
    }
}

// A function of its own, so that the frames of the recursion hold no block.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void multiply_mirrored(const symm_call<T>& s, int64_t order, const T* a, const T* b, T* c) {
  T full[kMirrored<T> * kMirrored<T>];
  mirror<kHermitian>(s.upper, order, a, s.lda, full);
  if constexpr (!kComplex<T>)
    if (s.left && multiply_few_rows(order, s.across, s.alpha, full, b, s.ldb, s.beta, c, s.ldc)) return;
  multiply_block<T, Gemm>(s, 'N', order, order, full, order, b, s.beta, c);
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
void halved_symm(const symm_call<T>& s, int64_t order, const T* a, const T* b, T* c) {
  if (order <= kMirrored<T>) return multiply_mirrored<kHermitian, T, Gemm>(s, order, a, b, c);
  const int64_t n1 = first_half(order, kMirrored<T>), n2 = order - n1;
  const T *b2 = b + n1 * (s.left ? 1 : s.ldb), *x = a + n1 * (s.upper ? s.lda : 1);
  T* c2 = c + n1 * (s.left ? 1 : s.ldc);
  halved_symm<kHermitian, T, Gemm>(s, n1, a, b, c);
  halved_symm<kHermitian, T, Gemm>(s, n2, a + n1 * (s.lda + 1), b2, c2);
  // Upper A stores the block that, on side L, leads from the second half of B to the first of C; on side R
  // from the first half to the second.
  const bool stored_to_first = s.upper == s.left;
  multiply_block<T, Gemm>(s, stored_to_first ? 'N' : s.transposed, n1, n2, x, s.lda, b2, one_of<T>(), c);
  multiply_block<T, Gemm>(s, stored_to_first ? s.transposed : 'N', n2, n1, x, s.lda, b, one_of<T>(), c2);
}

// Lines i .. i+count-1 of C (rows on side L, columns on side R) take from lines p .. p+depth-1 of B what A has for
// them: a block of A beside the diagonal, of which it or its mirrored one is stored. A points to its element (0, 0).
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void multiply_beside(const symm_call<T>& s, int64_t i, int64_t count, int64_t p, int64_t depth, const T* a,
                                const T* b, T beta, T* c) {
  if (count < 1 || depth < 1) return;
  const int64_t first = min_of(i, p), last = max_of(i, p);
  const bool stored = s.upper == (s.left == (i < p));
  multiply_block<T, Gemm>(s, stored ? 'N' : s.transposed, count, depth,
                          a + (s.upper ? first + last * s.lda : last + first * s.lda), s.lda,
                          b + p * (s.left ? 1 : s.ldb), beta, c + i * (s.left ? 1 : s.ldc));
}

// Lines [i, i + count) of C take from lines [p, p + depth) of B: those that A mirrors onto themselves, and around them
// the others.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
void symm_nobufs(const symm_call<T>& s, int64_t i, int64_t count, int64_t p, int64_t depth, const T* a, const T* b,
                 T* c) {
  const int64_t end = i + count, p_end = p + depth, low = max_of(i, p), high = min_of(end, p_end);
  if (low >= high) return multiply_beside<T, Gemm>(s, i, count, p, depth, a, b, s.beta, c);
  multiply_beside<T, Gemm>(s, i, low - i, p, depth, a, b, s.beta, c);
  multiply_beside<T, Gemm>(s, high, end - high, p, depth, a, b, s.beta, c);
  halved_symm<kHermitian, T, Gemm>(s, high - low, a + low * (s.lda + 1), b + low * (s.left ? 1 : s.ldb),
                                   c + low * (s.left ? 1 : s.ldc));
  multiply_beside<T, Gemm>(s, low, high - low, p, low - p, a, b, one_of<T>(), c);
  multiply_beside<T, Gemm>(s, low, high - low, high, p_end - high, a, b, one_of<T>(), c);
}

// As a driver: operands may be blocks of the whole ones.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
int32_t symm_nobufs_driver(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers*,
                           const kernel_info<T>*) {
  const bool left = op->from_right == 0;
  const operand *symmetric = left ? a : b, *other = left ? b : a;
  const symm_call<T> s = {left,
                          stored_triangle(symmetric) == 'U',
                          kHermitian ? 'C' : 'T',
                          left ? c->columns : c->rows,
                          op->alpha,
                          op->beta,
                          symmetric->ld,
                          other->ld,
                          c->ld};
  const int64_t i = left ? symmetric->row_offset : symmetric->column_offset;
  const int64_t p = left ? symmetric->column_offset : symmetric->row_offset;
  symm_nobufs<kHermitian, T, Gemm>(
      s, i, left ? c->rows : c->columns, p, a->columns,
      static_cast<const T*>(symmetric->data) - symmetric->row_offset - symmetric->column_offset * symmetric->ld,
      static_cast<const T*>(other->data) - p * (left ? 1 : other->ld),
      static_cast<T*>(c->data) - i * (left ? 1 : c->ld));
  return 0;
}

// The copy of A on its side of the product.
template <bool kHermitian, class T>
TEV_INLINE copy_fn<T>* symmetric_copy(bool left, bool upper) {
  if (left) return upper ? symm_copy<T, true, false, kHermitian> : symm_copy<T, true, true, kHermitian>;
  return upper ? symm_copy<T, false, false, kHermitian> : symm_copy<T, false, true, kHermitian>;
}

template <bool kHermitian, class T>
__attribute__((noinline)) bool packed_symm(const operation<T>& op) {
  kernel_info<T> info;
  packed_info_of(op, &info);
  const bool left = op.from_right == 0;
  (left ? info.copy_a : info.copy_b) = symmetric_copy<kHermitian, T>(left, op.uplo == uplo_code('U'));
  buffers buf;
  return info.driver(&op, &op.a, &op.b, &op.c, &buf, &info) == 0;
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void symm(const char* side, const char* uplo, int64_t m, int64_t n, T alpha, const T* a, int64_t lda,
                     const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  if (is_zero(alpha)) return mscale<T>(m, n, beta, c, ldc);
  const bool left = is_letter(side, 'L');
  const symm_call<T> s = {left, is_letter(uplo, 'U'), kHermitian ? 'C' : 'T', left ? n : m, alpha, beta, lda, ldb, ldc};
  const int64_t order = left ? m : n;
  if (route_of<T>('N', 'N', m, n, order, lda, ldb) == route::packed &&
      packed_symm<kHermitian>(make_symmetric_operation(*side, *uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc,
                                                       kHermitian ? kCopyHermitian : 0)))
    return;
  halved_symm<kHermitian, T, Gemm>(s, order, a, b, c);
}

}  // namespace tev::TEV_TIER
