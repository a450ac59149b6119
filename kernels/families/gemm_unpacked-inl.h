// SPDX-License-Identifier: BSD-3-Clause
// The general product without packing whole panels: C := alpha op(A) op(B) + beta C, any shape. A that is not
// transposed is read in place; a transposed A goes through a panel on the stack, one strip of rows and a stretch of k
// at a time. B is read in place, one broadcast element at a time. Memory is only asked for where a large operand is
// read once, and done without where there is none.
#pragma once

#include "kernels/families/dot_tile-inl.h"
#include "kernels/families/gemm_arguments.h"
#include "kernels/families/gemm_shallow.h"
#include "kernels/families/shallow_columns-inl.h"
#include "kernels/families/stretches-inl.h"
#include "kernels/families/unpacked_strip-inl.h"
#include "kernels/records.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

inline constexpr int64_t kLargestSecondCache = 2 * 1024 * 1024;

// Deepest stretch of k for which a strip of A is used before the next one is read, and half of that where then its
// columns do not evict each other. A single strip comes as fast from the second cache, of which it gets a third; lines
// of B that hold several columns get half of it. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kUnpackedDepth = 128, kHalfDepth = kUnpackedDepth / 2, kOneStripBytes = 384 * 1024,
                         kSharedLinesBytes = kHalfSecondCache;
// Of a single strip where the next stretch is fetched meanwhile.
inline constexpr int64_t kFetchedDepth = 256;

// Where sums along k pay: so many rows or columns at most, so deep at least; and many on the other side when the few
// must be transposed first.
inline constexpr int64_t kFewDots = 16, kDeepDots = 32;
inline constexpr int64_t kFewPackedDots = 8, kManyPackedDots = 32;

// Sums along k end with additions across registers. Where they are short, rows of a transposed A that fill a register
// are faster through a panel; and so are rows that fill two beside many columns, from near. Found on 32 KiB / 1 MiB.
inline constexpr int64_t kShortDots = 64, kLeastBesidePanel = 8, kManyBesidePanel = 32;
template <class T>
TEV_INLINE bool pays_by_dots(int64_t m, int64_t n, int64_t k) {
  if ((m > kFewDots && n > kFewDots) || k < kDeepDots) return false;
  const int64_t size = sizeof(T), registers = kHasFma ? m * size / kVectorBytes : 0;
  if (registers >= 1 && n >= kLeastBesidePanel && k < kShortDots) return false;
  return registers < 2 || n < kManyBesidePanel || (m + n) * k * size > kHalfSecondCache;
}

// Few rows (columns) of one operand, and another so large that it comes from memory: what counts is that it is read
// once, along its columns. Then more rows count as few.
inline constexpr int64_t kFewStreamed = 16, kManyStreamed = 512, kDeepStreamed = 256,
                         kStreamedBytes = 8 * 1024 * 1024;  // what is larger comes from memory
TEV_INLINE bool is_streamed(int64_t few, int64_t many, int64_t k, int64_t deep = kDeepStreamed) {
  return few <= kFewStreamed && many >= kManyStreamed && k >= deep;
}

// Products A B^T with fewer rows than kFewSwapped are computed as B A^T, and so are those that is_streamed() at a
// lesser depth, unless the few fill vectors and B comes from near. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kFewSwapped = 8, kDeepSwapped = 64;
template <class T>
TEV_INLINE bool is_swapped(int64_t m, int64_t n, int64_t k) {
  constexpr int64_t kSize = sizeof(T);
  const bool pays = kVectorBytes == 64 || m * kSize < 2 * kVectorBytes || n * k * kSize > kHalfSecondCache;
  return (m < kFewSwapped && n > m) || is_streamed(m, n, k, kHasFma && pays ? kDeepSwapped : kDeepStreamed);
}

// All rows of A are one strip, and B, transposed, is larger than a second cache: lines of it hold several columns, so
// that it comes faster as strips of its own rows than a few columns at a time.
template <class T>
TEV_INLINE bool is_one_strip_of_far_rows(int64_t m, int64_t n, int64_t k) {
  constexpr int64_t kSize = sizeof(T);
  return m * kSize <= kTileVectors * kVectorBytes && m < n && k >= kDeepStreamed && n * k * kSize > kLargestSecondCache;
}

