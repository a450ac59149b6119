// SPDX-License-Identifier: BSD-3-Clause
// How many threads an operation is worth: as many as a matrix product of as many multiply-adds.
#pragma once

#include <algorithm>

#include "blas_threading/gemm/thread_count.h"
#include "blas_threading/team/team.h"
#include "service/detection.h"

namespace tev::blas {

// Shares of right-hand sides, and of columns of a triangle, are whole cache lines.
template <class T>
inline constexpr int64_t kLine = 64 / static_cast<int64_t>(sizeof(T));

template <class T>
int64_t thread_count(int64_t m, int64_t n, int64_t k) {
  const int32_t tier = tev_serv_cpu_detect();
  const int64_t depth = std::max<int64_t>(k, 1);
  if (never_worth_a_team(tier, m, n, depth, kWorkPerElement<T>)) return 1;
  const int64_t available = available_threads(kWorkPerElement<T> * product_work(m, n, depth));
  return gemm_thread_count(tier, m, n, depth, kWorkPerElement<T>, available);
}

}  // namespace tev::blas
