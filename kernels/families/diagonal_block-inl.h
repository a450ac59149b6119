// SPDX-License-Identifier: BSD-3-Clause
// A block on the diagonal of a rank-k update, from strips of rows that pass by in registers (unpacked_strip-inl.h):
//
//   lower    strips of B
//   strip 0  | x  |    |    |    x: a strip and its own columns, panel by panel, each no higher than the triangle;
//   of A  1  |full| x  |         a square that is computed apart and merged
//         2  |full|full| x  |    full: what lies beside it, straight into C
//
// Both factors are read as they lie where their rows lie side by side, others are copied so first. A deep sum goes in
// pieces of the depth: all tiles use one before the next one comes, and ask for that meanwhile. A square that a product
// gives faster than strips do is one product of the tier's sequential entry.
#pragma once

#include "kernels/families/clashes.h"
#include "kernels/families/in_place-inl.h"
#include "kernels/families/packed_product-inl.h"
#include "kernels/families/transposed_strip-inl.h"
#include "kernels/operation.h"
#include "kernels/routine_types.h"

namespace tev::TEV_TIER {

// A strip of at most kTileVectors vectors of rows, all columns. Compiled with the unpacked product
// (exports/gemm_unpacked.inc).
template <class T>
void multiply_strip(const block<real_of<T>>& x, const finish<real_of<T>>& f);

// op(A) is n x k: A as it lies ("N") or transposed; the same of B.
template <class T>
struct rank_call {
  bool upper, plain;
  char transposed;  // T, or C if C is Hermitian
  bool twice;       // once more with A and B exchanged: that product is the first one's mirror image
  int64_t k;
  T alpha;
  int64_t lda, ldb, ldc;
};

// ---- Merging -------------------------------------------------------------------------------------------------------

// to := beta to + from
template <class T>
TEV_INLINE void merge_column(int64_t n, const T* from, T beta, T* to) {
  const auto merge = [=](const auto& value) TEV_LAMBDA {
    for_parts<T, 1>(n * kParts<T>, [=](auto part, int64_t i) TEV_LAMBDA { part.store(value(part, i), reals(to) + i); });
  };
  const auto sum = [=](auto part, int64_t i) TEV_LAMBDA { return part.load(reals(from) + i); };
  if (is_zero(beta)) return merge(sum);
  if (is_one(beta))
    return merge([=](auto part, int64_t i) TEV_LAMBDA { return part.load(reals(to) + i) + sum(part, i); });
  merge([=](auto part, int64_t i)
            TEV_LAMBDA { return times<T, decltype(part)::W>(beta, part.load(reals(to) + i)) + sum(part, i); });
}

// C := beta C + full in the rows i of column j that lie in the triangle: i + below >= j, or <= j in the upper one.
template <bool kHermitian, class T>
void merge_triangle(bool upper, int64_t below, const T* full, int64_t ld, T beta, const kernels::operand* c) {
  for (int64_t j = 0; j < c->columns; ++j) {
    const int64_t diagonal = j - below;
    const int64_t begin = upper ? 0 : max_of(diagonal, 0), end = upper ? min_of(diagonal + 1, c->rows) : c->rows;
    T* const to = static_cast<T*>(c->data) + j * c->ld;
    merge_column(end - begin, full + j * ld + begin, beta, to + begin);
    if constexpr (kHermitian)
      if (diagonal >= begin && diagonal < end) to[diagonal].imag = 0;
  }
}

// Adds the mirror image to one triangle of a block.
template <bool kHermitian, class T>
TEV_INLINE void add_mirrored(bool upper, int64_t n, T* full, int64_t ld) {
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = upper ? 0 : j; i < (upper ? j + 1 : n); ++i)
      full[i + j * ld] = TEV_TIER::add(full[i + j * ld], conjugate_if(kHermitian, full[j + i * ld]));
}

// ---- By strips -----------------------------------------------------------------------------------------------------

// A strip of rows; the columns of a panel; and from which depth on a strip's own columns are cut into panels: a shallow
// product takes longer to call than it saves. Found on 32 KiB / 1 MiB, as all numbers here.
template <class T>
inline constexpr int64_t kVectorRows = kLanesOf<real_of<T>> / kParts<T>;
template <class T>
inline constexpr int64_t kStripRows = kTileVectors* kVectorRows<T>;
template <class T>
inline constexpr int64_t kPanelColumns = kVectorRows<T> < 8 ? kVectorRows<T> : 8;
inline constexpr int64_t kLeastDepthCut = kVectorBytes == 64 ? 6 : 10;

// A factor whose rows lie side by side: reals from one step of k to the next, and from what is used to what is fetched.
template <class R>
struct side_by_side {
  const R* at;
  int64_t step, ahead;
  bool in_order;  // as in a block
};

