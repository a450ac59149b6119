// SPDX-License-Identifier: BSD-3-Clause
// The work routines of a product: what each thread of the team does once it has its share. All take the same records:
// the problem with the operands of the whole product, the thread's share of A, B and C, its options and its kernels.
// All threads below options.threads call the same routine; C is complete when all have returned.
//
//   omp_no_parallel_copy           own panels of A and B
//   omp_parallel_acopy             one panel of A for all, packed by all in slices; own panels of B
//   omp_parallel_acopy_lookahead   the same, and the next panel is packed in between (gemm/lookahead.h)
//   omp_parallel_abcopy            a grid: rows of threads share A, columns of threads share B
//   gblock_by_k_omp                parts of k; the partial sums are added in the order of k
#pragma once

#include "blas_threading/gemm/options.h"
#include "kernels/records.h"

namespace tev::blas {

template <class T>
using work_routine = void(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c,
                          const thread_options& options, const kernels::kernel_info<T>& info);

template <class T>
void omp_no_parallel_copy(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c,
                          const thread_options& options, const kernels::kernel_info<T>& info);

template <class T>
void omp_parallel_acopy(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c,
                        const thread_options& options, const kernels::kernel_info<T>& info);

template <class T>
void omp_parallel_acopy_lookahead(const kernels::operation<T>& problem, const operand& a, const operand& b,
                                  const operand& c, const thread_options& options, const kernels::kernel_info<T>& info);

template <class T>
void omp_parallel_abcopy(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c,
                         const thread_options& options, const kernels::kernel_info<T>& info);

template <class T>
void gblock_by_k_omp(const kernels::operation<T>& problem, const operand& a, const operand& b, const operand& c,
                     const thread_options& options, const kernels::kernel_info<T>& info);

// What one thread of the team, options.thread, does: narrows the operands by the partition mode and calls the work
// routine that partition mode and copy strategy name. `barriers` and `shared` are zeroed arrays of
// sync_entries(options.threads) entries.
template <class T>
void compute_share(kernels::operation<T> problem, operand a, operand b, operand c, thread_options options,
                   barrier_block* barriers, shared_buffer* shared);

inline int64_t sync_entries(int64_t threads) { return threads / 2 + 3; }

// C += partial sums of k, `parts` of them, `stride` elements apart, with the leading dimension `ld`: first to last, so
// that the result does not depend on who was fast. Rank `rank` of `ranks` threads adds its share of C.
template <class T>
void add_parts(const operand& c, const T* partial, int64_t ld, int64_t stride, int64_t parts, int64_t rank,
               int64_t ranks);

}  // namespace tev::blas
