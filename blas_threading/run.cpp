// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/run.h"

#include "blas_threading/alone.h"
#include "blas_threading/gemm/degenerate.h"
#include "blas_threading/gemm/driver.h"
#include "blas_threading/gemm/partition.h"
#include "blas_threading/gemm/small_n.h"
#include "blas_threading/gemm/version1.h"
#include "blas_threading/level3/shares.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

// A grid shows in the last bits of a result, so in a reproducible run it does not go by the machine.
machine_facts this_machine(int64_t threads, int32_t reproducibility) {
  const int64_t cores =
      reproducibility == TEV_CBWR_OFF ? int64_t{tev_serv_get_ncpus()} * tev_serv_get_ncorespercpu() : threads;
  return {.cores = std::max<int64_t>(cores, 1),
          .fast_memory = tev_serv_check_fast_memory_size(),
          .vesta = tev_serv_cpuisvesta(),
          .dynamic = tev_serv_get_dynamic()};
}

template <class T>
void compute_on_grid(const operation<T>& p, int64_t threads) {
  thread_options options = {};
  options.tier = tev_serv_cpu_detect();
  options.threads = threads;
  options.reproducibility = tev_serv_cbwr_get(1);
  options.machine = this_machine(threads, options.reproducibility);
  gemm_omp_driver_v2(p, p.a, p.b, p.c, options);
}

template <class T>
void compute_stripes(const operation<T>& p, int64_t threads) {
  const int64_t stripes = tev_serv_get_num_stripes();
  run_team(threads, [&](int64_t thread, int64_t team) {
    const block part = stripe_block(thread, team, stripes, p.m, p.n);
    const span rows = {part.row, part.row + part.rows}, columns = {part.column, part.column + part.columns};
    compute_alone(p, rows_of(p.a, rows), columns_of(p.b, columns), block_of(p.c, rows, columns));
  });
}

}  // namespace

template <class T>
void run(const operation<T>& p, const plan& how) {
  switch (how.by) {
    case division::none:
      return compute_alone(p);
    case division::stripes:
      return compute_stripes(p, how.threads);
    case division::grid:
      return compute_on_grid(p, how.threads);
    case division::rows:
      return compute_small_n(p, how.threads);
    case division::blocks:
      return compute_blocks(p, how.threads);
    case division::shared_blocks:
      return compute_shared_blocks(p, how.threads);
    case division::sides:
      return compute_sides(p, how.threads);
    case division::diagonal_blocks:
      return compute_by_diagonal_blocks(p);
    case division::columns:
      return update_by_columns(p, how.threads);
    case division::depth:
      return update_by_depth(p, how.threads);
  }
}

template <class T>
void run(const operation<T>& p) {
  if (!done_by_level2(p)) run(p, plan_of(p));
}

#define TEV_INSTANTIATE(p, T)                          \
  template void run(const operation<T>&, const plan&); \
  template void run(const operation<T>&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