// So few rows of one operand, and an op(B) whose columns lie along k and come from beyond the second cache, that B is
// read once, as it lies. One multiply-add for each number of B keeps up with memory where that delivers doubles; a sum
// along k has to save most of them for the last cache, and for floats, unless the rows fill registers. Found on
// 48 KiB / 1 MiB.
inline constexpr int kStreamedVectors = kVectorRegisters == 32 ? 3 : 2;

template <class T>
TEV_INLINE bool streams_columns(int64_t few, int64_t many, int64_t k) {
  constexpr int64_t kSize = sizeof(T), kVector = kVectorBytes / kSize;
  if (few > kStreamedVectors * kVector || many < 8 * few || k < kDeepStreamed) return false;
  const int64_t bytes = many * k * kSize;
  return bytes > kLargestSecondCache &&
         (2 * few >= 3 * kVector || (kSize == 8 && (few >= 8 || bytes > kStreamedBytes)));
}

// A panel for which a stack may not have room.
inline constexpr int64_t kLongPanelBytes = 64 * 1024;

template <class T, class R>
TEV_INLINE int64_t depth_of_one_strip(int64_t n, walk<R> b) {
  constexpr int64_t kSize = sizeof(R), kHeight = kMostStripVectors * kLanesOf<R>,
                    kLongest = kOneStripBytes / (kHeight * kSize);
  if constexpr (!kHasFma) return kUnpackedDepth;
  const int64_t shared = b.row == kParts<T> ? kLongest : kSharedLinesBytes / kSize / (n * kParts<T>);
  return shared > kLongest ? kLongest : shared < kUnpackedDepth ? kUnpackedDepth : shared;
}

// Of several strips. 512-bit registers write a transposed tile for as much as the evicted columns cost.
template <bool kTransposed, class R>
TEV_INLINE int64_t depth_of_strips(walk<R> a) {
  if (kTransposed && kVectorBytes == 64) return kUnpackedDepth;
  return columns_clash<R>(kUnpackedDepth, a.column) && !columns_clash<R>(kHalfDepth, a.column) ? kHalfDepth
                                                                                               : kUnpackedDepth;
}

// A strip of such a stretch.
template <class T, bool kTransposed, int MV, class R>
TEV_INLINE void strip_of_stretch(const block<R>& x, const finish<R>& f) {
  if (kHasFma && x.next != nullptr)
    strip_of_any_height<T, kTransposed, kLanesOf<R>, MV, reading::stretches>(x, f);
  else
    strip_of_any_height<T, kTransposed, kLanesOf<R>, MV>(x, f);
}

// C(m x n) += A B from strips of A's rows. kTransposed: m counts columns of C. What is deeper than kUnpackedDepth goes
// in stretches of k; while a stretch is used, the next strip of A and, once, the next stretch of B are fetched.
template <class T, bool kTransposed, class R>
TEV_INLINE void by_strips(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc, finish<R> f) {
  const int64_t c_row = kTransposed ? ldc : kParts<T>;
  const int64_t rows_in_all = m * kParts<T>;
  if (k <= kUnpackedDepth) {
    for (int64_t i = 0, rows = 0; i < rows_in_all; i += rows) {
      rows = next_strip<R, kMostStripVectors>(rows_in_all - i);
      strip_of_any_height<T, kTransposed, kLanesOf<R>, kMostStripVectors>(
          block<R>{rows, n, k, a.at + i, a.column, b.at, b.row, b.column, c + i / kParts<T> * c_row, ldc,
                   i + rows < rows_in_all ? rows : 0, 0},
          f);
    }
    return;
  }
  constexpr int64_t kLast = kLineBytes / static_cast<int64_t>(sizeof(R)) - 1;
  constexpr int64_t kTallest = kMostStripVectors * kLanesOf<R>, kWidest = kVectorRegisters == 32 ? 8 : 6;
  const int64_t strips = (rows_in_all + kTallest - 1) / kTallest, tiles = strips * (n * kParts<T> / kWidest);
  const bool one_strip = strips == 1, shares_lines = b.row != kParts<T>;
  const int64_t fetched = stretch(k, one_strip ? kFetchedDepth : depth_of_strips<kTransposed>(a));
  fetched_stretches<T> following(m, n, k, a, b, fetched, tiles,
                                 !one_strip || kVectorRegisters < 32 ? kTilesToFetch
                                 : shares_lines                      ? kTilesOfSharedLines
                                                                     : kNeverFetched);
  const int64_t deepest = following.pays() || !one_strip ? fetched : stretch(k, depth_of_one_strip<T>(n, b));
  for (int64_t p0 = 0; p0 < k; p0 += deepest) {
    const int64_t depth = k - p0 < deepest ? k - p0 : deepest;
    upcoming* const next = following.beside(p0);
    for (int64_t i = 0, rows = 0; i < rows_in_all; i += rows) {
      rows = next_strip<R, kMostStripVectors>(rows_in_all - i);
      const bool last = i + rows == rows_in_all;
      const int64_t ahead = next != nullptr  ? 0
                            : i == 0 && last ? ahead_of_one_strip<R>(a.column)
                            : last           ? deepest * a.column - i
                                             : rows + kLast;
      strip_of_stretch<T, kTransposed, kMostStripVectors>(
          block<R>{rows, n, depth, a.at + i + p0 * a.column, a.column, b.at + p0 * b.row, b.row, b.column,
                   c + i / kParts<T> * c_row, ldc, ahead,
                   i == 0 && !last && next == nullptr && p0 + deepest < k ? deepest * b.row : 0, false, next},
          f);
    }
    add_to_c(f);
  }
}

