// SPDX-License-Identifier: BSD-3-Clause
// Work over the OpenMP team: when a team is worth forming, and which part of a length belongs to which thread.
#pragma once

#include <omp.h>

#include <cstdint>

#include "blas_threading/operands.h"
#include "blas_threading/team/crowding.h"
#include "service/work_split.h"

namespace tev::blas {

// The most threads that a call may use. The runtime would complain aloud about more than its limit.
int64_t permitted_threads();

// The same, while other work may hold the processors, for a call of so many multiply-adds.
int64_t available_threads(double work);

// What one element of a vector, or of a matrix that is used once, counts for in that: it comes from memory.
inline constexpr double kElementWork = 16;

// Multiply-adds of a product; in double, since three sizes of 64 bits overflow an integer.
inline double product_work(int64_t m, int64_t n, int64_t k) {
  return static_cast<double>(m) * static_cast<double>(n) * static_cast<double>(k);
}

// Runs body(index, size) on every thread of a team that is asked to have `threads`. `size` is that of the team that
// really formed. Every thread has a copy of the body: what a body holds by value, and not by reference, comes to the
// other processors in one go.
template <class Body>
void run_team(int64_t threads, const Body& body) {
  region_watch watch;
#pragma omp parallel num_threads(static_cast <int>(threads))
  {
    const Body own_body = body;
    const int64_t index = omp_get_thread_num(), size = omp_get_num_threads();
    if (index == 0) watch.share_begins(size);
    own_body(index, size);
    if (index == 0) watch.share_ends();
  }
}

inline int64_t ceil_div(int64_t x, int64_t y) { return (x + y - 1) / y; }
inline int64_t round_up(int64_t x, int64_t step) { return ceil_div(x, step) * step; }

// The part of [0, length) of thread `index` of `threads`, in whole blocks but for the last.
inline span part_of(int64_t index, int64_t threads, int64_t length, int64_t block) {
  int64_t count = 0;
  const int64_t begin = tev_serv_divbythreadsnb(&index, &threads, &length, &block, &count);
  return {begin, begin + count};
}

}  // namespace tev::blas
