// SPDX-License-Identifier: BSD-3-Clause
// A team brings a product to its end when its slowest thread does. A thread's time is told in multiply-adds: its block
// of C for every step of k, and the rows of A and columns of B that it packs for itself. So square blocks win among
// those of equal size, and rows over columns among equals: the large packed panel of each thread, A's, is smaller then.
#include "blas_threading/gemm_version1.h"

#include <omp.h>

#include <algorithm>

#include "blas_threading/gemm_degenerate.h"
#include "blas_threading/gemm_thread_count.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level1.h"

namespace tev::blas {

namespace {

constexpr double kPackingWork = 4;  // multiply-adds in the time that packing one element takes

int64_t tiles_of(int64_t extent, int64_t tile) { return (extent + tile - 1) / tile; }

// Where part `i` of `parts` begins. Unlike a division that gives the rest to the first parts, any run of s parts is as
// long as any other, up to one.
int64_t cut(int64_t length, int64_t i, int64_t parts) { return length / parts * i + length % parts * i / parts; }

int64_t longest_run(int64_t length, int64_t run, int64_t parts) {
  return length / parts * run + (length % parts * run + parts - 1) / parts;
}

// Of the slowest thread in a group of `members`.
double group_work(int64_t m, int64_t n, const version1_grid& grid, int64_t members, int64_t tile_rows) {
  const int64_t down = longest_run(tiles_of(m, tile_rows), 1, members),
                across = longest_run(tiles_of(n, kVersion1Columns), members, grid.threads);
  const auto rows = static_cast<double>(std::min(m, down * tile_rows)),
             columns = static_cast<double>(std::min(n, across * kVersion1Columns));
  return rows * columns + kPackingWork * (rows + columns);
}

double grid_work(int64_t m, int64_t n, const version1_grid& grid, int64_t tile_rows) {
  const int64_t members = grid.threads / grid.groups;
  const double small = group_work(m, n, grid, members, tile_rows);
  if (grid.threads % grid.groups == 0) return small;
  return std::max(small, group_work(m, n, grid, members + 1, tile_rows));
}

// The product as the threads see it.
template <class T>
struct product {
  char transa, transb;
  gemm_arguments<T> p;

