// SPDX-License-Identifier: BSD-3-Clause
// Part p of the rows goes to thread p. With fewer threads than parts, which the runtime may give, thread i takes the
// parts i, i + threads, ...
#include "blas_threading/gemm/small_n.h"

#include <algorithm>

#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

constexpr char kLetters[] = {'N', 'T', 'C'};

bool clashes_in_cache(int64_t lda, int64_t ldb, int64_t ldc) {
  return lda % 256 == 0 || ldb % 256 == 0 || ldc % 256 == 0;
}

// op(A) is transposed, so a row of it starts lda elements after the one before.
template <class T>
void compute_rows(const gemm_arguments<T>& p, int64_t first, int64_t rows) {
  kernel_calls<T>::xgemm(&kLetters[p.op_a], &kLetters[p.op_b], &rows, &p.n, &p.k, &p.alpha, p.a + first * p.lda, &p.lda,
                         p.b, &p.ldb, &p.beta, p.c + first, &p.ldc);
}

}  // namespace

template <class T>
bool takes_small_n(int32_t tier, const gemm_arguments<T>& p) {
  if (p.op_a < kernels::kTrans || p.op_b != kernels::kNoTrans) return false;
  const bool two_or_three = p.n == 2 || p.n == 3;
  if (tier == TEV_CPU_AVX512) return two_or_three || (p.n < 16 && clashes_in_cache(p.lda, p.ldb, p.ldc));
  return tier == TEV_CPU_AVX512_ZEL && two_or_three;
}

template <class T>
int32_t use_smalln_kernels(int32_t tier, const gemm_arguments<T>& p) {
  if (!takes_small_n(tier, p)) return 0;
  const int64_t threads = available_threads(), part = small_n_rows(p.m, threads);
  run_team(threads, [&](int64_t thread, int64_t team) {
    for (int64_t first = thread * part; first < p.m; first += team * part)
      compute_rows(p, first, std::min(part, p.m - first));
  });
  return 1;
}

template bool takes_small_n(int32_t, const gemm_arguments<float>&);
template bool takes_small_n(int32_t, const gemm_arguments<double>&);
template int32_t use_smalln_kernels(int32_t, const gemm_arguments<float>&);
template int32_t use_smalln_kernels(int32_t, const gemm_arguments<double>&);

}  // namespace tev::blas
