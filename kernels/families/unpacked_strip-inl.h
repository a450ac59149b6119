// SPDX-License-Identifier: BSD-3-Clause
// A strip of C's rows from operands that stay where they are: tiles of all its columns, of the kind that suits its
// height.
#pragma once

#include "kernels/families/folded_tile-inl.h"
#include "kernels/families/unpacked_tile-inl.h"

namespace tev::TEV_TIER {

// What the registers of a strip hold: rows; or the last one rows in its lower half only; or two or four columns of A.
enum class fill { rows, half_rows, two_columns, four_columns };

// Two columns of A save the loads of a few columns of B, four those of all.
inline constexpr int kFewFolded = 4;

// NC columns of the strip, NC up to kMost.
template <class T, bool kTransposed, int W, int MV, int kMost, fill Fill, class R>
TEV_INLINE void columns(const block<R>& x, int64_t count, const R* b, R* c, const finish<R>& f) {
  if constexpr (kMost > 0) {
    if (count != kMost) return columns<T, kTransposed, W, MV, kMost - 1, Fill>(x, count, b, c, f);
    if constexpr (Fill == fill::rows || Fill == fill::half_rows)
      compute_tile<T, kTransposed, W, MV, kMost, reading::ahead, Fill == fill::half_rows>(x, b, c, f);
    else
      folded_tile<T, kTransposed, W, Fill == fill::two_columns ? 2 : 4, kMost>(x, b, c, f);
  }
}

// Fetches what is `b_ahead` beyond the next `count` columns of B, a line of each as it lies.
template <class T, class R>
TEV_INLINE void fetch_b(const block<R>& x, int64_t count, const R* b) {
  constexpr int kLine = kLineBytes / static_cast<int>(sizeof(R));
  if (x.b_step != kParts<T>) {
    for (int64_t p = 0; p < x.k; ++p) __builtin_prefetch(b + x.b_ahead + p * x.b_step, 0, kIntoSecondCache);
    return;
  }
  for (int64_t j = 0; j < count; ++j)
    for (int64_t p = 0; p < x.k * kParts<T>; p += kLine)
      __builtin_prefetch(b + x.b_ahead + j * x.b_column + p, 0, kIntoSecondCache);
}

// One strip of at most MV vectors of rows, all columns. What is left after full tiles is split evenly: narrow tiles
// have too few sums to hide the latency of an addition.
template <class T, bool kTransposed, int W, int MV, fill Fill = fill::rows, class R>
__attribute__((noinline)) void strip(const block<R>& x, const finish<R>& f) {
  constexpr int NC = Fill == fill::two_columns ? kFewFolded : kColumnsBeside<MV> / kParts<T>;
  const R* b = x.b;
  R* c = x.c;
  const int64_t c_column = kTransposed ? kParts<T> : x.ldc;
  for (int64_t left = x.n, count = 0; left > 0; left -= count, b += count * x.b_column, c += count * c_column) {
    count = left >= 2 * NC || left == NC ? NC : left > NC ? (left + 1) / 2 : left;
    if (x.b_ahead != 0) fetch_b<T>(x, count, b);
    columns<T, kTransposed, W, MV, NC, Fill>(x, count, b, c, f);
  }
}

// The same beside more memory; columns that are left over come like any others.
template <class T, bool kTransposed, int W, int MV, reading Reading, class R>
__attribute__((noinline)) void strip_beside(const block<R>& x, const finish<R>& f) {
  constexpr int NC = (Reading == reading::streamed ? kStreamedColumns<MV> : kColumnsBeside<MV>) / kParts<T>;
  block<R> rest = x;
  for (; rest.n >= NC; rest.n -= NC, rest.b += NC * x.b_column, rest.c += NC * (kTransposed ? kParts<T> : x.ldc))
    compute_tile<T, kTransposed, W, MV, NC, Reading>(x, rest.b, rest.c, f);
  if (rest.n > 0) strip<T, kTransposed, W, MV>(rest, f);
}

// Loads under a mask cross lines as whole registers do: from this depth on a half or quarter register costs less, and
// several columns of A in a register repay their sums at the end.
inline constexpr int64_t kDeepForHalves = 64;

// A strip of 1 to MV W rows.
template <class T, bool kTransposed, int W, int MV, reading Reading = reading::ahead, class R>
TEV_INLINE void strip_of_any_height(const block<R>& x, const finish<R>& f) {
  if constexpr (kMaskedEdges && W == kLanesOf<R> && kParts<T> == 1 && Reading == reading::ahead) {
    if (x.b_step == 1 && x.k >= kDeepForHalves && !x.in_order) {
      if (x.rows == W / 4) return strip<T, kTransposed, W, 1, fill::four_columns>(x, f);
      if (x.rows == W / 2 && x.n <= kFewFolded) return strip<T, kTransposed, W, 1, fill::two_columns>(x, f);
    }
  }
  if constexpr (kMaskedEdges && W == kLanesOf<R>) {
    if ((x.rows == W / 2 || x.rows == W / 4) && x.k >= kDeepForHalves)
      return strip_of_any_height<T, kTransposed, W / 2, 1, Reading>(x, f);
  } else if constexpr (W > kParts<T>) {
    if (x.rows < W) return strip_of_any_height<T, kTransposed, W / 2, 2, Reading>(x, f);
  }
  if constexpr (MV > 1) {
    if (x.rows <= (MV - 1) * W) return strip_of_any_height<T, kTransposed, W, MV - 1, Reading>(x, f);
  }
  if constexpr (kHalvesEdges && W == kLanesOf<R> && 1 < MV && MV <= kMostStripVectors && Reading != reading::streamed) {
    if (x.rows <= MV * W - W / 2 && tev_serv_cpuhalves512()) return strip<T, kTransposed, W, MV, fill::half_rows>(x, f);
  }
  if constexpr (Reading == reading::ahead)
    strip<T, kTransposed, W, MV>(x, f);
  else
    strip_beside<T, kTransposed, W, MV, Reading>(x, f);
}

// Rows of the next strip, of at most V vectors. A strip after another one is never shorter than a vector, so that its
// last vector can overlap within the strip. Of strips of four vectors there are as many as leave none of one or two,
// but for five vectors.
template <class R, int V = kTileVectors>
TEV_INLINE int64_t next_strip(int64_t rows_left) {
  constexpr int W = kLanesOf<R>, kFull = V * W;
  if (rows_left <= kFull) return rows_left;
  if constexpr (V == kMostStripVectors && V > kTileVectors) {
    const int64_t vectors = (rows_left + W - 1) / W;
    return vectors % 3 == 0 || vectors == 5 ? 3 * W : kFull;
  }
  return V > 1 && rows_left <= kFull + W ? kFull - W : kFull;
}

}  // namespace tev::TEV_TIER
