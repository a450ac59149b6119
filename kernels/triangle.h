// SPDX-License-Identifier: BSD-3-Clause
// One triangle of a square matrix, by columns: where column j starts and which rows it holds. Order 5, upper:
//
//   full             band, k = 2          packed
//   00 01 02 03 04   ..  ..  02 13 24     00 01 11 02 12 22 03 13 23 33 04 14 24 34 44
//    . 11 12 13 14   ..  01  12 23 34
//    .  . 22 23 24   00  11  22 33 44
//    .  .  . 33 34
//    .  .  .  . 44
//
// And the routines of every tier that take such a triangle. Every tier compiles this for itself, hence all of it is
// inlined always.
#pragma once

#include <cstdint>

#define TEV_DESCRIBE inline __attribute__((always_inline))

namespace tev::kernels {

enum class storage : int32_t { full, band, packed };

template <class T>
struct triangle {
  T* data;
  int64_t n, k, ld;  // order; diagonals beside the main one; leading dimension, but not of packed columns
  storage kind;
  bool upper;

  TEV_DESCRIBE T* diagonal(int64_t j) const {
    if (kind == storage::full) return data + j + j * ld;
    if (kind == storage::band) return data + (upper ? k : 0) + j * ld;
    return data + (upper ? j * (j + 3) / 2 : j * n - j * (j - 1) / 2);
  }
  TEV_DESCRIBE T* at(int64_t i, int64_t j) const { return diagonal(j) + (i - j); }

  // The rows of column j but for the diagonal.
  TEV_DESCRIBE int64_t begin_beside(int64_t j) const { return !upper ? j + 1 : j > k ? j - k : 0; }
  TEV_DESCRIBE int64_t end_beside(int64_t j) const { return upper ? j : j + k + 1 < n ? j + k + 1 : n; }
};

// How a triangle meets a vector: by itself, transposed or conjugated (trans in capitals), with a diagonal of ones, as a
// factor or as a divisor.
struct triangular_form {
  char trans;
  bool unit, solves;

  TEV_DESCRIBE bool plain() const { return trans == 'N'; }
  // The columns are taken from the first to the last, so that every element of x is read before it is written (factor)
  // or after (divisor).
  TEV_DESCRIBE bool upwards(bool upper) const { return (upper == plain()) != solves; }
};

// x := op(D) x or op(D)^-1 x, D the block of rows and columns [*begin, *end) of A. *x: element 0 of the whole vector,
// also where the increment is negative.
template <class T>
using triangular_block_fn = void(const triangle<const T>* a, const triangular_form* form, const int64_t* begin,
                                 const int64_t* end, T* x, const int64_t* incx);

// Columns [*begin, *end) of A := alpha x x^H + A or, with y, alpha x y^H + conj(alpha) y x^H + A; a Hermitian diagonal
// becomes real. Vectors as above; y may be null.
template <class T>
using update_columns_fn = void(const triangle<T>* a, const int64_t* begin, const int64_t* end, const T* alpha,
                               const T* x, const int64_t* incx, const T* y, const int64_t* incy);

// y += alpha A x, as far as it comes from columns [*begin, *end) of the triangle of A and their mirror images. A is
// symmetric, in the complex precisions Hermitian. Vectors as above.
template <class T>
using symmetric_by_columns_fn = void(const triangle<const T>* a, const int64_t* begin, const int64_t* end,
                                     const T* alpha, const T* x, const int64_t* incx, T* y, const int64_t* incy);

}  // namespace tev::kernels

#undef TEV_DESCRIBE
