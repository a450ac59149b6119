// SPDX-License-Identifier: BSD-3-Clause
// How a team computes an operation: decided in one place, from the operation, the tier's row (gemm/tier_row.h) and the
// threads at hand, and carried out in one place (run.h). A front end describes its call, and that is all it does.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/gemm/thread_count.h"
#include "blas_threading/operands.h"
#include "blas_threading/team/team.h"
#include "service/detection.h"

namespace tev::blas {

enum class division {
  none,             // one thread computes the whole
  stripes,          // a block of C for each thread, as the user wants them
  grid,             // of blocks of C, with panels or without; newer kernels     gemm/driver.h
  rows,             // of a C with two or three columns                          gemm/small_n.h
  blocks,           // of C, each thread by itself; older kernels                gemm/version1.h
  shared_blocks,    // of C, packed together; older kernels                      gemm/version1_shared.h
  sides,            // right-hand sides, which do not depend on each other       level3/shares.h
  diagonal_blocks,  // of a triangle, one by one; each step is a team's          level3/shares.h
  columns,          // of a triangle, of equal areas                             level3/shares.h
  depth             // of a sum                                                  level3/shares.h
};

struct plan {
  division by;
  int64_t threads;
};

// Shares of right-hand sides, and of columns of a triangle, are whole cache lines.
template <class T>
inline constexpr int64_t kLine = 64 / static_cast<int64_t>(sizeof(T));

// Sizes up to this are worth one thread on every tier, in every precision: what gemm/tier_row.cpp demands of a team
// lies above that, and nobody needs to look there.
inline constexpr int64_t kTiny = 16;

// How many threads an operation is worth: as many as a matrix product of as many multiply-adds. k is the order of a
// symmetric or triangular operand; of a triangle that contributes, or is computed, half of it counts.
template <class T>
int64_t threads_worth(int32_t code, int64_t m, int64_t n, int64_t k) {
  if (std::max({m, n, k}) <= kTiny) return 1;
  const bool halved = code == kernels::kOpSyrk || code == kernels::kOpTrmm || code == kernels::kOpTrsm;
  const int64_t depth = std::max<int64_t>(halved ? k / 2 : k, 1);
  const int32_t tier = tev_serv_cpu_detect();
  if (never_worth_a_team(tier, m, n, depth, kWorkPerElement<T>)) return 1;
  const int64_t available = available_threads(kWorkPerElement<T> * product_work(m, n, depth));
  return gemm_thread_count(tier, m, n, depth, kWorkPerElement<T>, available);
}

template <class T>
plan plan_of(const operation<T>& p);

// Of a matrix product on the older kernels, for so many threads.
template <class T>
plan plan_of_version1(const operation<T>& p, int64_t threads);

}  // namespace tev::blas