// C(m x n), rows from i, columns from j, of a product `depth` deep.
template <class T, class R>
TEV_INLINE void multiply_part(int64_t depth, const side_by_side<R>& a, int64_t i, int64_t m, const side_by_side<R>& b,
                              int64_t j, int64_t n, const finish<R>& f, T* c, int64_t ldc) {
  constexpr int64_t U = kParts<T>;
  if (n > 0)
    multiply_strip<T>(block<R>{m * U, n, depth, a.at + i * U, a.step, b.at + j * U, b.step, U, reals(c), ldc * U,
                               a.ahead, 0, a.in_order},
                      f);
}

template <bool kHermitian, class T, class R>
TEV_INLINE void add_by_strips(const rank_call<T>& r, int64_t n, int64_t depth, const side_by_side<R>& a,
                              const side_by_side<R>& b, T beta, T* c) {
  constexpr int64_t kSquare = kStripRows<T>;
  const bool conj_a = kHermitian && !r.plain, conj_b = kHermitian && r.plain;
  const auto f = finish_of<T>(r.alpha, beta, conj_a, conj_b), apart = finish_of<T>(r.alpha, T{}, conj_a, conj_b);
  T square[kSquare * kSquare];
  const int64_t height = round_up(stretch(n, kSquare), kVectorRows<T>);
  for (int64_t i = 0, rows = 0; i < n; i += rows) {
    rows = min_of(height, n - i);
    const int64_t beside = r.upper ? i + rows : 0, columns = r.upper ? n - beside : i;
    T* const to = c + i + beside * r.ldc;
    multiply_part<T>(depth, a, i, rows, b, beside, columns, f, to, r.ldc);
    if (r.twice) {
      const auto mirrored = finish_of<T>(conjugate_if(kHermitian, r.alpha), one_of<T>(), conj_a, conj_b);
      multiply_part<T>(depth, b, i, rows, a, beside, columns, mirrored, to, r.ldc);
    }
    const int64_t panel = r.twice || depth < kLeastDepthCut ? rows : kPanelColumns<T>;
    for (int64_t j = 0; j < rows; j += panel) {
      const int64_t width = min_of(panel, rows - j), end = j + width;
      const int64_t first = r.upper || r.twice ? 0 : j, count = (r.upper ? end : rows) - first;
      multiply_part<T>(depth, a, i + first, count, b, i + j, width, apart, square + first + j * kSquare, kSquare);
    }
    if (r.twice) add_mirrored<kHermitian>(r.upper, rows, square, kSquare);
    const kernels::operand own = {.data = c + i * (r.ldc + 1), .rows = rows, .columns = rows, .ld = r.ldc};
    merge_triangle<kHermitian>(r.upper, 0, square, kSquare, beta, &own);
  }
}

// Calls piece(p, depth, beta) for even pieces of the depth, at most so deep; beta is 1 after the first.
template <class T, class Piece>
TEV_INLINE void for_pieces(int64_t k, int64_t most, T beta, const Piece& piece) {
  const int64_t deepest = stretch(k, most);
  for (int64_t p = 0; p < k; p += deepest, beta = one_of<T>()) piece(p, min_of(deepest, k - p), beta);
}

// A deep sum over factors that come from beyond a second cache. What a single strip needs is asked for shortly before;
// of several, 512-bit registers leave time for strips from the second cache, others want a piece in the first.
inline constexpr int64_t kDeepBytes = 512 * 1024, kPieceBytes = 256 * 1024,
                         kSmallPieceBytes = kVectorBytes == 64 ? kPieceBytes : 16 * 1024,
                         kLeastPiece = kVectorBytes == 64 ? 64 : 32, kWholePiece = 128;

template <class T>
TEV_INLINE bool is_deep(int64_t n, int64_t k) {
  return k > kWholePiece && n * k * int64_t{sizeof(T)} > kDeepBytes;
}

template <class T>
TEV_INLINE int64_t deepest_piece(const rank_call<T>& r, int64_t n) {
  const int64_t step = (r.twice ? 2 : 1) * n * int64_t{sizeof(T)};
  if (n <= kStripRows<T>) return kPieceBytes / step;
  return is_deep<T>(n, r.k) ? max_of(kSmallPieceBytes / step, kLeastPiece) : kWholePiece;
}

// Factors as they lie.
template <bool kHermitian, class T>
__attribute__((noinline)) void block_in_place(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  using R = real_of<T>;
  constexpr int64_t U = kParts<T>;
  for_pieces(r.k, deepest_piece(r, n), beta, [&](int64_t p, int64_t depth, T factor) TEV_LAMBDA {
    const auto from = [=](const T* x, int64_t ld) TEV_LAMBDA {
      const int64_t ahead = n <= kStripRows<T> ? ahead_of_one_strip<R>(ld * U) : p + depth < r.k ? depth * ld * U : 0;
      return side_by_side<R>{reals(x + p * ld), ld * U, ahead, false};
    };
    add_by_strips<kHermitian>(r, n, depth, from(a, r.lda), from(b, r.ldb), factor, c);
  });
}

