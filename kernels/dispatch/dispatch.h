// SPDX-License-Identifier: BSD-3-Clause
// The entry points of dispatch/entry_points.inc and dispatch/further_entry_points.inc with their argument lists. Each
// does what the routine of the same name does on the tier in force.
#pragma once

#include "kernels/band.h"
#include "kernels/records.h"
#include "kernels/routine_types.h"
#include "kernels/sweep.h"
#include "kernels/triangle.h"
#include "kernels/version1.h"
#include "tev/direct_kernels.h"

extern "C" {

// TEV_REAL(axpy_fn, x, axpy) declares tev_blas_xsaxpy and tev_blas_xdaxpy, and so on.
#define TEV_OF(type, element, prefix, letter, name) tev::kernels::type<element> tev_blas_##prefix##letter##name;
#define TEV_REAL(type, prefix, name)   \
  TEV_OF(type, float, prefix, s, name) \
  TEV_OF(type, double, prefix, d, name)
#define TEV_COMPLEX(type, prefix, name)       \
  TEV_OF(type, tev_complex8, prefix, c, name) \
  TEV_OF(type, tev_complex16, prefix, z, name)
#define TEV_ALL(type, prefix, name) TEV_REAL(type, prefix, name) TEV_COMPLEX(type, prefix, name)
#define TEV_ALL_BUT_C(type, prefix, name) TEV_REAL(type, prefix, name) TEV_OF(type, tev_complex16, prefix, z, name)

TEV_ALL(axpy_fn, x, axpy)
TEV_ALL(copy_vector_fn, x, copy)
TEV_ALL(scal_fn, x, scal)
TEV_ALL(swap_fn, x, swap)
TEV_REAL(dot_fn, x, dot)
TEV_COMPLEX(dot_fn, x, dotu)
TEV_COMPLEX(dot_fn, x, dotc)
TEV_ALL(iamax_fn, x, iamax)
TEV_REAL(rotate_fn, x, rotate)
#define TEV_SWEEP(letter, T, R, name) tev::kernels::sweep_fn<T, R> tev_blas_x##letter##name;
TEV_SWEEP(s, float, float, sweep_columns)
TEV_SWEEP(d, double, double, sweep_columns)
TEV_SWEEP(s, float, float, sweep_rows)
TEV_SWEEP(d, double, double, sweep_rows)
TEV_SWEEP(c, tev_complex8, float, sweep_rows)
TEV_SWEEP(z, tev_complex16, double, sweep_rows)
#undef TEV_SWEEP

TEV_ALL(gemv_fn, x, gemv)
TEV_REAL(ger_fn, x, ger)
TEV_COMPLEX(ger_fn, x, gerc)
TEV_COMPLEX(ger_fn, x, geru)
TEV_ALL(gemmger_fn, x, gemmger)
TEV_ALL(gbmv_part_fn, x, gbmv_part)
TEV_REAL(symv_columns_fn, x, symv_columns)
TEV_COMPLEX(symv_columns_fn, x, hemv_columns)
TEV_ALL(symmetric_by_columns_fn, x, symmetric_by_columns)
TEV_ALL(triangular_block_fn, x, triangular_block)
TEV_ALL(update_columns_fn, x, update_columns)

const tev_direct_kernels* tev_blas_direct_kernels();

TEV_ALL(gemm_fn, x, gemm)
TEV_ALL(gemm_team_fn, x, gemm_internal_team)
TEV_ALL(symm_fn, x, symm)
TEV_ALL(syrk_fn, x, syrk)
TEV_ALL(triangular_fn, x, trmm)
TEV_ALL(triangular_fn, x, trsm)
TEV_ALL(syr2k_fn, x, syr2k)
TEV_COMPLEX(symm_fn, x, hemm)
TEV_COMPLEX(herk_fn, x, herk)
TEV_COMPLEX(her2k_fn, x, her2k)

TEV_ALL(gemm_share_fn, x, gemm_par)
TEV_ALL_BUT_C(gemm_fn, x, gemm_bdz)
TEV_ALL_BUT_C(gemm_fn, x, gemm_hi_thr_bdz)
TEV_REAL(gemm_fn, x, gemm0_brc)
TEV_OF(gemm_fn, double, x, d, gemm1_1_brc)

TEV_ALL(mscale_fn, , gemm_mscale)
TEV_ALL(optimal_kernel_fn, , gemm_get_optimal_kernel)
TEV_ALL(initialize_kernel_info_fn, , gemm_initialize_kernel_info)

// The same type in every precision.
#define TEV_PLAIN(type, name) tev::kernels::type tev_blas_##name;
#define TEV_PLAIN_ALL(type, name) \
  TEV_PLAIN(type, s##name) TEV_PLAIN(type, d##name) TEV_PLAIN(type, c##name) TEV_PLAIN(type, z##name)

TEV_PLAIN(dot_in_double_fn, xsdot_in_double)
TEV_PLAIN(number_fn, get_kernel_api_version)  // 1 or 2
TEV_PLAIN_ALL(number_fn, gemm_api_support)    // 0, 1 or 4
TEV_PLAIN_ALL(buffers_size_fn, gemm_get_bufs_size)
TEV_PLAIN_ALL(set_blocks_fn, gemm_set_blks_size)
TEV_PLAIN_ALL(zero_record_fn, gemm_zero_desc)
TEV_PLAIN(block_info_fn, sgemm_blk_info_bdz)
TEV_PLAIN(block_info_fn, dgemm_blk_info_bdz)
TEV_PLAIN(block_info_fn, zgemm_blk_info_bdz)
TEV_PLAIN(block_info_fn, sgemm_blk_info_hi_thr_bdz)
TEV_PLAIN(block_info_fn, dgemm_blk_info_hi_thr_bdz)
TEV_PLAIN(block_info_fn, zgemm_blk_info_hi_thr_bdz)
TEV_PLAIN(block_info_fn, dgemm_blk_info_0_brc)
TEV_PLAIN(block_info_fn, dgemm_blk_info_1_brc)

TEV_PLAIN_ALL(initialize_buffers_fn, gemm_initialize_buffers)
TEV_PLAIN_ALL(map_thread_to_kernel_fn, gemm_map_thread_to_kernel)

#undef TEV_PLAIN_ALL
#undef TEV_PLAIN
#undef TEV_ALL_BUT_C
#undef TEV_ALL
#undef TEV_COMPLEX
#undef TEV_REAL
#undef TEV_OF

}  // extern "C"
