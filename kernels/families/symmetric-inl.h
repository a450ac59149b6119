// SPDX-License-Identifier: BSD-3-Clause
// symm and syrk as products: C := alpha A B + beta C with A symmetric (side L; B A on side R), and one triangle of
// C := alpha op(A) op(A)^T + beta C. Both halve the symmetric matrix until its diagonal blocks are small:
//
//   symm   | A1  X^T |   C1 := A1 B1, C2 := A2 B2, then C1 += X^T B2, C2 += X B1. Of X and X^T one is stored, the
//          | X   A2  |   other is its transposed. A small diagonal block is mirrored into a full one on the stack.
//
//   syrk   | C1      |   X := op(A)2 op(A)1^T is a product of its own; a small diagonal block is computed in full on
//          | X   C2  |   the stack, and its triangle merged into C: the other triangle is never touched.
#pragma once

#include "kernels/families/in_place-inl.h"
#include "kernels/routine_types.h"

namespace tev::TEV_TIER {

// Largest order of a diagonal block.
inline constexpr int64_t kDiagonalBlock = 64;

// Order of the first half: whole blocks, more than half if they do not divide.
TEV_INLINE int64_t first_half(int64_t order, int64_t block) { return (order / 2 + block - 1) / block * block; }

template <class T>
struct symm_call {
  bool left, upper;
  int64_t across;  // columns (L) or rows (R) of B and C
  T alpha, beta;
  int64_t lda, ldb, ldc;
};

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

template <class T>
TEV_INLINE void mirror(bool upper, int64_t n, const T* a, int64_t lda, T* full) {
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = upper ? 0 : j, end = upper ? j + 1 : n; i < end; ++i)
      full[i + j * n] = full[j + i * n] = a[i + j * lda];
}

template <class T, kernels::gemm_fn<T>* Gemm>
void symm_diagonal(const symm_call<T>& s, int64_t order, const T* a, const T* b, T* c) {
  if (order <= kDiagonalBlock) {
    T full[kDiagonalBlock * kDiagonalBlock];
    mirror(s.upper, order, a, s.lda, full);
    return multiply_block<T, Gemm>(s, 'N', order, order, full, order, b, s.beta, c);
  }
  const int64_t n1 = first_half(order, kDiagonalBlock), n2 = order - n1;
  const T *b2 = b + n1 * (s.left ? 1 : s.ldb), *x = a + n1 * (s.upper ? s.lda : 1);
  T* c2 = c + n1 * (s.left ? 1 : s.ldc);
  symm_diagonal<T, Gemm>(s, n1, a, b, c);
  symm_diagonal<T, Gemm>(s, n2, a + n1 * (s.lda + 1), b2, c2);
  // Upper A stores the block that, on side L, leads from the second half of B to the first of C; on side R
  // from the first half to the second.
  const bool stored_to_first = s.upper == s.left;
  multiply_block<T, Gemm>(s, stored_to_first ? 'N' : 'T', n1, n2, x, s.lda, b2, real_element<T>(1), c);
  multiply_block<T, Gemm>(s, stored_to_first ? 'T' : 'N', n2, n1, x, s.lda, b, real_element<T>(1), c2);
}

template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void symm(const char* side, const char* uplo, int64_t m, int64_t n, T alpha, const T* a, int64_t lda,
                     const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  const bool left = is_letter(side, 'L');
  const symm_call<T> s = {left, is_letter(uplo, 'U'), left ? n : m, alpha, beta, lda, ldb, ldc};
  const int64_t order = left ? m : n;
  if (is_zero(alpha)) return multiply_block<T, Gemm>(s, 'N', order, 0, a, lda, b, beta, c);
  symm_diagonal<T, Gemm>(s, order, a, b, c);
}

template <class T>
struct syrk_call {
  bool upper, plain;
  int64_t k;
  T alpha, beta;
  int64_t lda, ldc;
};

// C(m x n) := alpha op(A)(m x k) op(B)(n x k)^T + beta C, a and b within the same matrix.
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void multiply_parts(const syrk_call<T>& s, int64_t m, int64_t n, const T* a, const T* b, T beta, T* c,
                               int64_t ldc) {
  const char first = s.plain ? 'N' : 'T', second = s.plain ? 'T' : 'N';
  Gemm(&first, &second, &m, &n, &s.k, &s.alpha, a, &s.lda, b, &s.lda, &beta, c, &ldc);
}

template <class T>
TEV_INLINE void merge_triangle(bool upper, int64_t n, const T* full, T beta, T* c, int64_t ldc) {
  const bool forget = is_zero(beta), keep = is_one(beta);
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = upper ? 0 : j, end = upper ? j + 1 : n; i < end; ++i) {
      T& to = c[i + j * ldc];
      to = forget ? full[i + j * n] : add(keep ? to : multiply(beta, to), full[i + j * n]);
    }
}

template <class T, kernels::gemm_fn<T>* Gemm>
void syrk_diagonal(const syrk_call<T>& s, int64_t n, const T* a, T* c) {
  if (n <= kDiagonalBlock) {
    T full[kDiagonalBlock * kDiagonalBlock];
    multiply_parts<T, Gemm>(s, n, n, a, a, T{}, full, n);
    return merge_triangle(s.upper, n, full, s.beta, c, s.ldc);
  }
  const int64_t n1 = first_half(n, kDiagonalBlock), n2 = n - n1;
  const T* a2 = a + n1 * (s.plain ? 1 : s.lda);
  syrk_diagonal<T, Gemm>(s, n1, a, c);
  syrk_diagonal<T, Gemm>(s, n2, a2, c + n1 * (s.ldc + 1));
  if (s.upper)
    multiply_parts<T, Gemm>(s, n1, n2, a, a2, s.beta, c + n1 * s.ldc, s.ldc);
  else
    multiply_parts<T, Gemm>(s, n2, n1, a2, a, s.beta, c + n1, s.ldc);
}

// Any letter but N means the transposed product, without conjugation.
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void syrk(const char* uplo, const char* trans, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                     T beta, T* c, int64_t ldc) {
  if (n < 1 || (is_one(beta) && (k < 1 || is_zero(alpha)))) return;
  syrk_diagonal<T, Gemm>({is_letter(uplo, 'U'), is_letter(trans, 'N'), k, alpha, beta, lda, ldc}, n, a, c);
}

}  // namespace tev::TEV_TIER
