// SPDX-License-Identifier: BSD-3-Clause
// A sweep over a matrix: plane rotations of lines 0 and 1, then 1 and 2 ..., forward, or backward from the last two
// lines on. What a rotation leaves of the line that the next one takes as well stays in registers, so every element is
// read and written once for the whole sweep:
//
//      forward, lines x0 x1 ..     carried = x0
//                                  x0 := c0 carried + s0 x1      carried := c0 x1 - s0 carried
//                                  x1 := c1 carried + s1 x2      carried := c1 x2 - s1 carried ...
//      backward                    the same from the other end, with -s
//
// A rotation with c = 1 and s = 0 is none: lines that are not finite do not meet in it.
#pragma once

#include "kernels/families/in_place-inl.h"

namespace tev::TEV_TIER {

// n lines, of which the sweep takes the first one first; c and s of its rotations, `turn` elements apart.
template <class R>
struct sweep_order {
  int64_t n, turn;
  const R *c, *s;
  R sign;  // of s
};

template <class R>
TEV_INLINE sweep_order<R> order_of(bool forward, int64_t n, const R* c, const R* s) {
  if (forward) return {n, 1, c, s, R(1)};
  return {n, -1, c + (n - 2), s + (n - 2), R(-1)};
}

// The sweep's rotation k of `carried` and the next line; the return value is final.
template <class R, class V>
TEV_INLINE V rotate_next(const sweep_order<R>& order, int64_t k, V& carried, V next) {
  constexpr int W = sizeof(V) / sizeof(R);
  const R c = order.c[k * order.turn], s = order.s[k * order.turn] * order.sign;
  V done = carried;
  if (c == 1 && s == 0) {
    carried = next;
  } else {
    done = fma(splat<W>(s), next, splat<W>(c) * carried);
    carried = fma(splat<W>(c), next, splat<W>(-s) * carried);
  }
  return done;
}

// ---- Lines are columns ---------------------------------------------------------------------------------------------

// One part of every column, `step` numbers apart.
template <class Part, class R>
TEV_INLINE void sweep_strip(const sweep_order<R>& order, const Part& part, R* line, int64_t step) {
  auto carried = part.load(line);
  for (int64_t k = 0; k + 1 < order.n; ++k, line += step)
    part.store(rotate_next(order, k, carried, part.load(line + step)), line);
  part.store(carried, line);
}

// m numbers in each of n columns.
template <class R>
TEV_INLINE void sweep_columns(bool forward, int64_t m, int64_t n, const R* c, const R* s, R* a, int64_t lda) {
  constexpr int L = kLanes<R>, kStrip = kVectorRegisters / 4 * L;
  const auto order = order_of(forward, n, c, s);
  R* const first = forward ? a : a + (n - 1) * lda;
  const int64_t step = forward ? lda : -lda;
  int64_t i = 0;
  for (; i + kStrip <= m; i += kStrip) sweep_strip(order, whole_part<kStrip>{}, first + i, step);
  for (; i + L <= m; i += L) sweep_strip(order, whole_part<L>{}, first + i, step);
  if (i < m) sweep_strip(order, first_part<L>{m - i}, first + i, step);
}

// ---- Lines are rows ------------------------------------------------------------------------------------------------

// As many columns as a register holds elements, G. Their next G rows are turned into registers of one row each, and
// what is final of the rows, which are those one before, back again.
template <class T>
struct column_group {
  using R = real_of<T>;
  static constexpr int L = kLanes<R>, G = L / kParts<T>;
  T* column[G];

  // `count` rows from row i on, G or 1.
  TEV_INLINE void load_rows(int64_t i, int64_t count, vec<R, L> (&rows)[G]) const {
    TEV_UNROLL
    for (int g = 0; g < G; ++g)
      rows[g] = count == G ? load<L>(reals(column[g] + i)) : load_first<L>(reals(column[g] + i), count * kParts<T>);
    transpose<L, kParts<T>>(rows);
  }
  TEV_INLINE void store_rows(vec<R, L> (&rows)[G], int64_t i, int64_t count) const {
    transpose<L, kParts<T>>(rows);
    TEV_UNROLL
    for (int g = 0; g < G; ++g)
      if (count == G)
        store<L>(rows[g], reals(column[g] + i));
      else
        store_first<L>(rows[g], reals(column[g] + i), count * kParts<T>);
  }
};

// Rotations k .. k + count - 1; count is G or 1.
template <bool kForward, int kCount, class T>
TEV_INLINE void sweep_rows_of_group(const sweep_order<real_of<T>>& order, const column_group<T>& group, int64_t k,
                                    vec<real_of<T>, column_group<T>::L>& carried) {
  vec<real_of<T>, column_group<T>::L> rows[column_group<T>::G];
  const int64_t next = kForward ? k + 1 : order.n - 1 - k - kCount;
  group.load_rows(next, kCount, rows);
  TEV_UNROLL
  for (int g = 0; g < kCount; ++g) {
    auto& row = rows[kForward ? g : kCount - 1 - g];
    row = rotate_next(order, k + g, carried, row);
  }
  group.store_rows(rows, kForward ? next - 1 : next + 1, kCount);
}

template <bool kForward, class T>
TEV_INLINE void sweep_group(const sweep_order<real_of<T>>& order, const column_group<T>& group) {
  constexpr int G = column_group<T>::G;
  vec<real_of<T>, column_group<T>::L> rows[G];
  group.load_rows(kForward ? 0 : order.n - 1, 1, rows);
  auto carried = rows[0];
  int64_t k = 0;
  for (; k + G < order.n; k += G) sweep_rows_of_group<kForward, G>(order, group, k, carried);
  for (; k + 1 < order.n; ++k) sweep_rows_of_group<kForward, 1>(order, group, k, carried);
  rows[0] = carried;
  group.store_rows(rows, kForward ? order.n - 1 : 0, 1);
}

// m rows of n columns. Places in the last group that have no column hold the last one again: it is computed several
// times, each from what was there before.
template <class T>
TEV_INLINE void sweep_rows(bool forward, int64_t m, int64_t n, const real_of<T>* c, const real_of<T>* s, T* a,
                           int64_t lda) {
  constexpr int G = column_group<T>::G;
  const auto order = order_of(forward, m, c, s);
  for (int64_t j = 0; j < n; j += G) {
    column_group<T> group;
    TEV_UNROLL
    for (int g = 0; g < G; ++g) group.column[g] = a + (j + g < n ? j + g : n - 1) * lda;
    forward ? sweep_group<true>(order, group) : sweep_group<false>(order, group);
  }
}

}  // namespace tev::TEV_TIER
