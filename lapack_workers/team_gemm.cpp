// SPDX-License-Identifier: BSD-3-Clause
// The product of a team. By depth, every thread multiplies its part of k into an m x n slice of the workspace, and then
// the team adds the slices into C, column by column and in thread order:
//
//           k                        workspace                C
//     | 0 | 1 | 2 |  A       | slice 0 | slice 1 | slice 2 |     |0|1|2|    each thread its columns of all slices
//     | 0 | 1 | 2 |  B       |  m x n  |  m x n  |  m x n  |
#include <algorithm>

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/team/team.h"
#include "lapack_workers/team.h"
#include "tev/service.h"

namespace tev::lapack {

namespace {

using blas::element_of;
using blas::kernel_calls;
using blas::span;

constexpr int64_t kWorkspaceAlignment = 128;  // bytes

template <class T>
struct team_product {
  int64_t ithr, nthr;
  team_block& block;
  int64_t m, n, k;
  T alpha;
  const T* a;
  int64_t lda;
  const T* b;
  int64_t ldb;
  T beta;
  T* c;
  int64_t ldc;

  bool leads() const { return ithr == 0; }
  void meet() const { tev_barrier_wait(&block.barrier, ithr, nthr); }
  span share_of(int64_t length) const {
    int64_t count = 0;
    const int64_t begin = tev_serv_divbythreads(&ithr, &nthr, &length, &count);
    return {begin, begin + count};
  }
};

// C[rows, columns] := alpha A[rows, depth] B[columns, depth]^T + beta C[rows, columns], with the C given.
template <class T>
void multiply(const team_product<T>& p, span rows, span columns, span depth, T beta, T* c, int64_t ldc) {
  const int64_t m = rows.end - rows.begin, n = columns.end - columns.begin, k = depth.end - depth.begin;
  kernel_calls<T>::xgemm("N", "T", &m, &n, &k, &p.alpha, p.a + rows.begin + depth.begin * p.lda, &p.lda,
                         p.b + columns.begin + depth.begin * p.ldb, &p.ldb, &beta, c + rows.begin + columns.begin * ldc,
                         &ldc);
}

template <class T>
void multiply(const team_product<T>& p, span rows, span columns) {
  multiply(p, rows, columns, {0, p.k}, p.beta, p.c, p.ldc);
}

template <class T>
void by_thread_zero(const team_product<T>& p) {
  if (p.leads()) multiply(p, {0, p.m}, {0, p.n});
}

template <class T>
void by_columns(const team_product<T>& p) {
  multiply(p, {0, p.m}, p.share_of(p.n));
}

// ---- By depth ------------------------------------------------------------------------------------------------------

// nthr m n; -1 when that is more than memory can hold.
template <class T>
int64_t workspace_elements(const team_product<T>& p) {
  int64_t elements = 0, bytes = 0;
  const bool overflow = __builtin_mul_overflow(p.nthr, p.m, &elements) ||
                        __builtin_mul_overflow(elements, p.n, &elements) ||
                        __builtin_mul_overflow(elements, static_cast<int64_t>(sizeof(T)), &bytes);
  return overflow ? -1 : elements;
}

template <class T>
void make_workspace(const team_product<T>& p) {
  const int64_t elements = workspace_elements(p);
  team_block& block = p.block;
  if (elements >= 0 && block.workspace != nullptr && block.workspace_capacity >= elements) return;
  free_workspace(block);
  block.workspace_capacity = elements;
  block.workspace =
      elements < 0 ? nullptr : tev_serv_allocate(elements * static_cast<int64_t>(sizeof(T)), kWorkspaceAlignment);
  block.workspace_owned = block.workspace != nullptr;
}

// Column j of C := beta C + the columns j of all slices. A beta of 0 does not read C: what is there may be NaN.
template <class T>
void add_slices(const team_product<T>& p, const T* slices, int64_t j) {
  constexpr int64_t kNext = 1;
  const T one = element_of<T>(1);
  T* const column = p.c + j * p.ldc;
  if (blas::is_value(p.beta, 0))
    std::fill_n(column, p.m, element_of<T>(0));
  else
    kernel_calls<T>::xscal(&p.m, &p.beta, column, &kNext);
  for (int64_t slice = 0; slice < p.nthr; ++slice)
    kernel_calls<T>::xaxpy(&p.m, &one, slices + (slice * p.n + j) * p.m, &kNext, column, &kNext);
}

template <class T>
void by_depth(const team_product<T>& p) {
  if (p.leads()) make_workspace(p);
  p.meet();
  if (p.block.workspace == nullptr) return by_thread_zero(p);
  T* const slices = static_cast<T*>(p.block.workspace);
  const span columns = p.share_of(p.n);
  multiply(p, {0, p.m}, {0, p.n}, p.share_of(p.k), element_of<T>(0), slices + p.ithr * p.n * p.m, p.m);
  p.meet();
  for (int64_t j = columns.begin; j < columns.end; ++j) add_slices(p, slices, j);
}

// ---- By the tier's own product -------------------------------------------------------------------------------------

// False for all threads when the tier refused on any of them, which it does before it computes anything.
template <class T>
bool by_kernel(const team_product<T>& p) {
  team_block& block = p.block;
  const uint64_t* const words = block.internal_team;
  if (words[0] == 0) return false;
  // A number that no other product of this block has: every product raises the release.
  const uint64_t number = __atomic_load_n(&block.barrier.release, __ATOMIC_ACQUIRE) + 1;
  const int32_t result = kernel_calls<T>::xgemm_internal_team(
      "N", "T", &p.m, &p.n, &p.k, &p.alpha, p.a, &p.lda, p.b, &p.ldb, &p.beta, p.c, &p.ldc, &p.ithr, &p.nthr,
      &block.barrier, words[0], words[1], words[2], words[3], 2);
  if (result != 0) __atomic_store_n(&block.refused, number, __ATOMIC_RELEASE);
  p.meet();
  return __atomic_load_n(&block.refused, __ATOMIC_ACQUIRE) != number;
}

template <class T>
void compute(const team_product<T>& p) {
  switch (p.nthr == 1 ? 0 : p.block.gemm_mode) {
    case kTeamByRows:
      return multiply(p, p.share_of(p.m), {0, p.n});
    case kTeamByColumns:
      return by_columns(p);
    case kTeamByDepth:
      return by_depth(p);
    case kTeamByKernel:
      if (!by_kernel(p)) by_columns(p);
      return;
    default:
      return by_thread_zero(p);
  }
}

template <class T>
void gemm_team(const team_product<T>& p) {
  compute(p);
  p.meet();
}

}  // namespace

void free_workspace(team_block& block) {
  if (block.workspace_owned != 0) tev_serv_deallocate(block.workspace);
  block.workspace = nullptr;
  block.workspace_owned = 0;
}

}  // namespace tev::lapack

#define TEV_GEMM_TEAM(name, T)                                                                                        \
  extern "C" void name(const int64_t* ithr, const int64_t* nthr, tev::lapack::team_block* block, const char*,         \
                       const char*, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha, const T* a, \
                       const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) { \
    tev::lapack::gemm_team<T>({*ithr, *nthr, *block, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc});          \
  }
TEV_GEMM_TEAM(tev_lapack_sgemm_team, float)
TEV_GEMM_TEAM(tev_lapack_dgemm_team, double)
TEV_GEMM_TEAM(tev_lapack_cgemm_team, tev_complex8)
TEV_GEMM_TEAM(tev_lapack_zgemm_team, tev_complex16)
