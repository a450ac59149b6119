// SPDX-License-Identifier: BSD-3-Clause
// ?gemm: C := alpha op(A) op(B) + beta C. The front end decides who computes the product; in this order:
//
//   nothing to add             C := beta C
//   a size of 1                level 2
//   the user asked for stripes one region, a block of C for each thread
//   version-1 kernels          their own driver
//   worth one thread           the single-threaded kernels
//   two or three columns       rows dealt out to the team
//   else                       the parallel driver
//
// What a tiny product passes on its way to the single-threaded kernels costs nanoseconds: a few loads and comparisons.
// All that it does not need stands in functions of its own.
#include <algorithm>

#include "blas_threading/gemm/degenerate.h"
#include "blas_threading/gemm/driver.h"
#include "blas_threading/gemm/partition.h"
#include "blas_threading/gemm/small_n.h"
#include "blas_threading/gemm/thread_count.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "service/detection.h"
#include "tev/blas.h"

namespace tev::blas {

namespace {

using kernels::kConjTrans;
using kernels::kNoSuchTrans;
using kernels::kNoTrans;
using kernels::kTrans;

int32_t code_of(char letter) {
  switch (letter & ~0x20) {
    case 'N':
      return kNoTrans;
    case 'T':
      return kTrans;
    case 'C':
      return kConjTrans;
    default:
      return kNoSuchTrans;
  }
}

// ---- Stripes
// ---------------------------------------------------------------------------------------------------------

template <class T>
void compute_block(char transa, char transb, const gemm_arguments<T>& p, const block& part) {
  const T* const a = p.a + part.row * (p.op_a == kNoTrans ? 1 : p.lda);
  const T* const b = p.b + part.column * (p.op_b == kNoTrans ? p.ldb : 1);
  kernel_calls<T>::xgemm(&transa, &transb, &part.rows, &part.columns, &p.k, &p.alpha, a, &p.lda, b, &p.ldb, &p.beta,
                         p.c + part.row + part.column * p.ldc, &p.ldc);
}

template <class T>
[[gnu::noinline]] void striped_product(char transa, char transb, const gemm_arguments<T>& p, int64_t stripes) {
  run_team(permitted_threads(), [&](int64_t thread, int64_t threads) {
    const block part = stripe_block(thread, threads, stripes, p.m, p.n);
    if (part.rows > 0) compute_block(transa, transb, p, part);
  });
}

// ---- The parallel driver
// ---------------------------------------------------------------------------------------------

template <class T>
operand operand_of(int32_t code, const T* data, int64_t rows, int64_t columns, int64_t ld) {
  constexpr int32_t kModes[] = {0, kernels::kCopyPlain, kernels::kCopyTrans, kernels::kCopyConjTrans};
  return {.data = const_cast<T*>(data),
          .rows = rows,
          .columns = columns,
          .ld = ld,
          .row_offset = 0,
          .column_offset = 0,
          .extent = rows,
          .element_size = sizeof(T),
          .copy_mode = kModes[code + 1],
          .at = code == kNoTrans ? getPointer_notrans : getPointer_trans};
}

template <class T>
kernels::operation<T> operation_of(const gemm_arguments<T>& p) {
  kernels::operation<T> op = {.op_a = p.op_a,
                              .op_b = p.op_b,
                              .alpha = p.alpha,
                              .beta = p.beta,
                              .m = p.m,
                              .n = p.n,
                              .k = p.k,
                              .a = operand_of(p.op_a, p.a, p.m, p.k, p.lda),
                              .b = operand_of(p.op_b, p.b, p.k, p.n, p.ldb),
                              .c = operand_of(kNoTrans, static_cast<const T*>(p.c), p.m, p.n, p.ldc),
                              .from_right = 0,
                              .side = kernels::kAbsent,
                              .uplo = kernels::kAbsent,
                              .diag = kernels::kAbsent,
                              .code = kernels::kOpGemm};
  op.c.copy_mode = 0;
  return op;
}

machine_facts this_machine() {
  return {.cores = std::max<int64_t>(int64_t{tev_serv_get_ncpus()} * tev_serv_get_ncorespercpu(), 1),
          .fast_memory = tev_serv_check_fast_memory_size(),
          .vesta = tev_serv_cpuisvesta(),
          .dynamic = tev_serv_get_dynamic()};
}

template <class T>
[[gnu::noinline]] void team_product(char transa, char transb, const gemm_arguments<T>& p, int32_t tier) {
  const int64_t threads = gemm_thread_count(tier, p.m, p.n, p.k, kWorkPerElement<T>, available_threads());
  if (threads == 1) return compute_block(transa, transb, p, {0, 0, p.m, p.n});
  if constexpr (!kComplex<T>)
    if (use_smalln_kernels(tier, p) != 0) return;
  const kernels::operation<T> op = operation_of(p);
  thread_options options = {};
  options.machine = this_machine();
  options.tier = tier;
  options.threads = threads;
  options.reproducibility = tev_serv_cbwr_get(1);
  gemm_omp_driver_v2(op, op.a, op.b, op.c, options);
}

// ---- The front end
// ---------------------------------------------------------------------------------------------------

template <class T>
void gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha,
          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {
  if (*m < 1 || *n < 1) return;
  if (*k < 1 || is_value(*alpha, 0)) return kernel_calls<T>::mscale(m, n, beta, c, ldc);

  const auto arguments = [&] {
    return gemm_arguments<T>{code_of(*transa), code_of(*transb), *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc};
  };
  if (may_be_degenerate(*m, *n, *k, *ldb) && degenerate_product(arguments())) return;
  if (const int64_t stripes = tev_serv_get_num_stripes(); stripes > 0)
    return striped_product(*transa, *transb, arguments(), stripes);
  if (tev_blas_get_kernel_api_version() != 2)
    return gemm_omp_driver_v1(*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);

  const int32_t tier = tev_serv_cpu_detect();
  if (never_worth_a_team(tier, *m, *n, *k, kWorkPerElement<T>))
    return kernel_calls<T>::xgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  team_product(*transa, *transb, arguments(), tier);
}

}  // namespace

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
