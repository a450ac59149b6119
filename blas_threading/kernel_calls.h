// SPDX-License-Identifier: BSD-3-Clause
// The dispatch entries by element type, so that one text serves the four precisions: kernel_calls<double>::xgemm is
// tev_blas_xdgemm. The members are constants: a call through one is a direct call.
#pragma once

#include "kernels/dispatch/dispatch.h"

namespace tev::blas {

template <class T>
struct kernel_calls;

// What the real types have by one name is two in the complex ones: with op u and c. The products of Hermitian matrices
// are those of symmetric ones there.
#define TEV_KERNEL_CALLS(T, p, geru, gerc, dotu, dotc, hemv_columns, more)                    \
  template <>                                                                                 \
  struct kernel_calls<T> {                                                                    \
    static constexpr auto xaxpy = tev_blas_x##p##axpy;                                        \
    static constexpr auto xcopy = tev_blas_x##p##copy;                                        \
    static constexpr auto xscal = tev_blas_x##p##scal;                                        \
    static constexpr auto xswap = tev_blas_x##p##swap;                                        \
    static constexpr auto xdotu = tev_blas_x##p##dotu;                                        \
    static constexpr auto xdotc = tev_blas_x##p##dotc;                                        \
    static constexpr auto xiamax = tev_blas_x##p##iamax;                                      \
    static constexpr auto xgemv = tev_blas_x##p##gemv;                                        \
    static constexpr auto xhemv_columns = tev_blas_x##p##hemv_columns;                        \
    static constexpr auto xtriangular_block = tev_blas_x##p##triangular_block;                \
    static constexpr auto xupdate_columns = tev_blas_x##p##update_columns;                    \
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
// Sums and rotations of real numbers; complex ones are pairs of them.
#define TEV_REALS(p)                                 \
  static constexpr auto xasum = tev_blas_x##p##asum; \
  static constexpr auto xrotate = tev_blas_x##p##rotate;
TEV_KERNEL_CALLS(float, s, ger, ger, dot, dot, symv_columns, TEV_REALS(s))
TEV_KERNEL_CALLS(double, d, ger, ger, dot, dot, symv_columns, TEV_REALS(d))
TEV_KERNEL_CALLS(tev_complex8, c, geru, gerc, dotu, dotc, hemv_columns, TEV_HERMITIAN(c))
TEV_KERNEL_CALLS(tev_complex16, z, geru, gerc, dotu, dotc, hemv_columns, TEV_HERMITIAN(z))
#undef TEV_REALS
#undef TEV_HERMITIAN
#undef TEV_KERNEL_CALLS

}  // namespace tev::blas
