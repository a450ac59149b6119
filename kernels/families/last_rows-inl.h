// SPDX-License-Identifier: BSD-3-Clause
// The last rows of a packed product, fewer than a vector has lanes: C(rows x n) := beta C + A B from narrow strips of A
// and strips of B. Vectors lie along B here, across its strips, and several strips of A go over it at once; what meets
// is what meets in a full tile, in the same order. Five rows of A in strips of 4 and 1:
//
//                     b[0 .. W-1]  b[W .. 2W-1]     one row of B, of as many strips as the vectors take
//   a[0]   broadcast  acc[0][0]    acc[0][1]
//   ...
//   a[3]              acc[3][0]    acc[3][1]
//   a'[0]             acc[4][0]    acc[4][1]        transposed at the end, since C lies down its columns
#pragma once

#include "kernels/families/strips-inl.h"

namespace tev::TEV_TIER {

// The strip that each of a few rows is in: its first row and its height.
template <int kRows>
struct strips_of_rows {
  int first[kRows], height[kRows];

  constexpr strips_of_rows() : first(), height() {
    for (int i = 0; i < kRows; i += height[i]) {
      const int rows = strip_below(kRows - i + 1);
      for (int r = i; r < i + rows; ++r) first[r] = i, height[r] = rows;
    }
  }
};

// W reals of one row of B, from strips of kPitch that are `apart`.
template <int W, int kPitch, class R>
TEV_INLINE vec<R, W> load_across(const R* b, int64_t apart) {
  if constexpr (W <= kPitch)
    return load<W>(b);
  else
    return concatenated<R, W / 2>(load_across<W / 2, kPitch>(b, apart),
                                  load_across<W / 2, kPitch>(b + W / 2 / kPitch * apart, apart), all_lanes<W>{});
}

// kRows rows by `columns`, which kVectors vectors hold. load_row(p, v): vector v of row p of B.
template <class T, int kRows, int kVectors, class Load>
TEV_INLINE void multiply_rows(int64_t columns, int64_t k, const real_of<T>* a, const Load& load_row, const T* beta,
                              beta_class kind, real_of<T>* c, int64_t ldc) {
  using R = real_of<T>;
  constexpr int P = kParts<T>, W = kVectorBytes / static_cast<int>(sizeof(R)), kColumns = W / P;
  constexpr strips_of_rows<kRows> strips;
  vec<R, W> acc[kRows][P][kVectors] = {};
  for (int64_t p = 0; p < k; ++p) {
    vec<R, W> row[kVectors];
    TEV_UNROLL
    for (int v = 0; v < kVectors; ++v) row[v] = load_row(p, v);
    TEV_UNROLL
    for (int i = 0; i < kRows; ++i) {
      const R* const element = a + (strips.first[i] * k + p * strips.height[i] + i - strips.first[i]) * P;
      TEV_UNROLL
      for (int part = 0; part < P; ++part) {
        const auto factor = splat<W>(element[part]);
        TEV_UNROLL
        for (int v = 0; v < kVectors; ++v) acc[i][part][v] = fma(row[v], factor, acc[i][part][v]);
      }
    }
  }
  TEV_UNROLL
  for (int v = 0; v < kVectors; ++v) {
    vec<R, W> column[kColumns] = {};
    TEV_UNROLL
    for (int i = 0; i < kRows; ++i) {
      column[i] = acc[i][0][v];
      if constexpr (P == 2) column[i] += swap_pairs<W, R>(acc[i][1][v]) * alternate<W>(R(-1), R(1));
    }
    transpose<W, P>(column);
    TEV_UNROLL
    for (int j = 0; j < kColumns; ++j, c += ldc) {
      if (v * kColumns + j >= columns) return;
      if (kind == beta_class::one) column[j] += load_first<W>(c, kRows * P);
      if (kind == beta_class::general) column[j] += times<T, W>(*beta, load_first<W>(c, kRows * P));
      store_first<W>(column[j], c, kRows * P);
    }
  }
}

// So many vectors of whole strips side by side as registers are for; 0: the strips do not make whole vectors.
template <class T, int kRows, int NR>
constexpr int vectors_across() {
  constexpr int kMost = 4, kColumns = kVectorBytes / static_cast<int>(sizeof(T));
  int vectors = (kVectorRegisters - 2) / (kRows * kParts<T> + 1);
  if (vectors > kMost) vectors = kMost;
  while (vectors * kColumns % NR != 0) --vectors;
  return vectors;
}

template <class T, int kRows, int NR>
__attribute__((noinline)) void multiply_rows_of_strips(int64_t n, int64_t k, const T* a, const T* b, const T* beta,
                                                       beta_class kind, T* c, int64_t ldc) {
  using R = real_of<T>;
  constexpr int P = kParts<T>, W = kVectorBytes / static_cast<int>(sizeof(R)), kColumns = W / P;
  constexpr int V = vectors_across<T, kRows, NR>();
  int64_t j = 0;
  if constexpr (V > 0)
    for (; j + V * kColumns <= n; j += V * kColumns) {
      const auto row = [strip = reals(b + j * k), apart = NR * P * k](int64_t p, int v) TEV_LAMBDA {
        return load_across<W, NR * P>(strip + p * (NR * P) + v * W / (NR * P) * apart + v * W % (NR * P), apart);
      };
      multiply_rows<T, kRows, V>(V * kColumns, k, reals(a), row, beta, kind, reals(c + j * ldc), ldc * P);
    }
  for (int64_t pitch; j < n; j += pitch) {
    const int64_t left = n - j;
    pitch = left < NR ? int64_t{1} << (63 - __builtin_clzll(left)) : NR;
    for (int64_t first = 0; first < pitch; first += kColumns) {
      const int64_t columns = min_of(pitch - first, kColumns);
      const auto row = [strip = reals(b + j * k + first), pitch, columns](int64_t p, int)
                           TEV_LAMBDA { return load_first<W>(strip + p * pitch * P, columns * P); };
      multiply_rows<T, kRows, 1>(columns, k, reals(a), row, beta, kind, reals(c + (j + first) * ldc), ldc * P);
    }
  }
}

template <class T>
inline constexpr int kRowsAtOnce = min_of(kVectorBytes / static_cast<int>(sizeof(T)) - 1,
                                          (kVectorRegisters > 16 ? 8 : 4) / kParts<T>);

template <class T, int NR, int kRows = kRowsAtOnce<T>>
void multiply_last_rows(int64_t rows, int64_t n, int64_t k, const T* a, const T* b, const T* beta, beta_class kind,
                        T* c, int64_t ldc) {
  if (rows >= kRows) {
    multiply_rows_of_strips<T, kRows, NR>(n, k, a, b, beta, kind, c, ldc);
    a += kRows * k;
    c += kRows;
    rows -= kRows;
  }
  if constexpr (kRows > 1)
    if (rows > 0) multiply_last_rows<T, NR, kRows - 1>(rows, n, k, a, b, beta, kind, c, ldc);
}

}  // namespace tev::TEV_TIER
