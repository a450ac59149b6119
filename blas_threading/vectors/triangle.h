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

// How often an element is used: multiplied with one vector; multiplied with two, or read and written.
enum class used { once, twice };

template <class T>
int64_t elements_of(const triangle<T>& a) {
  return a.kind == storage::band ? a.n * (a.k + 1) : a.n * (a.n + 1) / 2;
}

// Threads for work that uses all elements of the triangle. Used twice, half as many are worth a team.
template <class T>
int64_t triangle_threads(const triangle<T>& a, used times) {
  const int64_t elements = elements_of(a);
  const int64_t chunk = kMatrixChunk<T> / (times == used::once ? 1 : 2);
  if (elements < 2 * chunk) return 1;
  return std::min({available_threads(kElementWork * static_cast<double>(elements)), a.n, elements / chunk});
}

// Lines of about equal numbers of elements, eight at a time. The last lines are the longest, or the first; in a band
// all are equal.
template <class T>
span share_of_triangle(const triangle<T>& a, bool last_is_longest, int64_t thread, int64_t team) {
  constexpr int64_t kTogether = 8;
  if (a.kind == storage::band) return part_of(thread, team, a.n, kTogether);
  const int64_t groups = ceil_div(a.n, kTogether);
  int64_t count = 0;
  const int64_t first = tev_serv_divbythreadstr(&thread, &team, &groups, last_is_longest ? "U" : "L", &count);
  return {std::min(first * kTogether, a.n), std::min((first + count) * kTogether, a.n)};
}

template <class T>
span share_of_columns(const triangle<T>& a, int64_t thread, int64_t team) {
  return share_of_triangle(a, a.upper, thread, team);
}

}  // namespace tev::blas
