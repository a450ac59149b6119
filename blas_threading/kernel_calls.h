// SPDX-License-Identifier: BSD-3-Clause
// The dispatch entries by element type, so that one text serves the four precisions: kernel_calls<double>::xgemm is
// tev_blas_xdgemm. The members are constants: a call through one is a direct call.
#pragma once

#include "kernels/dispatch/dispatch.h"

namespace tev::blas {

template <class T>
struct kernel_calls;

// geru, gerc: the names of the rank-1 updates, which the real types have only one of. The Hermitian operations are
// those of the complex types.
#define TEV_KERNEL_CALLS(T, p, geru, gerc, more)                                              \
  template <>                                                                                 \
  struct kernel_calls<T> {                                                                    \
    static constexpr auto xaxpy = tev_blas_x##p##axpy;                                        \
    static constexpr auto xcopy = tev_blas_x##p##copy;                                        \
    static constexpr auto xscal = tev_blas_x##p##scal;                                        \
    static constexpr auto xgemv = tev_blas_x##p##gemv;                                        \
    static constexpr auto xgeru = tev_blas_x##p##geru;                                        \
    static constexpr auto xgerc = tev_blas_x##p##gerc;                                        \
    static constexpr auto xgemmger = tev_blas_x##p##gemmger;                                  \
    static constexpr auto xgemm = tev_blas_x##p##gemm;                                        \
    static constexpr auto xsymm = tev_blas_x##p##symm;                                        \
    static constexpr auto xsyrk = tev_blas_x##p##syrk;                                        \
    static constexpr auto xsyr2k = tev_blas_x##p##syr2k;                                      \
    static constexpr auto xtrmm = tev_blas_x##p##trmm;                                        \
    static constexpr auto xtrsm = tev_blas_x##p##trsm;                                        \
    static constexpr auto xgemm_par = tev_blas_x##p##gemm_par;                                \
    static constexpr auto xgemm_internal_team = tev_blas_x##p##gemm_internal_team;            \
    static constexpr auto mscale = tev_blas_##p##gemm_mscale;                                 \
    static constexpr auto map_thread_to_kernel = tev_blas_##p##gemm_map_thread_to_kernel;     \
    static constexpr auto initialize_kernel_info = tev_blas_##p##gemm_initialize_kernel_info; \
    static constexpr auto initialize_buffers = tev_blas_##p##gemm_initialize_buffers;         \
    more                                                                                      \
  };
#define TEV_HERMITIAN(p)                             \
  static constexpr auto xhemm = tev_blas_x##p##hemm; \
  static constexpr auto xherk = tev_blas_x##p##herk; \
  static constexpr auto xher2k = tev_blas_x##p##her2k;
TEV_KERNEL_CALLS(float, s, ger, ger, )
TEV_KERNEL_CALLS(double, d, ger, ger, )
TEV_KERNEL_CALLS(tev_complex8, c, geru, gerc, TEV_HERMITIAN(c))
TEV_KERNEL_CALLS(tev_complex16, z, geru, gerc, TEV_HERMITIAN(z))
#undef TEV_HERMITIAN
#undef TEV_KERNEL_CALLS

}  // namespace tev::blas
