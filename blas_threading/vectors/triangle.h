// SPDX-License-Identifier: BSD-3-Clause
// One triangle of a square matrix, by columns: where column j starts and which rows it holds. Order 5, upper:
//
//   full             band, k = 2          packed
//   00 01 02 03 04   ..  ..  02 13 24     00 01 11 02 12 22 03 13 23 33 04 14 24 34 44
//    . 11 12 13 14   ..  01  12 23 34
//    .  . 22 23 24   00  11  22 33 44
//    .  .  . 33 34
//    .  .  .  . 44
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "blas_threading/vectors/level2.h"

namespace tev::blas {

enum class storage { full, band, packed };

template <class T>
struct triangle {
  T* data;
  int64_t n, k, ld;  // order; diagonals beside the main one; leading dimension, but not of packed columns
  storage kind;
  bool upper;

  T* diagonal(int64_t j) const {
    switch (kind) {
      case storage::full:
        return data + j + j * ld;
      case storage::band:
        return data + (upper ? k : 0) + j * ld;
      case storage::packed:
        break;
    }
    return data + (upper ? j * (j + 3) / 2 : j * n - j * (j - 1) / 2);
  }
  T* at(int64_t i, int64_t j) const { return diagonal(j) + (i - j); }

  // Rows of column j, without the diagonal.
  span beside(int64_t j) const {
    return upper ? span{std::max(j - k, int64_t{0}), j} : span{j + 1, std::min(n, j + k + 1)};
  }
  // With it.
  span rows(int64_t j) const { return upper ? span{beside(j).begin, j + 1} : span{j, beside(j).end}; }

  int64_t elements() const { return kind == storage::band ? n * (k + 1) : n * (n + 1) / 2; }
};

template <class T>
triangle<T> full_triangle(char uplo, int64_t n, T* a, int64_t lda) {
  return {a, n, n, lda, storage::full, kernels::uplo_code(uplo) == 0};
}
template <class T>
triangle<T> band_triangle(char uplo, int64_t n, int64_t k, T* a, int64_t lda) {
  return {a, n, k, lda, storage::band, kernels::uplo_code(uplo) == 0};
}
template <class T>
triangle<T> packed_triangle(char uplo, int64_t n, T* ap) {
  return {ap, n, n, 0, storage::packed, kernels::uplo_code(uplo) == 0};
}

// Elements of the triangle for each thread of a team.
inline constexpr int64_t kTriangleChunk = 32768;

// Threads for work that uses each element of the triangle once.
template <class T>
int64_t triangle_threads(const triangle<T>& a) {
  const int64_t elements = a.elements();
  if (elements < 2 * kTriangleChunk) return 1;
  return std::min({available_threads(kElementWork * static_cast<double>(elements)), a.n, elements / kTriangleChunk});
}

// Columns of about equal numbers of elements, eight at a time.
template <class T>
span share_of_columns(const triangle<T>& a, int64_t thread, int64_t team) {
  constexpr int64_t kTogether = 8;
  if (a.kind == storage::band) {
    const piece columns = piece_of(a.n, thread, team);
    return {columns.start, columns.start + columns.size};
  }
  const int64_t groups = ceil_div(a.n, kTogether);
  int64_t count = 0;
  const int64_t first = tev_serv_divbythreadstr(&thread, &team, &groups, a.upper ? "U" : "L", &count);
  return {std::min(first * kTogether, a.n), std::min((first + count) * kTogether, a.n)};
}

}  // namespace tev::blas