  version1_grid best_grid(int64_t threads) const { return best_version1_grid(p.m, p.n, threads, kVersion1Rows<T>); }
};

bool is_plain(char letter) { return (letter & ~0x20) == 'N'; }

template <class T>
void compute_block(const product<T>& x, const block& part) {
  if (part.rows < 1 || part.columns < 1) return;
  const gemm_arguments<T>& p = x.p;
  const T* const a = p.a + part.row * (is_plain(x.transa) ? 1 : p.lda);
  const T* const b = p.b + part.column * (is_plain(x.transb) ? p.ldb : 1);
  kernel_calls<T>::xgemm(&x.transa, &x.transb, &part.rows, &part.columns, &p.k, &p.alpha, a, &p.lda, b, &p.ldb, &p.beta,
                         p.c + part.row + part.column * p.ldc, &p.ldc);
}

// `wanted` for a team of its size.
template <class T>
void compute_on_grid(const product<T>& x, const version1_grid& wanted) {
  if (wanted.threads < 2) return compute_block(x, {0, 0, x.p.m, x.p.n});
#pragma omp parallel num_threads(static_cast <int>(wanted.threads))
  {
    const int64_t team = omp_get_num_threads();
    const version1_grid grid = team == wanted.threads ? wanted : x.best_grid(team);
    const int64_t thread = omp_get_thread_num();
    if (thread < grid.threads) compute_block(x, version1_block(grid, thread, x.p.m, x.p.n, kVersion1Rows<T>));
  }
}

template <class T>
void compute(const product<T>& x) {
  const gemm_arguments<T>& p = x.p;
  if (p.m < 1 || p.n < 1) return;
  if (p.k < 1 || is_value(p.alpha, 0)) return kernel_calls<T>::mscale(&p.m, &p.n, &p.beta, p.c, &p.ldc);
  const int64_t threads =
      gemm_thread_count(tev_serv_cpu_detect(), p.m, p.n, p.k, kWorkPerElement<T>, available_threads());
  compute_on_grid(x, x.best_grid(threads));
}

}  // namespace

version1_grid best_version1_grid(int64_t m, int64_t n, int64_t threads, int64_t tile_rows) {
  version1_grid best = {std::min(threads, tiles_of(m, tile_rows) * tiles_of(n, kVersion1Columns)), 1};
  double least = grid_work(m, n, best, tile_rows);
  for (int64_t groups = 2; groups <= best.threads; ++groups) {
    const double work = grid_work(m, n, {best.threads, groups}, tile_rows);
    if (work < least) least = work, best.groups = groups;
  }
  return best;
}

block version1_block(const version1_grid& grid, int64_t thread, int64_t m, int64_t n, int64_t tile_rows) {
  // The first groups have one member more.
  const int64_t members = grid.threads / grid.groups, large = grid.threads % grid.groups * (members + 1);
  const int64_t size = thread < large ? members + 1 : members;
  const int64_t place = (thread < large ? thread : thread - large) % size, first = thread - place;
  const auto edge = [](int64_t extent, int64_t tile, int64_t i, int64_t parts) {
    return std::min(extent, cut(tiles_of(extent, tile), i, parts) * tile);
  };
  const int64_t row = edge(m, tile_rows, place, size), column = edge(n, kVersion1Columns, first, grid.threads);
  return {row, column, edge(m, tile_rows, place + 1, size) - row,
          edge(n, kVersion1Columns, first + size, grid.threads) - column};
}

template <class T>
void gemm_omp_driver_v1(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a, int64_t lda,
                        const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  compute(product<T>{transa, transb, {0, 0, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc}});
}

}  // namespace tev::blas

#define TEV_PARAMETERS(T)                                                                                       \
  const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k, const T *alpha, \
      const T *a, const int64_t *lda, const T *b, const int64_t *ldb, const T *beta, T *c, const int64_t *ldc
#define TEV_PRODUCT(T)                                                               \
  tev::blas::product<T> {                                                            \
    *transa, *transb, { 0, 0, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc } \
  }
#define TEV_VERSION1_DRIVERS(p, T)                                                                                   \
  template void tev::blas::gemm_omp_driver_v1(char, char, int64_t, int64_t, int64_t, T, const T*, int64_t, const T*, \
                                              int64_t, T, T*, int64_t);                                              \
  extern "C" void tev_blas_##p##gemm_omp_driver_v1(TEV_PARAMETERS(T)) { tev::blas::compute(TEV_PRODUCT(T)); }        \
  extern "C" void tev_blas_##p##gemm_1d_row(TEV_PARAMETERS(T), const int64_t* threads) {                             \
    tev::blas::compute_on_grid(TEV_PRODUCT(T), {*threads, 1});                                                       \
  }                                                                                                                  \
  extern "C" void tev_blas_##p##gemm_1d_col(TEV_PARAMETERS(T), const int64_t* threads) {                             \
    tev::blas::compute_on_grid(TEV_PRODUCT(T), {*threads, *threads});                                                \
  }                                                                                                                  \
  extern "C" void tev_blas_##p##gemm_2d_improved_bsrc(TEV_PARAMETERS(T), const int64_t* threads) {                   \
    const auto x = TEV_PRODUCT(T);                                                                                   \
    tev::blas::compute_on_grid(x, x.best_grid(*threads));                                                            \
  }
TEV_VERSION1_DRIVERS(s, float)
TEV_VERSION1_DRIVERS(d, double)
TEV_VERSION1_DRIVERS(c, tev_complex8)
TEV_VERSION1_DRIVERS(z, tev_complex16)
