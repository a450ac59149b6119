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
// A small or shallow C is halved down to blocks on the diagonal (diagonal_block-inl.h); what lies beside them is a
// product of the tier's sequential entry, which needs no memory.
#pragma once

#include "kernels/families/diagonal_block-inl.h"
#include "kernels/routine_types.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

// ---- Triangles of C ------------------------------------------------------------------------------------------------

// C := beta C; C is not read when beta is zero. A Hermitian C has a real beta and leaves with a real diagonal.
template <bool kHermitian, class T>
void scale_triangle(bool upper, int64_t n, T beta, T* c, int64_t ldc) {
  for (int64_t j = 0; j < n; ++j) {
    T* const column = c + j * ldc + (upper ? 0 : j);
    const int64_t rows = upper ? j + 1 : n - j;
    if constexpr (kHermitian) {
      mscale<real_of<T>>(2 * rows, 1, beta.real, reals(column), ldc);
      c[j * (ldc + 1)].imag = 0;
    } else {
      mscale<T>(rows, 1, beta, column, ldc);
    }
  }
}

// Of the triangle that its copy mode names.
template <bool kHermitian, class T>
TEV_INLINE void scale_triangle(const operand* c, const T* beta) {
  scale_triangle<kHermitian>(stored_triangle(c) == 'U', c->columns, *beta, static_cast<T*>(c->data), c->ld);
}

// ---- Packed --------------------------------------------------------------------------------------------------------

// What a triangle has of a tile of mr rows and nr columns whose first column begins `down` rows below the diagonal's
// place in its first row: kVectors registers of rows, the last ones in the lower triangle, the first ones in the upper.
template <bool kUpper, class T,
          int kVectors = kGemm<T>.mr* kParts<T> / lanes_dividing<real_of<T>>(kGemm<T>.mr* kParts<T>)>
TEV_INLINE void multiply_crossed(int64_t down, int64_t k, const T* a, const T* b, T* tile) {
  constexpr int MR = kGemm<T>.mr, NR = kGemm<T>.nr, W = lanes_dividing<real_of<T>>(MR * kParts<T>) / kParts<T>;
  constexpr int kRows = kVectors * W, kFirst = kUpper ? 0 : MR - kRows;
  if constexpr (kVectors > 1)
    if (kUpper ? down + NR <= kRows - W : down >= kFirst + W)
      return multiply_crossed<kUpper, T, kVectors - 1>(down, k, a, b, tile);
  const T zero = {};
  multiply_strips<T, 1, kRows, NR, NR, MR>(k, k, reals(a + kFirst), reals(b), &zero, beta_class::zero,
                                           reals(tile + kFirst), MR * kParts<T>,
                                           reinterpret_cast<const char*>(a + MR * k));
}

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
      int64_t j = begin;
      for (; rows == MR && j + NR <= end; j += NR)
        multiply_crossed<kUpper>(j - i - below, *k, a_panel + i * *k, b_panel + j * *k, tile + (j - begin) * MR);
      operand apart = block_of(&crossed, 0, j - begin, rows, end - j);
      apart.data = tile + (j - begin) * MR;
      apart.ld = MR;
      multiply(i, j, &zero, apart);
      merge_triangle<kHermitian>(kUpper, i + below - begin, tile, MR, *beta, &crossed);
    }
  }
}

TEV_INLINE bool is_hermitian(const operand* a, const operand* b) {
  return ((a->copy_mode | b->copy_mode) & kCopyConjTrans) != 0;
}

// One packed panel of A, rows [i, i + rows) of C, against the panels of B that meet the triangle.
template <class T>
TEV_INLINE void multiply_triangle_panel(const operation<T>* op, const T* a_panel, int64_t i, int64_t rows,
                                        const operand* b, int64_t p, int64_t depth, const T* beta, const operand* c,
                                        const buffers* buf, const kernel_info<T>* info) {
  const bool upper = stored_triangle(c) == 'U';
  const int64_t diagonal = i + c->row_offset - c->column_offset;
  const int64_t end = upper ? b->columns : min_of(diagonal + rows, b->columns);
  for (int64_t j = upper ? max_of(diagonal, 0) : 0; j < end; j += buf->nc) {
    const int64_t columns = min_of(buf->nc, end - j);
    const operand source = block_of(b, p, j, depth, columns), target = block_of(c, i, j, rows, columns);
    packed to = {buf->b.data, 0, 0};
    info->copy_b(&source, &to, &op->alpha);
    info->ker0(&depth, a_panel, static_cast<const T*>(buf->b.data), beta, &target);
  }
}