// Large operands that are read once have ways of their own, streams_columns() and is_far_and_narrow(), where T is real.
template <class T>
inline constexpr bool kReadsFar = kParts<T> == 1 && kHasFma;

// So few columns, beside an A from beyond half of a second cache: what counts is how fast A comes. Lines of so many of
// its columns that they take a quarter of a first cache, then the lines below them, which are asked for meanwhile: from
// the last cache and from memory that is 1.1 to 1.9 times as fast as whole tiles are. Where columns do not begin with
// a line, the last line of the next strip is the one that is still missing.
//
// A tile of 32 registers that is as tall as they allow goes on to the last column as fast, if it asks for columns some
// time before: from 384 columns on, up to 1.3 times as fast. All found on 48 KiB / 1 MiB.
inline constexpr int64_t kFewFar = 5, kFarBlockBytes = 16 * 1024;
inline constexpr int64_t kDeepTall = 384, kTallBlock = 1024, kTallAhead = 24;

template <class T>
TEV_INLINE bool is_far_and_narrow(int64_t m, int64_t n, int64_t k) {
  constexpr int64_t kSize = sizeof(T), kLeastRows = 16 * kLineBytes / kSize;
  return n <= kFewFar && m >= kLeastRows && m * k * kSize > kHalfSecondCache;
}

template <class T, int V, class R>
TEV_INLINE void by_far_strips_of(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc,
                                 finish<R> f) {
  constexpr bool kTall = kVectorRegisters == 32 && V == kTallVectors;
  constexpr int64_t kHeight = V * kLanesOf<R>, kLast = kLineBytes / static_cast<int64_t>(sizeof(R)) - 1;
  const int64_t deepest = stretch(k, kTall ? kTallBlock : kFarBlockBytes / (V * kVectorBytes));
  const int64_t ahead = kTall ? kTallAhead * a.column : kHeight + kLast;
  for (int64_t p = 0; p < k; p += deepest) {
    for (int64_t i = 0, rows = 0; i < m; i += rows) {
      rows = kTall ? next_share(m - i, kHeight) : next_strip<R, V>(m - i);
      strip_of_any_height<T, false, kLanesOf<R>, V>(
          block<R>{rows, n, k - p < deepest ? k - p : deepest, a.at + i + p * a.column, a.column, b.at + p * b.row,
                   b.row, b.column, c + i, ldc, ahead, 0},
          f);
    }
    add_to_c(f);
  }
}

template <class T, class R>
__attribute__((noinline)) void by_far_strips(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc,
                                             const finish<R>& f) {
  if constexpr (kVectorRegisters == 32) {
    if (n <= kTallColumns && k >= kDeepTall) return by_far_strips_of<T, kTallVectors>(m, n, k, a, b, c, ldc, f);
  } else {
    if (n > kTallColumns) return by_far_strips_of<T, kFarVectors / 2>(m, n, k, a, b, c, ldc, f);
  }
  by_far_strips_of<T, kFarVectors>(m, n, k, a, b, c, ldc, f);
}

