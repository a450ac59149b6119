// SPDX-License-Identifier: BSD-3-Clause
// ?gemm: C := alpha op(A) op(B) + beta C. The front end decides who computes the product; in this order:
//
//   nothing to add             C := beta C
//   worth one thread           the single-threaded kernels, but for the next two
//   a size of 1                level 2
//   the user asked for stripes one region, a block of C for each thread
//   version-1 kernels          their own driver
//   two or three columns       rows dealt out to the team
//   else                       the parallel driver
//
// What a tiny product passes on its way to the single-threaded kernels costs nanoseconds: a few loads and comparisons.
// All that it does not need stands in functions of its own.
#include "blas_threading/gemm/gemm.h"

#include <algorithm>

#include "blas_threading/gemm/degenerate.h"
#include "blas_threading/gemm/driver.h"
#include "blas_threading/gemm/partition.h"
#include "blas_threading/gemm/small_n.h"
#include "blas_threading/gemm/team.h"
#include "blas_threading/gemm/thread_count.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "service/detection.h"
#include "tev/blas.h"

namespace tev::blas {

namespace {

template <class T>
[[gnu::noinline]] void striped_product(const operation<T>& p, int64_t stripes) {
  run_team(permitted_threads(), [&](int64_t thread, int64_t threads) {
    const block part = stripe_block(thread, threads, stripes, p.m, p.n);
    const span rows = {part.row, part.row + part.rows}, columns = {part.column, part.column + part.columns};
    if (part.rows > 0) compute_alone(p, rows_of(p.a, rows), columns_of(p.b, columns), block_of(p.c, rows, columns));
  });
}

machine_facts this_machine() {
  return {.cores = std::max<int64_t>(int64_t{tev_serv_get_ncpus()} * tev_serv_get_ncorespercpu(), 1),
          .fast_memory = tev_serv_check_fast_memory_size(),
          .vesta = tev_serv_cpuisvesta(),
          .dynamic = tev_serv_get_dynamic()};
}

template <class T>
void team_product(const operation<T>& p, int32_t tier) {
  const int64_t available = available_threads(kWorkPerElement<T> * product_work(p.m, p.n, p.k));
  const int64_t threads = gemm_thread_count(tier, p.m, p.n, p.k, kWorkPerElement<T>, available);
  if (threads == 1) return compute_alone(p, p.a, p.b, p.c);
  if constexpr (!kComplex<T>)
    if (p.code == kernels::kOpGemm && use_smalln_kernels(tier, p) != 0) return;
  thread_options options = {};
  options.machine = this_machine();
  options.tier = tier;
  options.threads = threads;
  options.reproducibility = tev_serv_cbwr_get(1);
  gemm_omp_driver_v2(p, p.a, p.b, p.c, options);
}

template <class T>
bool done_by_level2(const operation<T>& p) {
  return p.code == kernels::kOpGemm && may_be_degenerate(p.m, p.n, p.k, p.b.ld) && degenerate_product(p);
}

template <class T>
[[gnu::noinline]] void gemm_described(const operation<T>& p, int64_t stripes) {
  if (stripes < 1) return multiply_over_team(p);
  if (!done_by_level2(p)) striped_product(p, stripes);
}

template <class T>
void gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha,
          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {
  if (*m < 1 || *n < 1) return;
  if (*k < 1 || is_value(*alpha, 0)) return kernel_calls<T>::mscale(m, n, beta, c, ldc);
  const int64_t stripes = tev_serv_get_num_stripes();
  if (!may_be_degenerate(*m, *n, *k, *ldb) && stripes < 1 &&
      never_worth_a_team(tev_serv_cpu_detect(), *m, *n, *k, kWorkPerElement<T>))
    return kernel_calls<T>::xgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  gemm_described(kernels::make_operation(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc),
                 stripes);
}

}  // namespace

template <class T>
void multiply_over_team(const operation<T>& p) {
  if (done_by_level2(p)) return;
  if (tev_blas_get_kernel_api_version() != 2) return gemm_omp_driver_v1(p);
  const int32_t tier = tev_serv_cpu_detect();
  if (never_worth_a_team(tier, p.m, p.n, p.k, kWorkPerElement<T>)) return compute_alone(p, p.a, p.b, p.c);
  team_product(p, tier);
}

template void multiply_over_team(const operation<float>&);
template void multiply_over_team(const operation<double>&);
template void multiply_over_team(const operation<tev_complex8>&);
template void multiply_over_team(const operation<tev_complex16>&);

}  // namespace tev::blas

#define TEV_GEMM(name, T)                                                                                        \
  void name(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k,        \
            const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, \
            const int64_t* ldc) {                                                                                \
    tev::blas::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);                               \
  }
TEV_GEMM(tev_blas_sgemm, float)
TEV_GEMM(tev_blas_dgemm, double)
TEV_GEMM(tev_blas_cgemm, tev_complex8)
TEV_GEMM(tev_blas_zgemm, tev_complex16)