// What is left to do after C was scaled where that comes before the sums: a Hermitian C has a real beta, and as a
// complex one it would read imaginary parts.
template <class T>
TEV_INLINE T scale_hermitian(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                             const kernel_info<T>* info) {
  if (!is_hermitian(a, b) || is_zero(op->beta) || is_one(op->beta)) return op->beta;
  info->mscale(c, &op->beta);
  return one_of<T>();
}

// A sum without terms: C is scaled, A not read.
template <class T>
TEV_INLINE bool only_scales_triangle(const operation<T>* op, const operand* a, const operand* c,
                                     const kernel_info<T>* info) {
  if (a->columns > 0 && !is_zero(op->alpha)) return false;
  if (!is_one(op->beta)) info->mscale(c, &op->beta);
  return true;
}

// From this order and depth on panels are packed, if halves do not better: below kUnpackedBoth on 512-bit vectors, on
// others by the bytes of the longest row. Those of syr2k do for longer, those without fused multiply-add for shorter
// rows. Of a transposed A only syr2k is halved, so that sums along k are made in one order whatever the sizes: what
// one copy on the stack holds is a block on the diagonal, and so are small ones of deep sums. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kLeastOrderPacked = 64, kLeastDepthPacked = 16, kLeastTransposedPacked = 32;

template <class T>
TEV_INLINE bool is_packed_transposed(int64_t n, int64_t k) {
  if (n < max_of(kGemm<T>.mr, kLeastTransposedPacked)) return false;
  const bool is_copied = n <= kDiagonalBlock && k <= deepest_copy<T>(n);
  return !is_copied && (n > kLeastTransposedPacked || !is_deep<T>(n, k));
}
template <class T>
TEV_INLINE bool is_packed_triangle(int64_t n, int64_t k, bool plain, bool twice = false) {
  if (k < kLeastDepthPacked) return false;
  if (!plain && !twice) return is_packed_transposed<T>(n, k);
  const int64_t larger = max_of(n, k), halved_bytes = (kHasFma ? 1024 : 0) + (twice ? 1024 : 0);
  const bool small = kUnpackedBoth > 0 ? larger < kUnpackedBoth : larger * int64_t{sizeof(T)} < halved_bytes;
  return n >= kLeastOrderPacked && !small && !(plain && n <= kDeepBlock && is_deep<T>(n, k));
}

// As fullacopybcopy, over the blocks that meet the triangle. 2: no memory, nothing was computed.
template <class T>
int32_t triangle_fullacopybcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                                buffers* buf, const kernel_info<T>* info) {
  if (only_scales_triangle(op, a, c, info)) return 0;
  if (!is_packed_triangle<T>(c->columns, a->columns, stored_transposition(a) == 'N'))
    return info->fallback(op, a, b, c, buf, info);
  initialize_buffers<T>(a, b, &info->plan, buf);
  buf->get(buf);
  if (tev_serv_check_ptr_and_warn(buf->base, kRoutineName<T>)) return 2;
  const T beta = scale_hermitian(op, a, b, c, info), one = one_of<T>();
  for (int64_t p = 0; p < a->columns; p += buf->kc) {
    const int64_t depth = min_of(buf->kc, a->columns - p);
    for (int64_t i = 0; i < a->rows; i += buf->mc) {
      const int64_t rows = min_of(buf->mc, a->rows - i);
      const operand source = block_of(a, i, p, rows, depth);
      packed to = {buf->a.data, 0, 0};
      info->copy_a(&source, &to, &one);
      multiply_triangle_panel(op, static_cast<const T*>(buf->a.data), i, rows, b, p, depth, p == 0 ? &beta : &one, c,
                              buf, info);
    }
  }
  buf->free(buf);
  return 0;
}

// A is packed already, in buf->a.data: all rows of `a`, at most kc deep. Packs B into buf->b.data.
template <class T>
int32_t triangle_acopiedbcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                              buffers* buf, const kernel_info<T>* info) {
  if (only_scales_triangle(op, a, c, info)) return 0;
  if (tev_serv_check_ptr_and_warn(buf->b.data, kRoutineName<T>)) return 2;
  const T beta = scale_hermitian(op, a, b, c, info);
  multiply_triangle_panel(op, static_cast<const T*>(buf->a.data), 0, a->rows, b, 0, a->columns, &beta, c, buf, info);
  return 0;
}

