// SPDX-License-Identifier: BSD-3-Clause
// A team brings a product to its end when its slowest thread does. A thread's time is told in multiply-adds: its block
// of C for every step of k, and the rows of A and columns of B that it packs for itself. So square blocks win among
// those of equal size, and rows over columns among equals: the large packed panel of each thread, A's, is smaller then.
#include "blas_threading/gemm/version1.h"

#include <omp.h>

#include <algorithm>
#include <cmath>

#include "blas_threading/alone.h"
#include "blas_threading/gemm/version1_shared.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/run.h"
#include "kernels/operation.h"

namespace tev::blas {

namespace {

// In multiply-adds, as kPackingWork: a meeting, for each thread; a multiply-add of the kernels that pack nothing, which
// pass over A for every few columns. And what sharing has to save, and do between two meetings, since its threads also
// wait for the one that is late.
constexpr double kMeetingWork = 2000, kUnpackedWork = 1.1, kUnpackedFewColumns = 1.15;
constexpr double kPays = 0.98, kLeastBetweenMeetings = 2e6;
constexpr double kFew = 72, kSmall = 105;  // the tiers pack nothing below kFew rows or columns, or kSmall of both

int64_t tiles_of(int64_t extent, int64_t tile) { return (extent + tile - 1) / tile; }

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

template <class T>
version1_grid best_grid(const operation<T>& p, int64_t threads) {
  return best_version1_grid(p.m, p.n, threads, kVersion1Rows<T>);
}
template <class T>
shared_grid best_shared(const operation<T>& p, int64_t threads, bool share_a, bool share_b) {
  return best_shared_grid(p.m, p.n, threads, kVersion1Rows<T>, share_a, share_b);
}

template <class T>
void compute_block(const operation<T>& p, const block& part) {
  if (part.rows < 1 || part.columns < 1) return;
  compute_alone(p, block_of(p.a, part.row, 0, part.rows, p.k), block_of(p.b, 0, part.column, p.k, part.columns),
                block_of(p.c, part.row, part.column, part.rows, part.columns));
}

// `wanted` for a team of its size.
template <class T>
void compute_on_grid(const operation<T>& p, const version1_grid& wanted) {
  if (wanted.threads < 2) return compute_alone(p);
  run_team(wanted.threads, [&](int64_t thread, int64_t team) {
    const version1_grid grid = team == wanted.threads ? wanted : best_grid(p, team);
    if (thread < grid.threads) compute_block(p, version1_block(grid, thread, p.m, p.n, kVersion1Rows<T>));
  });
}

template <class T>
void compute_shared(const operation<T>& p, const shared_grid& grid, int64_t threads) {
  const bool adds = p.k > 0 && !is_value(p.alpha, 0);
  if (grid.threads() < 2 || !adds || !multiply_shared(p, grid)) compute_blocks(p, threads);
}

// Rows of threads, in each of which the tier divides the columns.
template <class T>
void compute_by_shares(const operation<T>& p, const shared_grid& grid) {
  run_team(grid.threads(), [&](int64_t thread, int64_t team) {
    const int64_t rows = team == grid.threads() ? grid.rows : 1, columns = team / rows;
    const int64_t row = thread % rows, column = thread / rows;
    const int64_t first = tile_edge(p.m, kVersion1Rows<T>, row, rows),
                  length = tile_edge(p.m, kVersion1Rows<T>, row + 1, rows) - first;
    if (length < 1) return;
    const operand a = block_of(p.a, first, 0, length, p.k), c = block_of(p.c, first, 0, length, p.n);
    const char transa = kernels::letter_of(p.op_a), transb = kernels::letter_of(p.op_b);
    kernel_calls<T>::xgemm_par(&transa, &transb, &length, &p.n, &p.k, &p.alpha, elements<T>(a), &a.ld, elements<T>(p.b),
                               &p.b.ld, &p.beta, elements<T>(c), &c.ld, &column, &columns);
  });
}

// The same blocks, each thread by itself.
version1_grid even_groups(const shared_grid& grid) { return {grid.threads(), grid.columns}; }

// Per step of k, in the time of the slowest thread. A small block goes to the tier's kernels that pack nothing.
double alone_work(const block& part) {
  const auto rows = static_cast<double>(part.rows), columns = static_cast<double>(part.columns);
  if (columns < kFew) return kUnpackedFewColumns * rows * columns;
  if (rows < kFew || std::max(rows, columns) < kSmall) return kUnpackedWork * rows * columns;
  return rows * columns + kPackingWork * (rows + columns);
}

// Every call that came through the front end has something to add; those of the drivers by name may not.
template <class T>
void compute(const operation<T>& p) {
  if (p.m < 1 || p.n < 1) return;
  if (p.k < 1 || is_value(p.alpha, 0)) return kernel_calls<T>::mscale(&p.m, &p.n, &p.beta, elements<T>(p.c), &p.c.ld);
  const int64_t threads = threads_worth<T>(p.code, p.m, p.n, p.k);
  run(p, threads == 1 ? plan{division::none, 1} : plan_of_version1(p, threads));
}

}  // namespace

int64_t tile_edge(int64_t extent, int64_t tile, int64_t i, int64_t parts) {
  return std::min(extent, cut(tiles_of(extent, tile), i, parts) * tile);
}

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
  const int64_t row = tile_edge(m, tile_rows, place, size),
                column = tile_edge(n, kVersion1Columns, first, grid.threads);
  return {row, column, tile_edge(m, tile_rows, place + 1, size) - row,
          tile_edge(n, kVersion1Columns, first + size, grid.threads) - column};
}