// The same for the transpose of C, which is put together in a panel; false when there is no memory for it. T is real.
template <class T, class R>
__attribute__((noinline)) bool by_far_strips_transposed(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c,
                                                        int64_t ldc, const finish<R>& f) {
  R* const panel = static_cast<R*>(tev_serv_allocate(kLongPanelBytes, kLineBytes));
  if (panel == nullptr) return false;
  constexpr int64_t kSize = sizeof(R), kLine = kLineBytes / kSize;
  const int64_t most = kLongPanelBytes / kSize / n / kLine * kLine;
  finish<R> sums = f;
  sums.reads_c = false;
  for (int64_t i = 0; i < m; i += most) {
    const int64_t rows = m - i < most ? m - i : most;
    by_far_strips<T>(rows, n, k, walk<R>{a.at + i, a.row, a.column}, b, panel, most, sums);
    for (int64_t r = 0; r < rows; ++r)
      for (int64_t j = 0; j < n; ++j) {
        R* const to = c + (i + r) * ldc + j;
        const R sum = panel[j * most + r];
        *to = f.reads_c ? sum + f.beta_re[0] * *to : sum;
      }
  }
  tev_serv_deallocate(panel);
  return true;
}

// Down one group of columns after the other: all rows of as many columns as a tile has, then the rest of the columns.
// One function, since a call for each tile would cost as much as a few steps.
template <class T, class R>
__attribute__((noinline)) void column_groups(block<R> x, const finish<R>& f) {
  constexpr int W = kLanesOf<R>, V = kTileVectors, NC = kTileColumns / kParts<T>;
  const int64_t rows_in_all = x.rows;
  const R* const top = x.a;
  for (int64_t left = x.n; left > 0; left -= x.n, x.b += x.n * x.b_column, x.c += x.n * x.ldc) {
    x.n = left >= 2 * NC || left == NC ? NC : left;
    x.a = top;
    R* const c = x.c;
    for (int64_t rows_left = rows_in_all; rows_left > 0; rows_left -= x.rows) {
      x.rows = next_strip<R>(rows_left);
      if (x.n == NC && x.rows == V * W) {
        x.rows = V * W;  // known to the compiler: no masks
        compute_tile<T, false, W, V, NC>(x, x.b, x.c, f);
      } else if (x.n == NC && V > 2 && x.rows > W && x.rows <= 2 * W) {
        compute_tile<T, false, W, 2, NC>(x, x.b, x.c, f);
      } else {
        const block<R> rest = x;  // a copy, so that x stays in registers
        strip_of_any_height<T, false, W, V>(rest, f);
      }
      x.a += x.rows;
      x.c += x.rows;
    }
    x.c = c;
  }
}

// Where so much of A cannot be kept in the first cache strip by strip, a block of it stays in half of the smallest
// second cache, and the product goes down its columns, so that C is written as it lies. What is deeper streams through
// the caches anyway, and better strip by strip. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kGroupBytes = kHalfSecondCache, kGroupDepth = 384, kLeastGrouped = 96 * 1024, kLeastGroups = 4;

template <class T>
TEV_INLINE bool pays_down_columns(int64_t m, int64_t n, int64_t k) {
  constexpr int64_t kSize = sizeof(T);
  return kVectorBytes == 64 && m * kSize > kTileVectors * kVectorBytes && m * k * kSize > kLeastGrouped &&
         k <= kGroupDepth && n * kParts<T> >= kLeastGroups * kTileColumns;
}

template <class T, class R>
TEV_INLINE void by_column_groups(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc,
                                 const finish<R>& f) {
  constexpr int kHeight = kTileVectors * kLanesOf<R>;
  const int64_t rows_in_all = m * kParts<T>;
  const int64_t most = kGroupBytes / static_cast<int64_t>(sizeof(R)) / k / kHeight * kHeight;
  for (int64_t i = 0; i < rows_in_all; i += most)
    column_groups<T>(block<R>{rows_in_all - i < most ? rows_in_all - i : most, n, k, a.at + i, a.column, b.at, b.row,
                              b.column, c + i, ldc, 0, 0},
                     f);
}

template <class T>
void write_past_caches(char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a, int64_t lda, const T* b,
                       int64_t ldb, T* c, int64_t ldc) {
  const char tb = static_cast<char>(transb & ~0x20);
  auto down = finish_of<T>(alpha, T{}, false, tb == 'C');
  down.past_caches = true;
  by_column_groups<T>(m, n, k, walk_of(a, false, lda), walk_of(b, tb != 'N', ldb), reals(c), ldc * kParts<T>, down);
  __builtin_ia32_sfence();  // others see what was written before what comes now
}

