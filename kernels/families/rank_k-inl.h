// SPDX-License-Identifier: BSD-3-Clause
// syrk and syr2k, herk and her2k: one triangle of C := alpha op(A) op(B)^T + beta C, B = A for the first of each pair;
// a Hermitian C has ^H in place of ^T and a real diagonal. It is a product of which one triangle is computed: whole
// panels of op(A) and op(B)^T are packed, and the strips of A meet the strips of B that their rows need:
//
//   lower    strips of B           full: as it is in a product
//            |    |    |    |      x: the few register tiles on the diagonal are computed apart and merged
//   strip 0  | x  |    |    |
//   of A  1  |full| x  |    |
//         2  |full|full| x  |
//
// A small or shallow C is halved until its diagonal blocks are small; what lies beside the diagonal is a product of the
// tier's sequential entry then, which needs no memory.
#pragma once

#include "kernels/families/in_place-inl.h"
#include "kernels/families/packed_product-inl.h"
#include "kernels/routine_types.h"

namespace tev::TEV_TIER {

// ---- Triangles of C ------------------------------------------------------------------------------------------------

// Calls body(j, first row, rows) for the columns of a triangle of order n.
template <class Body>
TEV_INLINE void for_triangle(bool upper, int64_t n, const Body& body) {
  for (int64_t j = 0; j < n; ++j) body(j, upper ? 0 : j, upper ? j + 1 : n - j);
}

// C := beta C; C is not read when beta is zero. A Hermitian C has a real beta and leaves with a real diagonal.
template <bool kHermitian, class T>
void scale_triangle(bool upper, int64_t n, T beta, T* c, int64_t ldc) {
  using R = real_of<T>;
  for_triangle(upper, n, [&](int64_t j, int64_t i, int64_t rows) TEV_LAMBDA {
    T* const column = c + i + j * ldc;
    if constexpr (kHermitian) {
      mscale<R>(2 * rows, 1, beta.real, reals(column), ldc);
      c[j * (ldc + 1)].imag = 0;
    } else {
      mscale<T>(rows, 1, beta, column, ldc);
    }
  });
}

// C := beta C + full in the rows i of column j that lie in the triangle: i + below >= j, or <= j in the upper one.
template <bool kHermitian, class T>
void merge_triangle(bool upper, int64_t below, const T* full, int64_t ld, T beta, const operand* c) {
  const bool forget = is_zero(beta), keep = is_one(beta);
  for (int64_t j = 0; j < c->columns; ++j) {
    const int64_t diagonal = j - below;
    const int64_t begin = upper ? 0 : max_of(diagonal, 0), end = upper ? min_of(diagonal + 1, c->rows) : c->rows;
    T* const to = static_cast<T*>(c->data) + j * c->ld;
    const T* const from = full + j * ld;
    if (forget)
      for (int64_t i = begin; i < end; ++i) to[i] = from[i];
    else
      for (int64_t i = begin; i < end; ++i)
        to[i] = TEV_TIER::add(keep ? to[i] : TEV_TIER::multiply(beta, to[i]), from[i]);
    if constexpr (kHermitian)
      if (diagonal >= begin && diagonal < end) to[diagonal].imag = 0;
  }
}

// ---- Packed --------------------------------------------------------------------------------------------------------

// A block of C whose offsets say where the diagonal is. Strips of B begin at multiples of nr. What several strips of A
// need whole is one call, so that a shallow product is walked down the columns of C.
template <bool kUpper, bool kHermitian, class T>
void triangle_ker0(const int64_t* k, const T* a_panel, const T* b_panel, const T* beta, const operand* c) {
  constexpr int64_t MR = kGemm<T>.mr, NR = kGemm<T>.nr, kWidest = MR + 2 * NR;
  constexpr int64_t kRows = kLargeStrips ? kStripsDown * MR : MR;
  const int64_t below = c->row_offset - c->column_offset, columns = c->columns;
  const T zero = {};
  T tile[MR * kWidest];
  const auto in_block = [=](int64_t j) TEV_LAMBDA { return min_of(max_of(j, 0), columns); };
  // Columns that the diagonal crosses in rows i .. i+rows-1, in whole strips, begin and end here.
  const auto begin_of = [=](int64_t i) TEV_LAMBDA { return in_block(i + below + !kUpper) / NR * NR; };
  const auto end_of = [=](int64_t i, int64_t rows)
                          TEV_LAMBDA { return in_block(round_up(in_block(i + rows + below), NR)); };
  const auto multiply = [&](int64_t i, int64_t j, const T* factor, const operand& to) TEV_LAMBDA {
    if (to.columns > 0) ker0<T>(k, a_panel + i * *k, b_panel + j * *k, factor, &to);
  };
  const auto add_whole = [&](int64_t i, int64_t rows, int64_t j, int64_t end)
                             TEV_LAMBDA { multiply(i, j, beta, block_of(c, i, j, rows, end - j)); };
  for (int64_t g = 0; g < c->rows; g += kRows) {
    const int64_t rows_together = min_of(kRows, c->rows - g);
    const int64_t whole = kUpper ? end_of(g, rows_together) : begin_of(g);
    add_whole(g, rows_together, kUpper ? whole : 0, kUpper ? columns : whole);
    for (int64_t i = g; i < g + rows_together; i += MR) {
      const int64_t rows = min_of(MR, c->rows - i), begin = begin_of(i), end = end_of(i, rows);
      add_whole(i, rows, kUpper ? end : whole, kUpper ? whole : begin);
      if (begin >= end) continue;
      const operand crossed = block_of(c, i, begin, rows, end - begin);
      operand apart = crossed;
      apart.data = tile;
      apart.ld = MR;
      multiply(i, begin, &zero, apart);
      merge_triangle<kHermitian>(kUpper, i + below - begin, tile, MR, *beta, &crossed);
    }
  }
}

// As fullacopybcopy, over the blocks that meet the triangle. 2: no memory, nothing was computed.
template <class T>
int32_t triangle_fullacopybcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                                buffers* buf, const kernel_info<T>* info) {
  initialize_buffers<T>(a, b, &info->plan, buf);
  buf->get(buf);
  if (tev_serv_check_ptr_and_warn(buf->base, kRoutineName<T>)) return 2;
  const bool upper = (c->copy_mode & kCopyUpper) != 0;
  const T one = one_of<T>();
  for (int64_t p = 0; p < a->columns; p += buf->kc) {
    const int64_t depth = min_of(buf->kc, a->columns - p);
    for (int64_t i = 0; i < a->rows; i += buf->mc) {
      const int64_t rows = min_of(buf->mc, a->rows - i), end = upper ? b->columns : i + rows;
      const operand a_block = block_of(a, i, p, rows, depth);
      packed to_a = {buf->a.data, 0, 0}, to_b = {buf->b.data, 0, 0};
      info->copy_a(&a_block, &to_a, &one);
      for (int64_t j = upper ? i : 0; j < end; j += buf->nc) {
        const int64_t columns = min_of(buf->nc, end - j);
        const operand b_block = block_of(b, p, j, depth, columns), c_block = block_of(c, i, j, rows, columns);
        info->copy_b(&b_block, &to_b, &op->alpha);
        info->ker0(&depth, static_cast<const T*>(buf->a.data), static_cast<const T*>(buf->b.data),
                   p == 0 ? &op->beta : &one, &c_block);
      }
    }
  }
  buf->free(buf);
  return 0;
}

