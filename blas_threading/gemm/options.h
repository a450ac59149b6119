// SPDX-License-Identifier: BSD-3-Clause
// How one matrix product is divided among the threads of a team: the record that the driver, the partitioners and the
// work routines share. It starts as zeros; the front end fills tier, threads and reproducibility; the tier routine
// decides the grid; each thread of the region works on its own copy.
#pragma once

#include <cstdint>

#include "blas_threading/team/barrier.h"
#include "kernels/records.h"

namespace tev::blas {

using kernels::operand;

// Partition modes.
inline constexpr int32_t kByRows = 0, kByColumns = 1, kGridByColumns = 2, kGridByRows = 3, kByDepthGroups = 4,
                         kByDepth = 5, kLookaheadSplit = 6;

// Copy strategies: which work routine runs.
inline constexpr int32_t kOwnPanels = 0,  // omp_no_parallel_copy
    kSharedA = 1,                         // omp_parallel_acopy
    kSharedALookahead = 2,                // omp_parallel_acopy_lookahead
    kSharedAB = 4,                        // omp_parallel_abcopy
    kNoPanels = 5;                        // omp_driver_nocopy

// Chunk rules of the partitioners.
inline constexpr int32_t kEvenChunks = 0, kBalancedChunks = 1, kBlockChunks = 2;

// One per group of threads, beside its barrier_block: the packed panels that they share. Zero before use. The last two
// belong to the team and are used in entry 0 only.
struct alignas(128) shared_buffer {
  kernels::buffers buffers;
  struct work_queue* queue;  // of the lookahead (gemm/lookahead.h)
  int32_t failed;            // an allocation failed
};

// What the decisions need to know of the machine. Read once per call: threads that asked for themselves could get
// different answers and wait for each other forever.
struct machine_facts {
  int64_t cores;         // physical, at least 1
  uint64_t fast_memory;  // bytes of fast memory still allowed; all ones: no limit
  int32_t vesta;         // tev_serv_cpuisvesta()
  int32_t dynamic;       // tev_serv_get_dynamic()
};

struct thread_options {
  machine_facts machine;      //                                                W front end
  int32_t tier;               // type code: 5 avx2, 6 avx512_zel, 7 avx512      W front end
  int32_t reproducibility;    // tev_serv_cbwr_get(1)                           W front end
  int64_t thread;             // number in the team                             W region
  int64_t threads;            // P; then the threads that do work               W front end, tier routine, partitioners
  int64_t active;             // copy of P as finally chosen; 0 means P         W tier routine
  int32_t lookahead_group;    // 2 or 4                                         W tier routine
  int32_t lookahead_variant;  // 1 or 2                                         W tier routine
  int64_t pr, pc, pk;         // grid rows, grid columns, parts of k            W tier routine, partition_2d
  int32_t fast_memory;        // 1: the working set fits the fast memory        W tier routine
  int32_t spin_limit;         // attempts before a waiting thread yields        W tier routine
  int64_t remainder;          // of the balanced rule, for work routines that count the longer chunks
  int32_t partition_mode;
  int32_t copy_strategy;
  int32_t chunk_rule;
  int32_t group_of_two;      // 1 when lookahead_group is 2: for work routines that know groups of two and four only
  int32_t force_group_four;  // 1: groups of four. For drivers that know the fast memory to be taken; ours do not
  int32_t group, neighbour;  // indices into the synchronisation arrays: own group, the one beside it
  int64_t chunk_m, chunk_n, chunk_k;  // of the no-copy grid: multiple of 8, any, multiple of 4
  barrier_block* barrier[2];          // of `group` and `neighbour`            W region
  shared_buffer* shared[2];
  int32_t* failed;  // failure flag of the team
};

}  // namespace tev::blas