// The same from strips that are transposed into a panel first.
template <class T, class R>
TEV_INLINE void by_panels(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc, finish<R> f) {
  constexpr int kHeight = kTileVectors * kLanesOf<R>;
  constexpr int64_t kDeepest = kPanelBytes / (kHeight * static_cast<int>(sizeof(R)));
  alignas(64) R panel[kDeepest * kHeight];
  const int64_t rows_in_all = m * kParts<T>, deepest = stretch(k, kDeepest);
  const int64_t tiles = (rows_in_all + kHeight - 1) / kHeight * (n * kParts<T> / kTileColumns);
  fetched_stretches<T> following(m, n, k, a, b, deepest, tiles);
  for (int64_t p0 = 0; p0 < k; p0 += deepest) {
    const int64_t depth = k - p0 < deepest ? k - p0 : deepest;
    upcoming* const next = following.beside(p0);
    for (int64_t i = 0; i < rows_in_all;) {
      const int64_t rows = next_strip<R>(rows_in_all - i);
      transpose_strip<T>(rows, depth, a.at + i / kParts<T> * a.row + p0 * a.column, a.row, panel, kHeight);
      strip_of_stretch<T, false, kTileVectors>(
          block<R>{rows, n, depth, panel, kHeight, b.at + p0 * b.row, b.row, b.column, c + i, ldc, 0, 0, false, next},
          f);
      i += rows;
    }
    add_to_c(f);
  }
}

// A single strip of rows, and columns of B where streams_columns(). Rows of A that lie along k go through a panel,
// which may outgrow the first cache: the longer the stretches of B's columns, the better. False: no memory, nothing was
// computed.
template <class T, bool kTransposed, class R>
__attribute__((noinline)) bool by_streamed_columns(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c,
                                                   int64_t ldc, finish<R> f) {
  constexpr int64_t kSize = sizeof(R), kLine = kLineBytes / kSize, W = kLanesOf<R>;
  const bool packs = a.row != kParts<T>;
  R* const panel = packs ? static_cast<R*>(tev_serv_allocate(kLongPanelBytes, kLineBytes)) : nullptr;
  if (packs && panel == nullptr) return false;
  const int64_t rows = m * kParts<T>, height = (rows + W - 1) / W * W;
  const int64_t most = (packs ? kLongPanelBytes : kOneStripBytes) / kSize / height / kLine * kLine;
  const int64_t deepest = (stretch(k, most) + kLine - 1) / kLine * kLine;
  const int64_t step = packs ? height : a.column;
  for (int64_t p0 = 0; p0 < k; p0 += deepest) {
    const int64_t depth = k - p0 < deepest ? k - p0 : deepest;
    if (packs) transpose_strip<T>(rows, depth, a.at + p0 * a.column, a.row, panel, height);
    strip_of_any_height<T, kTransposed, kLanesOf<R>, kStreamedVectors, reading::streamed>(
        block<R>{rows, n, depth, packs ? panel : a.at + p0 * a.column, step, b.at + p0 * b.row, b.row, b.column, c, ldc,
                 kStepsAhead * step, 0},
        f);
    add_to_c(f);
  }
  if (packs) tev_serv_deallocate(panel);
  return true;
}

// C(m x n) from rows of A and columns of B that are contiguous along k. One of them may have to be made so first: it
// is the one with few rows (columns): kFewPackedDots at most.
//
// Longest stretch of k, in bytes of a row: with many rows on both sides what is read again has to stay in the first
// cache, as long as a stretch repays the sums at its end. A few tiles, of operands that come from the last cache, repay
// longer ones; what is fetched is then ahead along k. Two tiles by two, of operands that fill a quarter of a second
// cache or more and stay there, take rows as they are: up to 1.25 times as fast. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kDotBytes = 1024, kFewDotBytes = 4096, kLongDotBytes = 64 * 1024, kDotCacheBytes = 32 * 1024;