// ---- Halved --------------------------------------------------------------------------------------------------------

// op(A) is n x k: A as it lies ("N") or transposed; the same of B.
template <class T>
struct rank_call {
  bool upper, plain;
  char transposed;  // T, or C if C is Hermitian
  int64_t k;
  T alpha;
  int64_t lda, ldb, ldc;
};

// Largest order of a diagonal block.
inline constexpr int64_t kDiagonalBlock = 32;

// Order of the first half: whole blocks, more than half if they do not divide.
TEV_INLINE int64_t first_half(int64_t order, int64_t block) { return (order / 2 + block - 1) / block * block; }

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
void halved_triangle(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  const auto multiply = [&](int64_t rows, int64_t columns, const T* first, const T* second, T factor, T* to,
                            int64_t ld) TEV_LAMBDA {
    const char left = r.plain ? 'N' : r.transposed, right = r.plain ? r.transposed : 'N';
    Gemm(&left, &right, &rows, &columns, &r.k, &r.alpha, first, &r.lda, second, &r.ldb, &factor, to, &ld);
  };
  if (n <= kDiagonalBlock) {
    T full[kDiagonalBlock * kDiagonalBlock];
    multiply(n, n, a, b, T{}, full, n);
    const operand block = {.data = c, .rows = n, .columns = n, .ld = r.ldc};
    return merge_triangle<kHermitian>(r.upper, 0, full, n, beta, &block);
  }
  const int64_t n1 = first_half(n, kDiagonalBlock), n2 = n - n1;
  const T *const a2 = a + n1 * (r.plain ? 1 : r.lda), *const b2 = b + n1 * (r.plain ? 1 : r.ldb);
  halved_triangle<kHermitian, T, Gemm>(r, n1, a, b, beta, c);
  halved_triangle<kHermitian, T, Gemm>(r, n2, a2, b2, beta, c + n1 * (r.ldc + 1));
  if (r.upper)
    multiply(n1, n2, a, b2, beta, c + n1 * r.ldc, r.ldc);
  else
    multiply(n2, n1, a2, b, beta, c + n1, r.ldc);
}

