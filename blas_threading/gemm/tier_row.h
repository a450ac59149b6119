// SPDX-License-Identifier: BSD-3-Clause
// What a tier decides in the drivers of products, one row for each. A type code without a row, or a row without one of
// its fields, does not compile.
#pragma once

#include <cstdint>

#include "blas_threading/gemm/copy_decision.h"
#include "blas_threading/gemm/options.h"
#include "service/required.h"

namespace tev::blas {

// A team of t threads saves (t - 1) / t of the work and costs (per_pair t + per_thread).
struct team_cost {
  double least_work;  // below it no team is tried
  double per_pair, per_thread;
  bool one_by_one;  // which sizes are tried: all, or fewer and fewer of the large ones
};

struct tier_row {
  required<double> work;  // of one multiply-add in double, in the unit of the costs
  required<team_cost> small_team, large_team;
  required<bool> by_shape;      // tiny products stay with one thread, deep and narrow ones go to all, whatever the work
  required<bool> few_rows;      // some rows of C go through level 2 when the columns of B would all fall into the same
                                // cache sets
  required<bool> two_or_three;  // columns of C, with op(A) transposed: rows of C are dealt out. In s and d, as the next
  required<int64_t> clashing;   // the same for fewer columns than this when a leading dimension makes cache sets clash
  required<bool (*)(const product_shape&, int64_t threads, bool vesta)> wants_panels;
  required<void (*)(const product_shape&, thread_options&)> set_thread_opts;
};

// Codes that are no tier's have the row of the older tiers.
const tier_row& row_of(int32_t tier);

}  // namespace tev::blas