template <class T, class R>
TEV_INLINE void by_dots_in_place(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc,
                                 finish<R> f) {
  const int64_t held = kDotCacheBytes / (m < n ? m + kDotColumns<T> : n + kDotRows<T>);
  const bool one_tile = m <= kDotRows<T> && n <= kDotColumns<T>;
  const int64_t operand_bytes = (m + n) * k * int64_t{sizeof(T)};
  const bool near_squares = max_of(m, n) <= 2 * kDotColumns<T> && operand_bytes > kHalfSecondCache / 2 &&
                            operand_bytes <= 2 * kHalfSecondCache;
  const bool few = kVectorBytes == 64 && !one_tile && !near_squares && m <= kFewDots && n <= kFewDots &&
                   operand_bytes > kHalfSecondCache && operand_bytes <= kStreamedBytes;
  const bool whole = near_squares || m <= kDotRows<T> || n <= kDotColumns<T>;
  const int64_t bytes = few ? kFewDotBytes : whole ? kLongDotBytes : max_of(held, kDotBytes);
  const int64_t deepest = stretch(k, bytes / static_cast<int64_t>(sizeof(T)));
  const bool from_memory = operand_bytes > kStreamedBytes;
  const int64_t tiles = (m + kDotRows<T> - 1) / kDotRows<T> * ((n + kDotColumns<T> - 1) / kDotColumns<T>);
  fetched_stretches<T> following(m, n, k, a, b, deepest, tiles, from_memory ? kTilesToFetch : kNeverFetched,
                                 kLineBytes / static_cast<int64_t>(sizeof(T)));
  for (int64_t p0 = 0; p0 < k; p0 += deepest) {
    const int64_t depth = k - p0 < deepest ? k - p0 : deepest;
    by_dots<T>(m, n,
               dot_block<R>{depth * kParts<T>, a.at + p0 * a.column, a.row, b.at + p0 * b.row, b.column, c, ldc, 0, 0,
                            from_memory, following.beside(p0)},
               !few && depth * int64_t{sizeof(T)} <= kShortRow, f);
    add_to_c(f);
  }
}

template <class T, class R>
TEV_INLINE void by_packed_dots(bool packs_a, int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, R* c, int64_t ldc,
                               finish<R> f) {
  const int64_t few = packs_a ? m : n;
  alignas(64) R panel[kPanelBytes / sizeof(R)];
  constexpr int64_t kVector = kLanesOf<R> / kParts<T>;
  const int64_t most = kPanelBytes / static_cast<int64_t>(sizeof(T)) / few / kVector * kVector;
  const int64_t deepest = (stretch(k, most) + kVector - 1) / kVector * kVector;
  for (int64_t p0 = 0; p0 < k; p0 += deepest) {
    const int64_t depth = k - p0 < deepest ? k - p0 : deepest;
    const int64_t row = deepest * kParts<T>;
    dot_block<R> x{depth * kParts<T>,
                   a.at + p0 * a.column,
                   a.row,
                   b.at + p0 * b.row,
                   b.column,
                   c,
                   ldc,
                   0,
                   0,
                   (m + n) * k * int64_t{sizeof(T)} > kStreamedBytes};
    transpose_strip<T>(depth * kParts<T>, few, packs_a ? x.a : x.b, packs_a ? a.column : b.row, panel, row);
    (packs_a ? x.a : x.b) = panel;
    (packs_a ? x.a_row : x.b_column) = row;
    by_dots<T>(m, n, x, depth * int64_t{sizeof(T)} <= kShortRow, f);
    add_to_c(f);
  }
}

// C := beta C and y := alpha op(A) x + beta y: the tier's mscale and gemv, which the exports of each precision name.
template <class T>
void scale_c(int64_t m, int64_t n, T beta, T* c, int64_t ldc);
template <class T>
void matrix_times_vector(char trans, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* x, int64_t incx,
                         T beta, T* y, int64_t incy);

template <class T>
void multiply_strip(const block<real_of<T>>& x, const finish<real_of<T>>& f) {
  strip_of_any_height<T, false, kLanesOf<real_of<T>>, kTileVectors>(x, f);
}

