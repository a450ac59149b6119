// SPDX-License-Identifier: BSD-3-Clause
// Part p of the rows goes to thread p. With fewer threads than parts, which the runtime may give, thread i takes the
// parts i, i + threads, ...
#include "blas_threading/gemm/small_n.h"

#include <algorithm>

#include "blas_threading/gemm/team.h"
#include "blas_threading/gemm/tier_row.h"
#include "blas_threading/vectors/level1.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

bool clashes_in_cache(int64_t lda, int64_t ldb, int64_t ldc) {
  return lda % 256 == 0 || ldb % 256 == 0 || ldc % 256 == 0;
}

}  // namespace

template <class T>
bool takes_small_n(int32_t tier, const operation<T>& p) {
  if (p.op_a < kernels::kTrans || p.op_b != kernels::kNoTrans) return false;
  const tier_row& row = row_of(tier);
  if (row.two_or_three.value && (p.n == 2 || p.n == 3)) return true;
  return p.n < row.clashing.value && clashes_in_cache(p.a.ld, p.b.ld, p.c.ld);
}

template <class T>
void compute_small_n(const operation<T>& p, int64_t threads) {
  const int64_t part = ceil_div(p.m, threads);
  run_team(threads, [&](int64_t thread, int64_t team) {
    for (int64_t first = thread * part; first < p.m; first += team * part) {
      const span rows = {first, std::min(first + part, p.m)};
      compute_alone(p, rows_of(p.a, rows), p.b, rows_of(p.c, rows));
    }
  });
}

template bool takes_small_n(int32_t, const operation<float>&);
template bool takes_small_n(int32_t, const operation<double>&);
#define TEV_INSTANTIATE(p, T) template void compute_small_n(const operation<T>&, int64_t);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
