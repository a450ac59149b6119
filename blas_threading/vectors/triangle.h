// SPDX-License-Identifier: BSD-3-Clause
// Triangles as the routines describe them, and how a team shares their columns.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "blas_threading/vectors/level2.h"
#include "kernels/triangle.h"

namespace tev::blas {

using kernels::storage;
using kernels::triangle;

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
  const int64_t elements = a.kind == storage::band ? a.n * (a.k + 1) : a.n * (a.n + 1) / 2;
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