// What is neither a vector nor written by columns.
template <class T>
__attribute__((noinline)) void unpacked_matrix(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha,
                                               const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c,
                                               int64_t ldc) {
  using R = real_of<T>;
  const char ta = static_cast<char>(transa & ~0x20), tb = static_cast<char>(transb & ~0x20);
  const walk<R> aw = walk_of(a, ta != 'N', lda), bw = walk_of(b, tb != 'N', ldb);
  R* c_real = reinterpret_cast<R*>(c);
  const int64_t ldc_real = ldc * kParts<T>;
  // A single row of A (column of B) without gaps lies along k, whatever its letter.
  const bool na = ta == 'N' && (m > 1 || lda > 1), nb = tb == 'N' || (n == 1 && ldb == 1);
  const auto f = [&](bool swapped) TEV_LAMBDA {
    return swapped ? finish_of<T>(alpha, beta, tb == 'C', ta == 'C') : finish_of<T>(alpha, beta, ta == 'C', tb == 'C');
  };
  const walk<R> a_swapped{aw.at, aw.column, aw.row}, b_swapped{bw.at, bw.column, bw.row};
  if constexpr (kReadsFar<T>) {
    if (nb && streams_columns<T>(m, n, k) && by_streamed_columns<T, false>(m, n, k, aw, bw, c_real, ldc_real, f(false)))
      return;
    if (!na && streams_columns<T>(n, m, k) &&  // C^T = op(B)^T op(A)^T
        by_streamed_columns<T, true>(n, m, k, b_swapped, a_swapped, c_real, ldc_real, f(true)))
      return;
  }
  if (!na && nb && pays_by_dots<T>(m, n, k)) return by_dots_in_place<T>(m, n, k, aw, bw, c_real, ldc_real, f(false));
  if constexpr (kReadsFar<T>) {
    if (na && is_far_and_narrow<T>(m, n, k)) return by_far_strips<T>(m, n, k, aw, bw, c_real, ldc_real, f(false));
    if (!nb && is_far_and_narrow<T>(n, m, k) &&  // C^T = op(B)^T op(A)^T
        by_far_strips_transposed<T>(n, m, k, b_swapped, a_swapped, c_real, ldc_real, f(true)))
      return;
  }
  const auto packs_few = [&](int64_t few, int64_t many) TEV_LAMBDA {
    return (few <= kFewPackedDots && many >= kManyPackedDots && k >= kDeepDots) || is_streamed(few, many, k);
  };
  if (na && nb && packs_few(m, n)) return by_packed_dots<T>(true, m, n, k, aw, bw, c_real, ldc_real, f(false));
  if (!na && !nb && packs_few(n, m)) return by_packed_dots<T>(false, m, n, k, aw, bw, c_real, ldc_real, f(false));
  if (!nb && (!na || is_swapped<T>(m, n, k) || is_one_strip_of_far_rows<T>(m, n, k)))  // C^T = op(B)^T op(A)^T
    return by_strips<T, true>(n, m, k, b_swapped, a_swapped, c_real, ldc_real, f(true));
  const bool shallow = is_shallow(ta, m, n, k, beta);
  if (na && (shallow || pays_down_columns<T>(m, n, k))) {
    auto down = f(false);
    down.past_caches = shallow && goes_past_caches(m, n, beta, c, ldc);
    by_column_groups<T>(m, n, k, aw, bw, c_real, ldc_real, down);
    if (down.past_caches) __builtin_ia32_sfence();  // others see what was written before what comes now
    return;
  }
  if (na) return by_strips<T, false>(m, n, k, aw, bw, c_real, ldc_real, f(false));
  by_panels<T>(m, n, k, aw, bw, c_real, ldc_real, f(false));
}

// C has one row or column, and the matrix comes from beyond a second cache: memory delivers most to gemv. No letter of
// it conjugates the vector, or a matrix that is not transposed.
template <class T>
TEV_INLINE bool is_far_vector(char transa, char transb, int64_t m, int64_t n, int64_t k) {
  const bool conj_a = kParts<T> == 2 && (transa & ~0x20) == 'C', conj_b = kParts<T> == 2 && (transb & ~0x20) == 'C';
  return m * n * k * int64_t{sizeof(T)} > kHalfSecondCache && !conj_b && (n == 1 || (m == 1 && !conj_a));
}

template <class T>
__attribute__((noinline)) void far_vector(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha,
                                          const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  const bool plain_a = (transa & ~0x20) == 'N', plain_b = (transb & ~0x20) == 'N';
  if (n == 1)
    matrix_times_vector<T>(transa, plain_a ? m : k, plain_a ? k : m, alpha, a, lda, b, plain_b ? 1 : ldb, beta, c, 1);
  else  // C^T = op(B)^T op(A)^T
    matrix_times_vector<T>(plain_b ? 'T' : 'N', plain_b ? k : n, plain_b ? n : k, alpha, b, ldb, a, plain_a ? lda : 1,
                           beta, c, ldc);
}