// ---- Halved --------------------------------------------------------------------------------------------------------

// The second half of syr2k and her2k: A and B change places, alpha is conjugated if C is Hermitian.
template <bool kHermitian, class T>
TEV_INLINE rank_call<T> exchanged(rank_call<T> r) {
  r.alpha = conjugate_if(kHermitian, r.alpha);
  const int64_t lda = r.lda;
  r.lda = r.ldb, r.ldb = lda;
  return r;
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
void halved_triangle(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (is_one_block(r, n)) return diagonal_block<kHermitian, T, Gemm>(r, n, a, b, beta, c);
  const int64_t n1 = first_half(n, kSquareOrder), n2 = n - n1;
  const T *const a2 = a + n1 * (r.plain ? 1 : r.lda), *const b2 = b + n1 * (r.plain ? 1 : r.ldb);
  halved_triangle<kHermitian, T, Gemm>(r, n1, a, b, beta, c);
  halved_triangle<kHermitian, T, Gemm>(r, n2, a2, b2, beta, c + n1 * (r.ldc + 1));
  const auto multiply_beside = [&](const rank_call<T>& half, const T* first, const T* second, T factor) TEV_LAMBDA {
    if (r.upper)
      multiply_rows<T, Gemm>(half, n1, n2, first, second, factor, c + n1 * r.ldc, r.ldc);
    else
      multiply_rows<T, Gemm>(half, n2, n1, first, second, factor, c + n1, r.ldc);
  };
  multiply_beside(r, r.upper ? a : a2, r.upper ? b2 : b, beta);
  if (r.twice) multiply_beside(exchanged<kHermitian>(r), r.upper ? b : b2, r.upper ? a2 : a, one_of<T>());
}

// False when nothing is to be added: C is scaled then, A not read. A Hermitian C is scaled before the sums.
template <bool kHermitian, class T>
TEV_INLINE bool begin_rank_k(const rank_call<T>& r, int64_t n, T* beta, T* c) {
  const bool adds = n > 0 && r.k > 0 && !is_zero(r.alpha);
  if (is_one(*beta)) return adds;
  if (adds && (!kHermitian || is_zero(*beta))) return true;
  scale_triangle<kHermitian>(r.upper, n, *beta, c, r.ldc);
  *beta = one_of<T>();
  return adds;
}

// A and B two matrices or one.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void rank_k_nobufs(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (begin_rank_k<kHermitian>(r, n, &beta, c)) halved_triangle<kHermitian, T, Gemm>(r, n, a, b, beta, c);
}

// syr2k and her2k.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
void rank_2k_nobufs(rank_call<T> r, int64_t n, const T* a, const T* b, T beta, T* c) {
  r.twice = true;
  rank_k_nobufs<kHermitian, T, Gemm>(r, n, a, b, beta, c);
}

template <bool kHermitian, class T>
TEV_INLINE rank_call<T> rank_call_of(const operation<T>* op, const operand* a, const operand* b, const operand* c) {
  return {.upper = stored_triangle(c) == 'U',
          .plain = stored_transposition(a) == 'N',
          .transposed = kHermitian ? 'C' : 'T',
          .twice = false,
          .k = a->columns,
          .alpha = op->alpha,
          .lda = a->ld,
          .ldb = b->ld,
          .ldc = c->ld};
}

// A call of rank_k_nobufs and its kin as a driver.
template <bool kHermitian, class T, auto* Update>
int32_t triangle_driver(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers*,
                        const kernel_info<T>*) {
  Update(rank_call_of<kHermitian>(op, a, b, c), c->columns, static_cast<const T*>(a->data),
         static_cast<const T*>(b->data), op->beta, static_cast<T*>(c->data));
  return 0;
}
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
inline constexpr driver_fn<T>* triangle_nobufs = triangle_driver<kHermitian, T, rank_k_nobufs<kHermitian, T, Gemm>>;

// ---- Past the caches -----------------------------------------------------------------------------------------------

