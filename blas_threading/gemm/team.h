// SPDX-License-Identifier: BSD-3-Clause
// What the work routines of a product have in common: blocks of operands, panels packed in slices by several threads,
// meeting at a barrier, giving up together when memory is short.
//
// A packed panel holds strips of plan.mr rows (A) or plan.nr columns (B), each `depth` deep and one after the other, so
// a slice that starts at a whole strip lies at start * depth elements:
//
//   |strip 0 |strip 1 |strip 2 |strip 3 |..        slices of three threads, two strips each: |0 1|2 3|4 ..
//   0        mr depth 2 mr depth
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/alone.h"
#include "blas_threading/element.h"
#include "blas_threading/gemm/options.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/operands.h"
#include "blas_threading/team/team.h"
#include "blas_threading/team/waiting.h"
#include "service/xerbla.h"
#include "tev/service.h"

namespace tev::blas {

using kernels::buffers;
using kernels::strategy;

// Rows [row, row + rows) and k [p, p + depth) of op(A) into their place in a panel that begins with row 0 of `a`'s
// chunk `chunk`. alpha is B's.
template <class T>
void pack_a(const kernel_info<T>& info, const operand& a, int64_t chunk, const span& rows, int64_t p, int64_t depth,
            void* panel) {
  if (rows.begin >= rows.end) return;
  const operand source = block_of(a, chunk + rows.begin, p, rows.end - rows.begin, depth);
  kernels::packed target = {static_cast<T*>(panel) + rows.begin * depth, 0, 0};
  const T one = element_of<T>(1);
  info.copy_a(&source, &target, &one);
}

template <class T>
void pack_b(const kernel_info<T>& info, const operand& b, int64_t chunk, const span& columns, int64_t p, int64_t depth,
            T alpha, void* panel) {
  if (columns.begin >= columns.end) return;
  const operand source = block_of(b, p, chunk + columns.begin, depth, columns.end - columns.begin);
  kernels::packed target = {static_cast<T*>(panel) + columns.begin * depth, 0, 0};
  info.copy_b(&source, &target, &alpha);
}

// ---- Memory --------------------------------------------------------------------------------------------------------

inline constexpr int32_t kAOnly = 1, kBOnly = 2;  // buffers::mode

// Gives `buffers` one panel of `extent` rows or columns. No memory: the team's flag is set, the base stays null.
inline void get_panel(int32_t mode, int64_t extent, buffers& panels, int32_t* failed) {
  panels.mode = mode;
  (mode == kAOnly ? panels.mc : panels.nc) = extent;
  (mode == kAOnly ? panels.a : panels.b).extent = extent;
  panels.get(&panels);
  if (panels.base == nullptr) __atomic_store_n(failed, 1, __ATOMIC_RELEASE);
}

inline void free_panels(buffers& panels) {
  if (panels.base != nullptr) panels.free(&panels);
}

inline bool has_failed(const thread_options& options) { return __atomic_load_n(options.failed, __ATOMIC_ACQUIRE) != 0; }

// ---- Meeting -------------------------------------------------------------------------------------------------------

inline void meet(barrier_block* barrier, int64_t rank, int64_t team) {
  if (team > 1) tev_barrier_wait(barrier, rank, team);
}
inline void meet_team(const thread_options& options) { meet(options.barrier[0], options.thread, options.threads); }

// Waits until another thread has raised *word to `target`.
template <class Word>
void wait_for_work(const Word* word, Word target, int32_t spin_limit) {
  wait_until([=] { return __atomic_load_n(word, __ATOMIC_ACQUIRE) >= target; }, spin_limit);
}

// ---- Alone ---------------------------------------------------------------------------------------------------------

// What the sharing routines do when a panel could not be had.
template <class T>
void give_up_sharing(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                     const thread_options& options, const kernel_info<T>& info) {
  constexpr char kName[] = {element<T>::kLetter, 'G', 'E', 'M', 'M', 0};
  if (options.thread == 0) tev_serv_check_ptr_and_warn(nullptr, kName);
  if (c.rows < 1 || c.columns < 1) return;
  buffers none = {};
  info.fallback(&problem, &a, &b, &c, &none, &info);
}

}  // namespace tev::blas
