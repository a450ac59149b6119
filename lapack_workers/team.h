// SPDX-License-Identifier: BSD-3-Clause
// A team of threads that one LAPACK worker runs: what its members share, and the matrix product that they compute
// together. The members meet at tev_barrier_wait, called with the block's barrier.
#pragma once

#include <cstdint>

#include "blas_threading/team/barrier.h"
#include "tev/types.h"

namespace tev::lapack {

// How the team divides a product. By depth: partial sums in the workspace, added in thread order. By kernel: as the
// tier's own product for teams does. Any other mode: thread 0 computes it alone.
inline constexpr int64_t kTeamByRows = 1, kTeamByColumns = 2, kTeamByDepth = 3, kTeamByKernel = 4;

// One per parallel region, shared by its threads; zeros before use, then the mode and what the mode needs.
struct team_block {
  blas::barrier_block barrier;
  int64_t gemm_mode;           // kTeamByRows ..                                      W worker
  void* workspace;             // of kTeamByDepth, or null                            W worker, thread 0
  int64_t workspace_capacity;  // elements                                            W worker, thread 0
  int64_t workspace_owned;     // 1: allocated by the product                         W thread 0
  uint64_t internal_team[4];   // of kTeamByKernel: the address of a word for the team to share, 0 when there is none;
                               // the others are handed on                            W worker
  uint64_t refused;            // the last product that the tier refused: its barrier's release + 1   W any thread
};

// Gives the workspace back if the product allocated it. For the block's owner, after the region.
void free_workspace(team_block& block);

// C := alpha A B^T + beta C, A m x k and B n x k as stored: the letters are not read. B^T is the plain transpose, also
// in the complex types. All *nthr threads call with the same arguments but *ithr = 0 .. *nthr - 1, and leave together.
// The result does not depend on timing.
template <class T>
using gemm_team_fn = void(const int64_t* ithr, const int64_t* nthr, team_block* block, const char* transa,
                          const char* transb, const int64_t* m, const int64_t* n, const int64_t* k, const T* alpha,
                          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c,
                          const int64_t* ldc);

}  // namespace tev::lapack

extern "C" {

tev::lapack::gemm_team_fn<float> tev_lapack_sgemm_team;
tev::lapack::gemm_team_fn<double> tev_lapack_dgemm_team;
tev::lapack::gemm_team_fn<tev_complex8> tev_lapack_cgemm_team;
tev::lapack::gemm_team_fn<tev_complex16> tev_lapack_zgemm_team;

// Between these two the calling thread's library calls are single-threaded: each thread calls them at the start and at
// the end of its share of a worker's parallel region.
void tev_lapack_omp_parallel_enter(void);
void tev_lapack_omp_parallel_exit(void);

}  // extern "C"
