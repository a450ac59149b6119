// SPDX-License-Identifier: BSD-3-Clause
// The models that decide how many threads a product is worth. A team of t threads saves (t - 1) / t of the work W and
// costs (per_pair t + per_thread); it is taken as soon as it saves more than it costs. W and the constants share one
// unit per tier, so they only make sense together.
#include "blas_threading/gemm/thread_count.h"

#include <algorithm>

#include "tev/service.h"

namespace tev::blas {

namespace {

struct team_cost {
  double least_work;  // below it no team is tried
  double per_pair, per_thread;
  bool one_by_one;  // which sizes are tried: all, or fewer and fewer of the large ones
};
constexpr team_cost kManyCores = {8000, 2500, 3000, false};
constexpr team_cost kSmallTeam = {3000, 0, 3000, true};
constexpr team_cost kLargeTeam = {5000, 500, 4000, false};
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

double work_of(int32_t tier, int64_t m, int64_t n, int64_t k, double work_per_element) {
  const double rows = 2.0 * static_cast<double>(m), columns = static_cast<double>(n), depth = static_cast<double>(k);
  if (tier == TEV_CPU_AVX512_ZEL) return rows * columns * depth / 3.2 * work_per_element;
  const double scale = tier == TEV_CPU_AVX512 ? 0.03125 : 0.0625;
  return rows * scale * columns * depth * work_per_element;
}

}  // namespace

int64_t gemm_thread_count(int32_t tier, int64_t m, int64_t n, int64_t k, double work_per_element, int64_t available) {
  if (available < 2) return 1;
  const double work = work_of(tier, m, n, k, work_per_element);
  if (tier != TEV_CPU_AVX512_ZEL)
    return team_worth(work, available, available < kSmallestLargeTeam ? kSmallTeam : kLargeTeam);
  if (is_tiny(m, n, k)) return 1;
  const int64_t t = team_worth(work, available, kManyCores);
  return t == 1 && is_deep(m, n, k) ? available : t;
}

bool never_worth_a_team(int32_t tier, int64_t m, int64_t n, int64_t k, double work_per_element) {
  const double work = work_of(tier, m, n, k, work_per_element);
  if (tier != TEV_CPU_AVX512_ZEL) return work < std::min(kSmallTeam.least_work, kLargeTeam.least_work);
  return is_tiny(m, n, k) || (work < kManyCores.least_work && !is_deep(m, n, k));
}

}  // namespace tev::blas