// Rows of C (columns, where both operands are transposed) beyond whole registers, if they fill a quarter of one at
// most. They would cost as much as a whole one, so they are a product of their own: by sums along k, or, where columns
// of op(B) lie along them, with those in registers. B is read twice then: from near. What is smaller takes no longer
// than the call.
inline constexpr int64_t kLeastBesideRows = 16;

template <class T>
TEV_INLINE int64_t left_over(bool na, bool nb, int64_t m, int64_t n, int64_t k) {
  constexpr int kLanes = kLanesOf<real_of<T>>;
  constexpr int64_t kVector = kLanes / kParts<T>;
  if (!kHasFma || kLanes < 8) return 0;
  const bool by_columns = !na && !nb, by_dots = !na || nb;
  const int64_t rows = by_columns ? n : m, columns = by_columns ? m : n, left = rows % kVector;
  const bool pays = by_dots ? columns >= kManyPackedDots && k >= kDeepDots && (na == nb || m > kFewDots)
                            : columns >= kLeastBesideRows && k >= kLeastBesideRows && !is_swapped<T>(m, n, k);
  const bool is_near = columns * k * int64_t{sizeof(T)} <= kHalfSecondCache;
  return rows > kVector && 4 * left <= kVector && pays && is_near ? left : 0;
}

// All is decided before a panel is put on the stack: what is called may have one of its own.
template <class T>
TEV_INLINE void gemm_unpacked(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a,
                              int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  if (k < 1 || is_zero(alpha)) return scale_c<T>(m, n, beta, c, ldc);
  if ((m == 1 || n == 1) && is_far_vector<T>(transa, transb, m, n, k))
    return far_vector<T>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  if constexpr (kParts<T> == 1)
    if (is_written_by_columns<T>(transa, m, n, k))
      return by_shallow_columns<T>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  const bool na = (transa & ~0x20) == 'N', nb = (transb & ~0x20) == 'N';
  const int64_t left = left_over<T>(na, nb, m, n, k);
  if (left == 0) return unpacked_matrix<T>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  const int64_t i = na || nb ? m - left : 0, j = na || nb ? 0 : n - left;  // where that begins
  unpacked_matrix<T>(transa, transb, i > 0 ? i : m, j > 0 ? j : n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  unpacked_matrix<T>(transa, transb, m - i, n - j, k, alpha, a + (na ? i : i * lda), lda, b + (nb ? j * ldb : j), ldb,
                     beta, c + i + j * ldc, ldc);
}

// The product with a transposed A and few columns, by sums along k whatever its depth.
template <class T>
void gemm_columns_by_dots(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                          const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  if (k < 1 || is_zero(alpha)) return scale_c<T>(m, n, beta, c, ldc);
  const char ta = static_cast<char>(transa & ~0x20), tb = static_cast<char>(transb & ~0x20);
  const auto aw = walk_of(a, true, lda), bw = walk_of(b, tb != 'N', ldb);
  const auto f = finish_of<T>(alpha, beta, ta == 'C', tb == 'C');
  if (tb == 'N')
    by_dots_in_place<T>(m, n, k, aw, bw, reals(c), ldc * kParts<T>, f);
  else
    by_packed_dots<T>(false, m, n, k, aw, bw, reals(c), ldc * kParts<T>, f);
}

template <class T>
TEV_INLINE int32_t unpacked_driver(const kernels::operation<T>* op, const kernels::operand* a,
                                   const kernels::operand* b, const kernels::operand* c) {
  const auto letter = [](int32_t code) TEV_LAMBDA {
    return code == kernels::kNoTrans ? 'N' : code == kernels::kConjTrans ? 'C' : 'T';
  };
  gemm_unpacked<T>(letter(op->op_a), letter(op->op_b), c->rows, c->columns, a->columns, op->alpha,
                   static_cast<const T*>(a->data), a->ld, static_cast<const T*>(b->data), b->ld, op->beta,
                   static_cast<T*>(c->data), c->ld);
  return 0;
}

}  // namespace tev::TEV_TIER
