// SPDX-License-Identifier: BSD-3-Clause
// How a product sees its operands: functions of (row, column) that hide transposition, conjugation and symmetry.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"
#include "service/scalar.h"

namespace tev::blas {

inline bool is_letter(const char* option, char letter) { return tev_serv_lsame(option, &letter) != 0; }

// op(A): a general matrix as the letter N, T or C asks; any other letter counts as N.
template <class T>
struct general {
  const T* at;
  int64_t row_step, column_step;  // elements between neighbours of a column, of a row of op(A)
  bool conjugated;

  T operator()(int64_t i, int64_t j) const {
    const T x = at[i * row_step + j * column_step];
    return conjugated ? conjugate(x) : x;
  }
};

template <class T>
general<T> op(const char* trans, const T* a, int64_t lda) {
  const bool conjugated = is_letter(trans, 'C');
  if (conjugated || is_letter(trans, 'T')) return {a, lda, 1, conjugated};
  return {a, 1, lda, false};
}

template <class T>
general<T> plain(const T* a, int64_t lda) {
  return {a, 1, lda, false};
}

// A symmetric matrix of which one triangle is stored.
template <class T>
struct symmetric {
  const T* at;
  int64_t lda;
  bool upper;

  T operator()(int64_t i, int64_t j) const {
    const bool stored = upper == (i < j) || i == j;
    return stored ? at[i + j * lda] : at[j + i * lda];
  }
};

}  // namespace tev::blas
