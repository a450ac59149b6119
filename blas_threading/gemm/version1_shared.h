// SPDX-License-Identifier: BSD-3-Clause
// Products over a team whose threads pack A and B together, on the tiers with the version-1 kernels. C is cut into a
// grid, and for each panel of k
//
//                  column parts of B, each packed by the threads below it: a slice each
//                      |   0   |   1   |
//                  ----+-------+-------+
//   row parts of A,  0 |   0   |   3   |     6 threads, 3 rows and 2 columns: threads 0, 1, 2 pack the first part
//   each packed by   1 |   1   |   4   |     of B, threads 1 and 4 the second part of A; then all that share a part
//   the threads of   2 |   2   |   5   |     meet, and each multiplies
//   its row
//
// A side may also be packed by every thread for itself. Of a shared side there are two panels, used in turn: while the
// slow ones multiply by one, the fast ones pack the other, and so one meeting for each panel of k is enough.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/gemm/degenerate.h"

namespace tev::blas {

struct shared_grid {
  int64_t rows, columns;  // parts of C; rows * columns threads
  bool share_a, share_b;

  int64_t threads() const { return rows * columns; }
};

inline constexpr int64_t kSharedDepth = 256;  // most steps of k in a panel: between two meetings

// The grid of at most `threads` threads, at least 1, whose slowest thread is done first; m and n are at least 1.
shared_grid best_shared_grid(int64_t m, int64_t n, int64_t threads, int64_t tile_rows, bool share_a, bool share_b);

// Multiply-adds for one step of k, packing included, in the time of its slowest thread.
double shared_work(int64_t m, int64_t n, const shared_grid& grid, int64_t tile_rows);

// C := alpha op(A) op(B) + beta C; m, n and k are at least 1. False, with nothing computed, when the tier has no such
// kernels, when there is no memory for the panels, or when the team turned out smaller than the grid.
template <class T>
bool multiply_shared(const operation<T>& p, const shared_grid& grid);

}  // namespace tev::blas