// scalar op(A), n x k, whatever op is.
template <class T>
TEV_INLINE void copy_plain(const rank_call<T>& r, int64_t n, T scalar, const T* a, int64_t lda, T* to) {
  const bool conjugated = !r.plain && r.transposed == 'C';
  const bool scales = !is_one(scalar);  // an infinite part times 1 + 0i would be NaN
  for (int64_t j = 0; j < (r.plain ? r.k : n); ++j)
    for (int64_t i = 0; i < (r.plain ? n : r.k); ++i) {
      const T x = conjugate_if(conjugated, a[i + j * lda]);
      to[r.plain ? i + j * n : j + i * n] = scales ? TEV_TIER::multiply(scalar, x) : x;
    }
}

// A shallow update that does not read C is a matter of writing it: where the triangle is too large to be found in a
// cache later, all but the blocks on its diagonal goes straight to memory, as in a shallow product. Such a block is a
// whole number of lines high. Found on 48 KiB / 1 MiB.
template <class T>
inline constexpr int64_t kDeepestPastCaches = kHasFma && !kComplex<T> ? 16 : 8;
inline constexpr int64_t kBlockPastCaches = 16;

template <class T>
TEV_INLINE bool is_written_past_caches(const rank_call<T>& r, int64_t n, T beta, const T* c) {
  return r.k > 0 && r.k <= kDeepestPastCaches<T> && !is_zero(r.alpha) && goes_past_caches(n, n / 2, beta, c, r.ldc);
}

// A and B are not transposed.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void triangle_past_caches(const rank_call<T>& r, int64_t n, const T* a, const T* b, T* c) {
  for (int64_t j = 0; j < n; j += kBlockPastCaches) {
    const int64_t columns = min_of(kBlockPastCaches, n - j), first = r.upper ? 0 : j + columns;
    diagonal_block<kHermitian, T, Gemm>(r, columns, a + j, b + j, T{}, c + j * (r.ldc + 1));
    write_past_caches(r.transposed, r.upper ? j : n - first, columns, r.k, r.alpha, a + first, r.lda, b + j, r.ldb,
                      c + first + j * r.ldc, r.ldc);
  }
}

// A and B two matrices, or one that may be transposed. False: no memory for its copy, nothing was computed.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) bool rank_k_past_caches(const rank_call<T>& r, int64_t n, const T* a, const T* b, T* c) {
  if (r.plain) return triangle_past_caches<kHermitian, T, Gemm>(r, n, a, b, c), true;
  T* const copy = static_cast<T*>(tev_serv_allocate(n * r.k * static_cast<int64_t>(sizeof(T)), 128));
  if (copy == nullptr) return false;
  copy_plain(r, n, one_of<T>(), a, r.lda, copy);
  rank_call<T> of_copy = r;
  of_copy.plain = true;
  of_copy.lda = of_copy.ldb = n;
  triangle_past_caches<kHermitian, T, Gemm>(of_copy, n, copy, copy, c);
  tev_serv_deallocate(copy);
  return true;
}

// ---- The routines --------------------------------------------------------------------------------------------------

// Any letter but N means the transposed product.
template <bool kHermitian, class T>
TEV_INLINE rank_call<T> describe_rank_k(const char* uplo, const char* trans, int64_t k, T alpha, int64_t lda,
                                        int64_t ldb, int64_t ldc) {
  return {.upper = is_letter(uplo, 'U'),
          .plain = is_letter(trans, 'N'),
          .transposed = kHermitian ? 'C' : 'T',
          .twice = false,
          .k = k,
          .alpha = alpha,
          .lda = lda,
          .ldb = ldb,
          .ldc = ldc};
}

// The routines of a rank-k update where no framework has them by name.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void own_rank_k_info(const operation<T>& op, kernel_info<T>* info) {
  packed_info_of(op, info);
  info->mscale = scale_triangle<kHermitian, T>;
  info->ker0 = stored_triangle(&op.c) == 'U' ? triangle_ker0<true, kHermitian, T> : triangle_ker0<false, kHermitian, T>;
  info->driver = triangle_fullacopybcopy<T>;
  info->fallback = triangle_nobufs<kHermitian, T, Gemm>;
}