// Threads that outnumber the processors would wait for each other's turns.
template <class T>
bool sharing_pays(const operation<T>& p, int64_t wanted) {
  const version1_grid alone = best_grid(p, wanted);
  const shared_grid together = best_shared(p, wanted, true, true);
  const int64_t threads = together.threads();
  if (threads < 2 || threads > omp_get_num_procs()) return false;
  const auto depth = static_cast<double>(p.k);
  const block last = version1_block(alone, alone.threads - 1, p.m, p.n, kVersion1Rows<T>);
  if (product_work(last.rows, last.columns, std::min(p.k, kSharedDepth)) < kLeastBetweenMeetings) return false;
  const double meetings = std::ceil(depth / kSharedDepth) * kMeetingWork * static_cast<double>(threads),
               shared = shared_work(p.m, p.n, together, kVersion1Rows<T>) * depth + meetings;
  return shared < kPays * depth * alone_work(last);
}

template <class T>
void compute_blocks(const operation<T>& p, int64_t threads) {
  compute_on_grid(p, best_grid(p, threads));
}

template <class T>
void compute_shared_blocks(const operation<T>& p, int64_t threads) {
  compute_shared(p, best_shared(p, threads, true, true), threads);
}

template <class T>
void gemm_omp_driver_v1(const operation<T>& p) {
  compute(p);
}

}  // namespace tev::blas

#define TEV_PARAMETERS(T)                                                                                       \
  const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k, const T *alpha, \
      const T *a, const int64_t *lda, const T *b, const int64_t *ldb, const T *beta, T *c, const int64_t *ldc
#define TEV_PRODUCT tev::kernels::make_operation(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc)
// The product as x, the number of threads as t.
#define TEV_STRATEGY(p, T, name, compute)                                                \
  extern "C" void tev_blas_##p##gemm_##name(TEV_PARAMETERS(T), const int64_t* threads) { \
    const auto x = TEV_PRODUCT;                                                          \
    const int64_t t = *threads;                                                          \
    compute;                                                                             \
  }
#define TEV_SHARES(p, grid) tev_blas_##p##gemm_api_support() == 1 ? compute_by_shares(x, grid) : compute_blocks(x, t)
#define TEV_VERSION1_DRIVERS(p, T)                                                              \
  template bool sharing_pays(const operation<T>&, int64_t);                                     \
  template void compute_blocks(const operation<T>&, int64_t);                                   \
  template void compute_shared_blocks(const operation<T>&, int64_t);                            \
  template void gemm_omp_driver_v1(const operation<T>&);                                        \
  extern "C" void tev_blas_##p##gemm_omp_driver_v1(TEV_PARAMETERS(T)) { compute(TEV_PRODUCT); } \
  TEV_STRATEGY(p, T, 1d_row, compute_on_grid(x, {t, 1}))                                        \
  TEV_STRATEGY(p, T, 1d_col, compute_on_grid(x, {t, t}))                                        \
  TEV_STRATEGY(p, T, 2d_bsrc, compute_on_grid(x, even_groups(best_shared(x, t, false, false)))) \
  TEV_STRATEGY(p, T, 2d_improved_bsrc, compute_blocks(x, t))                                    \
  TEV_STRATEGY(p, T, 1d_with_copy_0, compute_shared(x, {t, 1, false, true}, t))                 \
  TEV_STRATEGY(p, T, 2d_bcopy, compute_shared(x, best_shared(x, t, false, true), t))            \
  TEV_STRATEGY(p, T, 2d_acopy_n, compute_shared(x, best_shared(x, t, true, false), t))          \
  TEV_STRATEGY(p, T, 2d_abcopy_abx_m_km_par_p, compute_shared_blocks(x, t))                     \
  TEV_STRATEGY(p, T, 2d_xgemm_p, TEV_SHARES(p, best_shared(x, t, false, false)))                \
  TEV_STRATEGY(p, T, xgemm_external_omp, TEV_SHARES(p, (shared_grid{1, t, false, false})))
namespace tev::blas {
TEV_FOR_EACH_PRECISION(TEV_VERSION1_DRIVERS)
}  // namespace tev::blas
