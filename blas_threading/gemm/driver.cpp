// SPDX-License-Identifier: BSD-3-Clause
// The parallel drivers: one region each. The grid is decided once, before the fork; a team that turns out smaller than
// asked for decides again, every thread alike, for the size that it has. k is at least 1 and alpha not 0 here: those
// products are only a scaling of C.
#include "blas_threading/gemm/driver.h"

#include <omp.h>

#include <cstring>

#include "blas_threading/gemm/copy_decision.h"
#include "blas_threading/gemm/grid.h"
#include "blas_threading/gemm/team.h"
#include "blas_threading/gemm/work.h"

namespace tev::blas {

namespace {

// Teams up to this size find their shared words on the caller's stack; larger ones that get no memory shrink to it.
constexpr int64_t kTeamOnStack = 16;

// Never more threads than the runtime would give: the counts may come from the environment.
int64_t possible_team(int64_t threads) { return std::clamp<int64_t>(threads, 1, std::max(omp_get_thread_limit(), 1)); }

// `count` zeroed entries: the array on the caller's stack where they fit, else memory to be deallocated. Null: none.
template <class Entry, size_t N>
Entry* zeroed_entries(Entry (&on_stack)[N], int64_t count) {
  Entry* entries = on_stack;
  const auto bytes = static_cast<int64_t>(sizeof(Entry)) * count;
  if (count > static_cast<int64_t>(N)) entries = static_cast<Entry*>(tev_serv_allocate(bytes, alignof(Entry)));
  if (entries != nullptr) std::memset(static_cast<void*>(entries), 0, static_cast<size_t>(bytes));
  return entries;
}
template <class Entry, size_t N>
void release_entries(Entry (&on_stack)[N], Entry* entries) {
  if (entries != on_stack) tev_serv_deallocate(entries);
}

// ---- Blocks of C in place ------------------------------------------------------------------------------------------

// Block number b of part number p of k is item b + p * blocks: chunk_m x chunk_n at the block's place of the grid.
template <class T>
struct in_place_product {
  const operation<T>& problem;
  const operand &a, &b, &c;
  const thread_options& options;
  const kernel_info<T> info;
  struct alignas(64) flag {
    uint32_t computed;
  };
  flag* flags;  // one per item, when k is split
  T* partials;  // blocks of chunk_m x chunk_n: those of the second share of k, then of the third ...

  int64_t blocks() const { return options.pr * options.pc; }
  int64_t items() const { return blocks() * options.pk; }
  int64_t block_size() const { return options.chunk_m * options.chunk_n; }

  operand block(int64_t item) const {
    const int64_t index = item % blocks();
    const int64_t i = index % options.pr * options.chunk_m, j = index / options.pr * options.chunk_n;
    return block_of(c, i, j, std::clamp<int64_t>(c.rows - i, 0, options.chunk_m),
                    std::clamp<int64_t>(c.columns - j, 0, options.chunk_n));
  }

  void compute(int64_t item) const {
    const int64_t part = item / blocks(), p = part * options.chunk_k;
    const int64_t depth = std::clamp<int64_t>(a.columns - p, 0, options.chunk_k);
    operand target = block(item);
    const int64_t i = target.row_offset - c.row_offset, j = target.column_offset - c.column_offset;
    operation<T> own = problem;
    if (part > 0) {
      own.beta = element_of<T>(0);
      target.data = partials + (item - blocks()) * block_size();
      target.ld = options.chunk_m;
    }
    compute_by_driver(own, block_of(a, i, p, target.rows, depth), block_of(b, p, j, depth, target.columns), target,
                      info);
    if (options.pk > 1) __atomic_store_n(&flags[item].computed, 1, __ATOMIC_RELEASE);
  }