// ---- The routines --------------------------------------------------------------------------------------------------

// From this order and depth on panels are packed.
inline constexpr int64_t kLeastOrderPacked = 64, kLeastDepthPacked = 16;

template <bool kHermitian, class T>
__attribute__((noinline)) bool packed_triangle(const operation<T>& op) {
  kernel_info<T> info;
  packed_info_of(op, &info);
  info.ker0 = op.uplo == uplo_code('U') ? triangle_ker0<true, kHermitian, T> : triangle_ker0<false, kHermitian, T>;
  buffers buf;
  return triangle_fullacopybcopy(&op, &op.a, &op.b, &op.c, &buf, &info) == 0;
}

// C := alpha op(A) op(B)^T + beta C, A and B two matrices or one.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void add_rank_k(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (n >= kLeastOrderPacked && r.k >= kLeastDepthPacked &&
      packed_triangle<kHermitian>(make_rank_k_operation(r.upper ? 'U' : 'L', r.plain ? 'N' : r.transposed, kHermitian,
                                                        n, r.k, r.alpha, a, r.lda, b, r.ldb, beta, c, r.ldc)))
    return;
  halved_triangle<kHermitian, T, Gemm>(r, n, a, b, beta, c);
}

// False when nothing is to be added: C is scaled then, A not read.
template <bool kHermitian, class T>
TEV_INLINE bool begin_rank_k(bool upper, int64_t n, int64_t k, T alpha, T* beta, T* c, int64_t ldc) {
  if (n < 1) return false;
  const bool adds = k > 0 && !is_zero(alpha);
  if (!adds && is_one(*beta)) return false;
  // A Hermitian C is scaled by the real beta before, since a complex one would read imaginary parts.
  const bool scales_now = !adds || (kHermitian && !is_zero(*beta) && !is_one(*beta));
  if (!scales_now) return true;
  scale_triangle<kHermitian>(upper, n, *beta, c, ldc);
  *beta = one_of<T>();
  return adds;
}

// syrk, herk. Any letter but N means the transposed product.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void rank_k(const char* uplo, const char* trans, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                       T beta, T* c, int64_t ldc) {
  const rank_call<T> r = {is_letter(uplo, 'U'), is_letter(trans, 'N'), kHermitian ? 'C' : 'T', k, alpha, lda, lda, ldc};
  if (begin_rank_k<kHermitian>(r.upper, n, k, alpha, &beta, c, ldc))
    add_rank_k<kHermitian, T, Gemm>(r, n, a, a, beta, c);
}

// syr2k, her2k: C := alpha op(A) op(B)^T + alpha op(B) op(A)^T + beta C, the second alpha conjugated if C is Hermitian.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void rank_2k(const char* uplo, const char* trans, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                        const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  rank_call<T> r = {is_letter(uplo, 'U'), is_letter(trans, 'N'), kHermitian ? 'C' : 'T', k, alpha, lda, ldb, ldc};
  if (!begin_rank_k<kHermitian>(r.upper, n, k, alpha, &beta, c, ldc)) return;
  add_rank_k<kHermitian, T, Gemm>(r, n, a, b, beta, c);
  r.alpha = conjugate_if(kHermitian, alpha);
  r.lda = ldb, r.ldb = lda;
  add_rank_k<kHermitian, T, Gemm>(r, n, b, a, one_of<T>(), c);
}

}  // namespace tev::TEV_TIER