// Factors whose columns lie along k, by way of copies on the stack. Sums are made in the order in which packed ones
// are: a block of a factorization is to have the same bits by itself and as a part of a larger one.
template <class T>
TEV_INLINE int64_t height_of_copy(int64_t n) {
  return round_up(n * kParts<T>, kLanesOf<real_of<T>>);
}
template <class T>
TEV_INLINE int64_t deepest_copy(int64_t n) {
  return kPanelBytes / (height_of_copy<T>(n) * int64_t{sizeof(real_of<T>)});
}

template <bool kHermitian, class T>
__attribute__((noinline)) void block_of_copies(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  using R = real_of<T>;
  constexpr int64_t U = kParts<T>;
  alignas(64) R copies[kPanelBytes / sizeof(R)];
  const bool two = a != b || r.lda != r.ldb;
  const int64_t height = height_of_copy<T>(n), deepest = deepest_copy<T>(n) / (two ? 2 : 1);
  R* const of_b = two ? copies + deepest * height : copies;
  for_pieces(r.k, deepest, beta, [&](int64_t p, int64_t depth, T factor) TEV_LAMBDA {
    transpose_strip<T>(n * U, depth, reals(a + p), r.lda * U, copies, height);
    if (two) transpose_strip<T>(n * U, depth, reals(b + p), r.ldb * U, of_b, height);
    const auto from = [=](const R* copy) TEV_LAMBDA { return side_by_side<R>{copy, height, 0, true}; };
    add_by_strips<kHermitian>(r, n, depth, from(copies), from(of_b), factor, c);
  });
}

// ---- As one product ------------------------------------------------------------------------------------------------

template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void multiply_rows(const rank_call<T>& r, int64_t rows, int64_t columns, const T* a, const T* b, T beta,
                              T* c, int64_t ldc) {
  const char left = r.plain ? 'N' : r.transposed, right = r.plain ? r.transposed : 'N';
  Gemm(&left, &right, &rows, &columns, &r.k, &r.alpha, a, &r.lda, b, &r.ldb, &beta, c, &ldc);
}

// The largest such square.
inline constexpr int64_t kSquareOrder = 32;

// A tiny one is over before strips were described; few rows along k are summed up so in the time that a copy takes; and
// where both triangles are needed, a product of transposed or deep factors does nothing in vain.
template <class T>
TEV_INLINE bool is_one_product(const rank_call<T>& r, int64_t n) {
  constexpr bool kWide = kVectorBytes == 64;
  constexpr int64_t kFewAlong = kComplex<T> ? (kWide ? 10 : 8) : (kWide ? 16 : 12), kLeastDepthAlong = 32;
  if (n > kSquareOrder) return false;
  if (kWide && n <= kVectorRows<T> && r.k <= 8) return true;
  if (r.twice) return !r.plain || is_deep<T>(n, r.k);
  return !r.plain && n <= kFewAlong && r.k >= kLeastDepthAlong;
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void block_as_product(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta,
                                                T* c) {
  T square[kSquareOrder * kSquareOrder];
  multiply_rows<T, Gemm>(r, n, n, a, b, T{}, square, n);
  if (r.twice) add_mirrored<kHermitian>(r.upper, n, square, n);
  const kernels::operand own = {.data = c, .rows = n, .columns = n, .ld = r.ldc};
  merge_triangle<kHermitian>(r.upper, 0, square, n, beta, &own);
}

// ---- Either way ----------------------------------------------------------------------------------------------------

// Largest order of a block, and of one whose sums are deep: to pack its factors pays for slow arithmetic alone.
inline constexpr int64_t kDiagonalBlock = kVectorBytes == 64 ? 128 : 48, kDeepBlock = kHasFma ? 128 : kDiagonalBlock;

template <class T>
TEV_INLINE bool is_one_block(const rank_call<T>& r, int64_t n) {
  if (r.twice && !r.plain) return n <= kSquareOrder;
  return n <= kDiagonalBlock || (n <= kDeepBlock && is_deep<T>(n, r.k));
}

template <bool kHermitian, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void diagonal_block(const rank_call<T>& r, int64_t n, const T* a, const T* b, T beta, T* c) {
  if (is_one_product(r, n)) return block_as_product<kHermitian, T, Gemm>(r, n, a, b, beta, c);
  if (r.plain) return block_in_place<kHermitian>(r, n, a, b, beta, c);
  block_of_copies<kHermitian>(r, n, a, b, beta, c);
}

}  // namespace tev::TEV_TIER