// By the driver of the kernel information. Info: the framework's routine that fills it, in the tiers that have one.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
__attribute__((noinline)) void rank_k_by_records(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta,
                                                 T* c) {
  const operation<T> op = make_rank_k_operation(r.upper ? 'U' : 'L', r.plain ? 'N' : r.transposed, kHermitian, n, r.k,
                                                r.alpha, a, r.lda, b, r.ldb, beta, c, r.ldc);
  kernel_info<T> info;
  if constexpr (kApiVersion == 2) {
    strategy plan;
    initialize_strategy<T>(&plan);
    Info(&op, &op.a, &op.b, &op.c, &plan, &info);
  } else {
    own_rank_k_info<kHermitian, T, Gemm>(op, &info);
  }
  buffers buf;
  if (info.driver(&op, &op.a, &op.b, &op.c, &buf, &info) == 2) info.fallback(&op, &op.a, &op.b, &op.c, &buf, &info);
}

// Halves of a syr2k whose products would be packed one by one are packed once instead.
template <class T>
TEV_INLINE bool packs_rank_k(const rank_call<T>& r, int64_t n, bool twice) {
  const int64_t columns = min_of(n, r.k);
  const bool clash = kVectorBytes < 64 && (columns_clash<T>(columns, r.lda) || columns_clash<T>(columns, r.ldb));
  return is_packed_triangle<T>(n, r.k, r.plain, twice && !clash) && !is_zero(r.alpha);
}

// C := alpha op(A) op(B)^T + beta C, A and B two matrices or one.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
TEV_INLINE void rank_k(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (is_written_past_caches(r, n, beta, c) && rank_k_past_caches<kHermitian, T, Gemm>(r, n, a, b, c)) return;
  (packs_rank_k(r, n, false) ? rank_k_by_records<kHermitian, T, Gemm, Info>
                             : rank_k_nobufs<kHermitian, T, Gemm>)(r, n, a, b, beta, c);
}

// A shallow rank-2k update is a matter of C's way from memory and back: both halves are one product of twice the depth,
// [alpha A, alpha B] [B, A]^T, of copies. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kLeastOrderBeside = 256, kDeepestBeside = 32;

// False: no memory, nothing was computed.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
__attribute__((noinline)) bool rank_2k_beside(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  const int64_t numbers = n * r.k;
  T* const memory = static_cast<T*>(tev_serv_allocate(4 * numbers * static_cast<int64_t>(sizeof(T)), 128));
  if (memory == nullptr) return false;
  T *const left = memory, *const right = memory + 2 * numbers;
  const T one = one_of<T>();
  copy_plain(r, n, r.alpha, a, r.lda, left);
  copy_plain(r, n, conjugate_if(kHermitian, r.alpha), b, r.ldb, left + numbers);
  copy_plain(r, n, one, b, r.ldb, right);
  copy_plain(r, n, one, a, r.lda, right + numbers);
  rank_call<T> both = r;
  both.plain = true;
  both.k = 2 * r.k;
  both.alpha = one;
  both.lda = both.ldb = n;
  rank_k<kHermitian, T, Gemm, Info>(both, n, left, right, beta, c);
  tev_serv_deallocate(memory);
  return true;
}

// Panel by panel: the second half finds A and B where the first one left them.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
__attribute__((noinline)) void rank_2k(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (n >= kLeastOrderBeside && r.k <= kDeepestBeside && r.k > 0 && !is_zero(r.alpha) &&
      rank_2k_beside<kHermitian, T, Gemm, Info>(r, n, a, b, beta, c))
    return;
  if (!packs_rank_k(r, n, true)) return rank_2k_nobufs<kHermitian, T, Gemm>(r, n, a, b, beta, c);
  rank_call<T> part = r;
  for (int64_t p = 0; p < r.k; p += kGemm<T>.kc) {
    part.k = min_of(r.k - p, kGemm<T>.kc);
    const T *const from_a = a + p * (r.plain ? r.lda : 1), *const from_b = b + p * (r.plain ? r.ldb : 1);
    rank_k_by_records<kHermitian, T, Gemm, Info>(part, n, from_a, from_b, p == 0 ? beta : one_of<T>(), c);
    rank_k_by_records<kHermitian, T, Gemm, Info>(exchanged<kHermitian>(part), n, from_b, from_a, one_of<T>(), c);
  }
}

// Both halves by the drivers of a rank-k update. `info` holds its row.
template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
TEV_INLINE void use_rank_2k(kernel_info<T>* info) {
  info->packed_product = nullptr;
  info->driver = triangle_driver<kHermitian, T, rank_2k<kHermitian, T, Gemm, Info>>;
  info->fallback = info->pst = triangle_driver<kHermitian, T, rank_2k_nobufs<kHermitian, T, Gemm>>;
}

}  // namespace tev::TEV_TIER
