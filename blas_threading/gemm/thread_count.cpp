// SPDX-License-Identifier: BSD-3-Clause
// The largest team that saves more than it costs. The costs are the tier's (gemm/tier_row.h), in the unit of its work.
#include "blas_threading/gemm/thread_count.h"

#include <algorithm>

#include "blas_threading/gemm/tier_row.h"

namespace tev::blas {

namespace {

constexpr int64_t kSmallestLargeTeam = 5;

int64_t next_smaller(int64_t t, bool one_by_one) {
  if (one_by_one) return t - 1;
  return t - (t < 10 ? 2 : t < 30 ? 4 : 8);
}

int64_t team_worth(double work, int64_t available, const team_cost& cost) {
  if (work < cost.least_work) return 1;
  for (int64_t t = available; t > 1; t = next_smaller(t, cost.one_by_one)) {
    const auto size = static_cast<double>(t);
    if ((cost.per_pair * size + cost.per_thread) * size < (size - 1) * work) return t;
  }
  return 1;
}

// So small that the many-core tier does not even look at the work.
bool is_tiny(int64_t m, int64_t n, int64_t k) {
  if (m <= 32 && n <= 60) return k <= 32;
  return m <= 128 && n <= 112 && k <= 16;
}

// Deep and narrow: a team would split k.
bool is_deep(int64_t m, int64_t n, int64_t k) { return k / std::max(m, n) > 3; }

double work_of(const tier_row& tier, int64_t m, int64_t n, int64_t k, double work_per_element) {
  return tier.work.value * static_cast<double>(m) * static_cast<double>(n) * static_cast<double>(k) * work_per_element;
}

}  // namespace

int64_t gemm_thread_count(int32_t code, int64_t m, int64_t n, int64_t k, double work_per_element, int64_t available) {
  if (available < 2) return 1;
  const tier_row& tier = row_of(code);
  if (tier.by_shape.value && is_tiny(m, n, k)) return 1;
  const double work = work_of(tier, m, n, k, work_per_element);
  const int64_t t =
      team_worth(work, available, available < kSmallestLargeTeam ? tier.small_team.value : tier.large_team.value);
  return t == 1 && tier.by_shape.value && is_deep(m, n, k) ? available : t;
}

bool never_worth_a_team(int32_t code, int64_t m, int64_t n, int64_t k, double work_per_element) {
  const tier_row& tier = row_of(code);
  const double least = std::min(tier.small_team.value.least_work, tier.large_team.value.least_work);
  if (tier.by_shape.value && is_tiny(m, n, k)) return true;
  return work_of(tier, m, n, k, work_per_element) < least && !(tier.by_shape.value && is_deep(m, n, k));
}

}  // namespace tev::blas
