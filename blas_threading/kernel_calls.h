// SPDX-License-Identifier: BSD-3-Clause
// The dispatch entries by element type, as blas_calls has the public routines: kernel_calls<double>::xgemm is
// tev_blas_xdgemm.
#pragma once

#include "blas_threading/blas_calls.h"
#include "kernels/dispatch/dispatch.h"

namespace tev::blas {

template <class T>
struct kernel_calls;

#define TEV_KERNEL_CALLS(T, p, geru, gerc, dotu, dotc, hemv_columns, more)                        \
  template <>                                                                                     \
  struct kernel_calls<T> {                                                                        \
    TEV_CALLS_IN_EVERY_PRECISION(x, tev_blas_x##p, geru, gerc, dotu, dotc)                        \
    static constexpr auto xiamax = tev_blas_x##p##iamax;                                          \
    static constexpr auto xhemv_columns = tev_blas_x##p##hemv_columns; /* real: of a symmetric */ \
    static constexpr auto xsymmetric_by_columns = tev_blas_x##p##symmetric_by_columns;            \
    static constexpr auto xgbmv_part = tev_blas_x##p##gbmv_part;                                  \
    static constexpr auto xtriangular_block = tev_blas_x##p##triangular_block;                    \
    static constexpr auto xupdate_columns = tev_blas_x##p##update_columns;                        \
    static constexpr auto xsweep_rows = tev_blas_x##p##sweep_rows;                                \
    static constexpr auto xgemm_par = tev_blas_x##p##gemm_par;                                    \
    static constexpr auto xgemm_internal_team = tev_blas_x##p##gemm_internal_team;                \
    static constexpr auto mscale = tev_blas_##p##gemm_mscale;                                     \
    static constexpr auto map_thread_to_kernel = tev_blas_##p##gemm_map_thread_to_kernel;         \
    static constexpr auto initialize_kernel_info = tev_blas_##p##gemm_initialize_kernel_info;     \
    static constexpr auto initialize_buffers = tev_blas_##p##gemm_initialize_buffers;             \
    more                                                                                          \
  };
// Rotations, of real vectors alone.
#define TEV_REALS(p)                                     \
  static constexpr auto xrotate = tev_blas_x##p##rotate; \
  static constexpr auto xsweep_columns = tev_blas_x##p##sweep_columns;
TEV_KERNEL_CALLS(float, s, ger, ger, dot, dot, symv_columns, TEV_REALS(s))
TEV_KERNEL_CALLS(double, d, ger, ger, dot, dot, symv_columns, TEV_REALS(d))
TEV_KERNEL_CALLS(tev_complex8, c, geru, gerc, dotu, dotc, hemv_columns, TEV_HERMITIAN_CALLS(x, tev_blas_xc))
TEV_KERNEL_CALLS(tev_complex16, z, geru, gerc, dotu, dotc, hemv_columns, TEV_HERMITIAN_CALLS(x, tev_blas_xz))
#undef TEV_REALS
#undef TEV_KERNEL_CALLS

}  // namespace tev::blas