  // When all parts of the block are there: the item's share of their sum.
  void add(int64_t item) const {
    const int64_t index = item % blocks();
    for (int64_t part = 0; part < options.pk; ++part)
      wait_for_work<uint32_t>(&flags[index + part * blocks()].computed, 1, options.spin_limit);
    add_parts(block(item), partials + index * block_size(), options.chunk_m, blocks() * block_size(), options.pk - 1,
              item / blocks(), options.pk);
  }
};

}  // namespace

template <class T>
void omp_driver_nocopy(const operation<T>& problem, operand a, operand b, operand c, thread_options options) {
  options.threads = possible_team(options.threads);
  options.copy_strategy = kNoPanels;
  set_thread_opts(shape_of(problem, a, b, c), options);
  using product = in_place_product<T>;
  product work = {problem, a, b, c, options, info_of(narrowed(problem, a, b, c)), nullptr, nullptr};
  typename product::flag on_stack[kTeamOnStack];
  if (options.pk > 1) {
    const int64_t bytes = work.block_size() * work.blocks() * (options.pk - 1) * static_cast<int64_t>(sizeof(T));
    work.partials = static_cast<T*>(tev_serv_allocate(bytes, 4096));
    work.flags = zeroed_entries(on_stack, work.items());
    if (work.partials == nullptr || work.flags == nullptr) {
      options.pk = 1;
      options.chunk_k = a.columns;
    }
  }
  run_team(possible_team(std::max(options.threads, work.items())), [&](int64_t first, int64_t step) {
    // A smaller team takes several items each; nobody waits before all of its own are computed.
    for (int64_t item = first; item < work.items(); item += step) work.compute(item);
    if (options.pk > 1)
      for (int64_t item = first; item < work.items(); item += step) work.add(item);
  });
  if (work.flags != nullptr) release_entries(on_stack, work.flags);
  tev_serv_deallocate(work.partials);
}

template <class T>
void gemm_omp_driver_v2(const operation<T>& problem, operand a, operand b, operand c, thread_options options) {
  const product_shape shape = shape_of(problem, a, b, c);
  if constexpr (!kComplex<T>)
    if (problem.code == kernels::kOpGemm &&
        !wants_panels(options.tier, shape, options.threads, options.machine.vesta != 0))
      return omp_driver_nocopy(problem, a, b, c, options);

  options.threads = possible_team(options.threads);
  barrier_block barriers_on_stack[kTeamOnStack / 2 + 3];
  shared_buffer shared_on_stack[kTeamOnStack / 2 + 3];
  barrier_block* barriers = zeroed_entries(barriers_on_stack, sync_entries(options.threads));
  shared_buffer* shared = zeroed_entries(shared_on_stack, sync_entries(options.threads));
  if (barriers == nullptr || shared == nullptr) {
    release_entries(barriers_on_stack, barriers);
    release_entries(shared_on_stack, shared);
    options.threads = kTeamOnStack;
    barriers = zeroed_entries(barriers_on_stack, sync_entries(options.threads));
    shared = zeroed_entries(shared_on_stack, sync_entries(options.threads));
  }
  thread_options decided = options;
  set_thread_opts(shape, decided);
  run_team(options.threads, [&](int64_t thread, int64_t team) {
    if (team == 1) {
      compute_alone(problem, a, b, c);
    } else {
      thread_options own = decided;
      if (team != options.threads) {
        own = options;
        own.threads = team;
        set_thread_opts(shape, own);
      }
      own.thread = thread;
      compute_share(problem, a, b, c, own, barriers, shared);
    }
  });
  release_entries(barriers_on_stack, barriers);
  release_entries(shared_on_stack, shared);
}

#define TEV_INSTANTIATE(p, T) \
  template void gemm_omp_driver_v2(const operation<T>&, operand, operand, operand, thread_options);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE
template void omp_driver_nocopy(const operation<float>&, operand, operand, operand, thread_options);
template void omp_driver_nocopy(const operation<double>&, operand, operand, operand, thread_options);

}  // namespace tev::blas
