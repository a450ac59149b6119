// SPDX-License-Identifier: BSD-3-Clause
// The public routines by element type, so that one text serves the four precisions: blas_calls<double>::gemm is
// tev_blas_dgemm. The members are constants: a call through one is a direct call.
#pragma once

#include "tev/blas.h"

namespace tev::blas {

// The one list of what there is in every precision, also behind kernel_calls: members `start`scal ... of the names
// `p`scal ... What the real types have by one name is two in the complex ones: with op u and c. The products of
// Hermitian matrices are those of symmetric ones there.
#define TEV_CALLS_IN_EVERY_PRECISION(start, p, geru_name, gerc_name, dotu_name, dotc_name) \
  static constexpr auto start##scal = p##scal;                                             \
  static constexpr auto start##copy = p##copy;                                             \
  static constexpr auto start##axpy = p##axpy;                                             \
  static constexpr auto start##swap = p##swap;                                             \
  static constexpr auto start##dotu = p##dotu_name;                                        \
  static constexpr auto start##dotc = p##dotc_name;                                        \
  static constexpr auto start##gemv = p##gemv;                                             \
  static constexpr auto start##geru = p##geru_name;                                        \
  static constexpr auto start##gerc = p##gerc_name;                                        \
  static constexpr auto start##gemmger = p##gemmger;                                       \
  static constexpr auto start##gemm = p##gemm;                                             \
  static constexpr auto start##symm = p##symm;                                             \
  static constexpr auto start##syrk = p##syrk;                                             \
  static constexpr auto start##syr2k = p##syr2k;                                           \
  static constexpr auto start##trmm = p##trmm;                                             \
  static constexpr auto start##trsm = p##trsm;
#define TEV_HERMITIAN_CALLS(start, p)          \
  static constexpr auto start##hemm = p##hemm; \
  static constexpr auto start##herk = p##herk; \
  static constexpr auto start##her2k = p##her2k;

template <class T>
struct blas_calls;
template <>
struct blas_calls<float> {
  TEV_CALLS_IN_EVERY_PRECISION(, tev_blas_s, ger, ger, dot, dot)
};
template <>
struct blas_calls<double> {
  TEV_CALLS_IN_EVERY_PRECISION(, tev_blas_d, ger, ger, dot, dot)
};
template <>
struct blas_calls<tev_complex8> {
  TEV_CALLS_IN_EVERY_PRECISION(, tev_blas_c, geru, gerc, dotu, dotc)
  TEV_HERMITIAN_CALLS(, tev_blas_c)
};
template <>
struct blas_calls<tev_complex16> {
  TEV_CALLS_IN_EVERY_PRECISION(, tev_blas_z, geru, gerc, dotu, dotc)
  TEV_HERMITIAN_CALLS(, tev_blas_z)
};

}  // namespace tev::blas
