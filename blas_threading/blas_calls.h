// SPDX-License-Identifier: BSD-3-Clause
// The public routines by element type, so that one text serves the four precisions: blas_calls<double>::gemm is
// tev_blas_dgemm.
#pragma once

#include "tev/blas.h"

namespace tev::blas {

template <class T>
struct blas_calls;

// geru, gerc: the names of the rank-1 updates, which the real types have only one of.
#define TEV_BLAS_CALLS(T, p, geru_name, gerc_name)        \
  template <>                                             \
  struct blas_calls<T> {                                  \
    static constexpr auto scal = tev_blas_##p##scal;      \
    static constexpr auto axpy = tev_blas_##p##axpy;      \
    static constexpr auto gemv = tev_blas_##p##gemv;      \
    static constexpr auto geru = tev_blas_##p##geru_name; \
    static constexpr auto gerc = tev_blas_##p##gerc_name; \
    static constexpr auto gemm = tev_blas_##p##gemm;      \
    static constexpr auto trmm = tev_blas_##p##trmm;      \
    static constexpr auto trsm = tev_blas_##p##trsm;      \
  };
TEV_BLAS_CALLS(float, s, ger, ger)
TEV_BLAS_CALLS(double, d, ger, ger)
TEV_BLAS_CALLS(tev_complex8, c, geru, gerc)
TEV_BLAS_CALLS(tev_complex16, z, geru, gerc)
#undef TEV_BLAS_CALLS

}  // namespace tev::blas
