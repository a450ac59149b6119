// SPDX-License-Identifier: BSD-3-Clause
// Products over a team on the tiers with the version-1 kernels. Either the threads pack together
// (gemm/version1_shared.h), or each computes a block of C by itself, with all of k. For the latter C is cut into groups
// of columns and each group into rows; a group is as wide as it has threads, so that no thread is left over when the
// team has no good factors:
//
//                         |   0   |  3  |
//   5 threads, 2 groups   |-------|     |     widths 3 : 2
//                         |   1   |-----|
//                         |-------|     |
//                         |   2   |  4  |
//
// Blocks are whole register tiles but for the last ones, and depend on the sizes and the team alone: never on
// addresses.
#pragma once

#include <cstdint>

#include "blas_threading/gemm/driver.h"
#include "blas_threading/gemm/partition.h"
#include "blas_threading/operands.h"
#include "tev/types.h"

namespace tev::blas {

struct version1_grid {
  int64_t threads, groups;  // groups is 1 (rows alone) .. threads (columns alone)
};

// A cache line of C, and the height of the widest tile of these tiers; columns of the widest tile.
template <class T>
inline constexpr int64_t kVersion1Rows = 64 / static_cast<int64_t>(sizeof(T));
inline constexpr int64_t kVersion1Columns = 4;

// Multiply-adds in the time that packing one element takes: 2 to 5 in double precision, by tier and depth.
inline constexpr double kPackingWork = 4;

// Where part `i` of `parts` begins, in whole tiles. Unlike a division that gives the rest to the first parts, any run
// of s parts is as long as any other, up to one tile.
int64_t tile_edge(int64_t extent, int64_t tile, int64_t i, int64_t parts);

// The grid whose slowest thread is done first, for at least one thread. Uses fewer than `threads` when C has fewer
// tiles. m and n are at least 1.
version1_grid best_version1_grid(int64_t m, int64_t n, int64_t threads, int64_t tile_rows);

// The blocks of threads 0 .. grid.threads - 1 cover C and do not overlap; some may be empty.
block version1_block(const version1_grid& grid, int64_t thread, int64_t m, int64_t n, int64_t tile_rows);

// Whether a team of so many threads is done sooner when it packs together. m, n and k are at least 1, as below.
template <class T>
bool sharing_pays(const operation<T>& p, int64_t threads);

// Each thread by itself on the best grid, and all together.
template <class T>
void compute_blocks(const operation<T>& p, int64_t threads);
template <class T>
void compute_shared_blocks(const operation<T>& p, int64_t threads);

// A product with the number of threads given.
template <class T>
using gemm_by_threads_fn = void(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                                const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b,
                                const int64_t* ldb, const T* beta, T* c, const int64_t* ldc, const int64_t* threads);

}  // namespace tev::blas

extern "C" {

// The driver, which decides how many threads the product is worth and what they share; and the strategies once the
// number is given; m, n and k are at least 1 then. Where a strategy cannot be had (a team smaller than *threads, no
// memory, a tier without its kernels) every thread computes its block of the best grid. The driver decides between
// 2d_improved_bsrc and 2d_abcopy_abx_m_km_par_p; 1d_row, 1d_col, 1d_with_copy_0 and 2d_acopy_n are what these are on a
// grid of one row or one column.
//
//                              C is cut into            packed
//   1d_row, 1d_col             rows, columns            by every thread for itself
//   2d_bsrc                    rows x columns           by every thread for itself
//   2d_improved_bsrc           groups of unequal size   by every thread for itself
//   1d_with_copy_0             rows                     B by all
//   2d_bcopy                   rows x columns           B by the threads of a column
//   2d_acopy_n                 rows x columns           A by the threads of a row
//   2d_abcopy_abx_m_km_par_p   rows x columns           both
//   2d_xgemm_p                 rows x columns           by every thread; the tier cuts the columns
//   xgemm_external_omp         columns                  by every thread; the tier cuts the columns
#define TEV_VERSION1_DRIVERS(p, T)                                                                                   \
  tev::kernels::gemm_fn<T> tev_blas_##p##gemm_omp_driver_v1;                                                         \
  tev::blas::gemm_by_threads_fn<T> tev_blas_##p##gemm_1d_row, tev_blas_##p##gemm_1d_col, tev_blas_##p##gemm_2d_bsrc, \
      tev_blas_##p##gemm_2d_improved_bsrc, tev_blas_##p##gemm_1d_with_copy_0, tev_blas_##p##gemm_2d_bcopy,           \
      tev_blas_##p##gemm_2d_acopy_n, tev_blas_##p##gemm_2d_abcopy_abx_m_km_par_p, tev_blas_##p##gemm_2d_xgemm_p,     \
      tev_blas_##p##gemm_xgemm_external_omp;
TEV_FOR_EACH_PRECISION(TEV_VERSION1_DRIVERS)
#undef TEV_VERSION1_DRIVERS

}  // extern "C"
