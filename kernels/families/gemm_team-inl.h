// SPDX-License-Identifier: BSD-3-Clause
// A product by a team of threads that is already running. All threads call with the same arguments but their number.
//
//   for pc in steps of kc
//     for ic in steps of mc
//       every thread packs its share of the strips of op(A)(ic, pc) into the panel that all share
//       -- barrier --
//       every thread multiplies the panel by its own columns of op(B), packed into its own panel
//       -- barrier --
//
// With fewer strips of columns than threads each thread takes rows of C instead and shares nothing.
#pragma once

#include "kernels/families/gemm_driver-inl.h"
#include "service/work_split.h"

namespace tev::TEV_TIER {

// What one thread knows, one block of kTeamRecordBytes per thread. Thread 0's is read by all.
inline constexpr int64_t kTeamRecordBytes = 6464;

template <class T>
struct team_record {
  buffers a;                // thread 0: the shared panel of A                W whoever comes first, under the lock
  buffers b;                // the thread's own panel of B
  int32_t lock;             // thread 0: guards the making of `a`
  int32_t short_of_memory;  // thread 0: set by any thread before the first barrier, read after it
};

template <class T>
struct team_product {
  const operation<T>& op;
  const kernel_info<T>& info;
  int64_t ithr, nthr;
  void* barrier;
  team_record<T>* records;

  TEV_INLINE team_record<T>& shared() const { return records[0]; }
  TEV_INLINE team_record<T>& own() const {
    return *reinterpret_cast<team_record<T>*>(reinterpret_cast<char*>(records) + ithr * kTeamRecordBytes);
  }
  TEV_INLINE void meet() const { tev_barrier_wait(barrier, ithr, nthr); }
};

// The thread's part of `length`, in whole blocks.
template <class T>
TEV_INLINE int64_t share_of(const team_product<T>& team, int64_t length, int64_t block, int64_t* start) {
  int64_t count = 0;
  *start = tev_serv_divbythreadsnb(&team.ithr, &team.nthr, &length, &block, &count);
  return count;
}

// Both panels: the shared one by the first thread to come.
template <class T>
TEV_INLINE void get_panels(const team_product<T>& team) {
  team_record<T>& all = team.shared();
  strategy plan = team.info.plan;
  plan.strategy_code = kACopied;
  initialize_buffers<T>(&team.op.a, &team.op.b, &plan, &team.own().b);
  bool failed = team.own().b.get(&team.own().b) != 0;

  tev_serv_lock(&all.lock);
  if (all.a.base == nullptr) {
    initialize_buffers<T>(&team.op.a, &team.op.b, &plan, &all.a);
    all.a.mode = 1;
    failed |= all.a.get(&all.a) != 0;
  }
  if (failed) all.short_of_memory = 1;
  tev_serv_unlock(&all.lock);
}

template <class T>
TEV_INLINE void multiply_shared(const team_product<T>& team) {
  const buffers& shared = team.shared().a;
  const operation<T>& op = team.op;
  const T one = one_of<T>();
  int64_t j = 0;
  const int64_t columns = share_of(team, op.n, team.info.plan.nr, &j);
  for (int64_t p = 0; p < op.k; p += shared.kc) {
    const int64_t depth = min_of(shared.kc, op.k - p);
    for (int64_t i = 0; i < op.m; i += shared.mc) {
      const int64_t rows = min_of(shared.mc, op.m - i);
      int64_t first = 0;
      const int64_t packed_rows = share_of(team, rows, team.info.plan.mr, &first);
      if (packed_rows > 0) {
        const operand source = block_of(&op.a, i + first, p, packed_rows, depth);
        packed to = {static_cast<T*>(shared.a.data) + first * depth, 0, 0};
        team.info.copy_a(&source, &to, &one);
      }
      team.meet();
      if (columns > 0) {
        const operand b = block_of(&op.b, 0, j, op.k, columns), c = block_of(&op.c, 0, j, op.m, columns);
        multiply_panel(&op, static_cast<const T*>(shared.a.data), i, rows, &b, p, depth, p == 0 ? &op.beta : &one, &c,
                       &team.own().b, &team.info);
      }
      team.meet();
    }
  }
}

// Some rows of C for each thread.
template <class T>
TEV_INLINE void multiply_alone(const team_product<T>& team, gemm_fn<T>* gemm) {
  const operation<T>& op = team.op;
  int64_t i = 0;
  const int64_t rows = share_of(team, op.m, team.info.plan.mr, &i);
  if (rows == 0) return;
  const operand a = block_of(&op.a, i, 0, rows, op.k), c = block_of(&op.c, i, 0, rows, op.n);
  call_on_operands(gemm, &op, &a, &op.b, &c);
}

// Returns 1, having computed nothing, when there is no memory for the records. `board`: a word of the team's, where
// thread 0 leaves the records for the others. `gemm` computes a product by one thread.
template <class T>
TEV_INLINE int32_t team_gemm(const operation<T>& op, const kernel_info<T>& info, int64_t ithr, int64_t nthr,
                             void* barrier, void** board, gemm_fn<T>* gemm) {
  static_assert(sizeof(team_record<T>) <= kTeamRecordBytes);
  if (ithr == 0) {
    *board = tev_serv_allocate(nthr * kTeamRecordBytes, 128);
    if (*board != nullptr) __builtin_memset(*board, 0, static_cast<size_t>(nthr * kTeamRecordBytes));
  }
  team_product<T> team = {op, info, ithr, nthr, barrier, nullptr};
  team.meet();
  team.records = static_cast<team_record<T>*>(*board);
  if (team.records == nullptr) {
    team.meet();
    return 1;
  }

  const bool shares = op.k > 0 && !is_zero(op.alpha) && op.n >= nthr * info.plan.nr;
  if (shares) get_panels(team);
  team.meet();
  if (shares && team.shared().short_of_memory == 0) {
    multiply_shared(team);
  } else {
    multiply_alone(team, gemm);
    team.meet();
  }
  if (shares) free_bufs<T>(&team.own().b);
  if (ithr == 0) {
    if (shares) free_bufs<T>(&team.shared().a);
    tev_serv_deallocate(team.records);
    *board = nullptr;
  }
  team.meet();
  return 0;
}

}  // namespace tev::TEV_TIER
