// SPDX-License-Identifier: BSD-3-Clause
// Which grid of threads computes a product, and by which work routine: the tier routines. Each is a function of the
// shape and of what the options hold already (threads, machine, reproducibility, a copy strategy of kNoPanels when the
// driver without panels asks), so the leader may run it for the whole team.
#pragma once

#include "blas_threading/gemm/copy_decision.h"
#include "blas_threading/gemm/options.h"
#include "blas_threading/gemm/tier_row.h"
#include "blas_threading/kernel_calls.h"

namespace tev::blas {

void set_thread_opts_avx2(const product_shape& shape, thread_options& options);
void set_thread_opts_avx512(const product_shape& shape, thread_options& options);
void set_thread_opts_avx512_zel(const product_shape& shape, thread_options& options);

template <class T>
product_shape shape_of(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c) {
  const kernels::thread_info full_copy = {};
  kernels::strategy plan = {};
  kernel_calls<T>::map_thread_to_kernel(&full_copy, &plan);
  return {.m = c.rows,
          .n = c.columns,
          .k = a.columns,
          .op_a = problem.op_a,
          .op_b = problem.op_b,
          .lda = a.ld,
          .ldb = b.ld,
          .ldc = c.ld,
          .mb = plan.mr,
          .nb = plan.nr,
          .element_size = sizeof(T)};
}

inline void set_thread_opts(const product_shape& shape, thread_options& options) {
  row_of(options.tier).set_thread_opts.value(shape, options);
}

}  // namespace tev::blas
