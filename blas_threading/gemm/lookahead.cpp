// SPDX-License-Identifier: BSD-3-Clause
// The product with a queue of packing and multiplying: see gemm/lookahead.h.
#include "blas_threading/gemm/lookahead.h"

#include <cstring>

#include "blas_threading/gemm/team.h"
#include "blas_threading/gemm/work.h"

namespace tev::blas {

namespace {

// Tickets per thread and panel: enough that a thread that was held up for one leaves the others work.
constexpr int64_t kTicketsPerThread = 4;

void finish_one(work_queue::counter& counter) { __atomic_fetch_add(&counter.value, 1, __ATOMIC_RELEASE); }

int64_t queue_bytes(const lookahead_plan& plan) {
  return static_cast<int64_t>(sizeof(work_queue)) + plan.chunks * plan.tiles() * static_cast<int64_t>(sizeof(uint64_t));
}

// One thread at its tickets.
template <class T>
class worker {
 public:
  worker(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
         const thread_options& options, const kernel_info<T>& info, const lookahead_plan& plan, buffers& own)
      : problem_(problem), a_(a), b_(b), c_(c), options_(options), info_(info), plan_(plan), own_(own) {
    queue_ = options.shared[0]->queue;
    progress_ = reinterpret_cast<uint64_t*>(queue_ + 1);
  }

  // Takes and does the next piece of work; false when there is none left.
  bool do_work() {
    const auto ticket = static_cast<int64_t>(__atomic_fetch_add(&queue_->tickets.value, 1, __ATOMIC_RELAXED));
    if (ticket < plan_.pieces) return pack(0, ticket), true;
    const int64_t step = plan_.tiles() + plan_.pieces;
    const int64_t panel = (ticket - plan_.pieces) / step, index = (ticket - plan_.pieces) % step;
    if (panel >= plan_.panels()) return false;
    const int64_t before_packing = plan_.tiles() / 2, piece = index - before_packing;
    if (piece < 0) return multiply(panel, index), true;
    if (piece >= plan_.pieces) return multiply(panel, index - plan_.pieces), true;
    if (panel + 1 < plan_.panels()) pack(panel + 1, piece);
    return true;
  }

 private:
  // Panels of one stretch of k, chunk after chunk, then those of the next.
  int64_t depth_start(int64_t panel) const { return panel / plan_.chunks * plan_.depth; }
  int64_t depth(int64_t panel) const { return std::min(plan_.depth, a_.columns - depth_start(panel)); }
  int64_t chunk_start(int64_t panel) const { return panel % plan_.chunks * plan_.chunk; }
  int64_t chunk_rows(int64_t panel) const { return std::min(plan_.chunk, a_.rows - chunk_start(panel)); }
  T* slot(int64_t panel) const {
    return static_cast<T*>(options_.shared[0]->buffers.a.data) + panel % 2 * plan_.chunk * plan_.depth;
  }

  // Waits until `per_panel` things were done to each panel of the slot up to this one.
  void wait_for_slot(const work_queue::counter* counters, int64_t panel, int64_t per_panel) const {
    const auto target = static_cast<uint64_t>((panel / 2 + 1) * per_panel);
    wait_for_work(&counters[panel % 2].value, target, options_.spin_limit);
  }

  void pack(int64_t panel, int64_t piece) const {
    if (panel >= 2) wait_for_slot(queue_->computed, panel - 2, plan_.tiles());
    const int64_t start = piece * plan_.piece, end = std::min(start + plan_.piece, chunk_rows(panel));
    pack_a(info_, a_, chunk_start(panel), {start, end}, depth_start(panel), depth(panel), slot(panel));
    finish_one(queue_->packed[panel % 2]);
  }

  void multiply(int64_t panel, int64_t tile) {
    wait_for_slot(queue_->packed, panel, plan_.pieces);
    const auto taken_in = static_cast<uint64_t>(panel / plan_.chunks);
    uint64_t* const progress = progress_ + panel % plan_.chunks * plan_.tiles() + tile;
    wait_for_work(progress, taken_in, options_.spin_limit);
    multiply_tile(panel, tile % plan_.slices * plan_.slice, tile / plan_.slices * plan_.width);
    __atomic_store_n(progress, taken_in + 1, __ATOMIC_RELEASE);
    finish_one(queue_->computed[panel % 2]);
  }

  void multiply_tile(int64_t panel, int64_t row, int64_t column) {
    const int64_t rows = std::min(plan_.slice, chunk_rows(panel) - row);
    if (rows <= 0) return;
    const int64_t columns = std::min(plan_.width, b_.columns - column), p = depth_start(panel);
    const operand a_block = block_of(a_, chunk_start(panel) + row, p, rows, depth(panel));
    const operand b_block = block_of(b_, p, column, depth(panel), columns);
    const operand c_block = block_of(c_, chunk_start(panel) + row, column, rows, columns);
    operation<T> step = problem_;
    if (p > 0) step.beta = element_of<T>(1);
    own_.a.data = slot(panel) + row * depth(panel);
    info_.packed_product(&step, &a_block, &b_block, &c_block, &own_, &info_);
  }

  const operation<T>& problem_;
  const operand &a_, &b_, &c_;
  const thread_options& options_;
  const kernel_info<T>& info_;
  const lookahead_plan& plan_;
  buffers& own_;  // the panel of B
  work_queue* queue_;
  uint64_t* progress_;
};

// The slots and the queue, by whichever thread comes first.
void provide_shared(const lookahead_plan& plan, const buffers& proposal, const thread_options& options) {
  shared_buffer& shared = *options.shared[0];
#pragma omp critical(tev_blas_dgemm_omp_acopy_la_cs)
  if (shared.queue == nullptr && !has_failed(options)) {
    shared.buffers = proposal;
    get_panel(kAOnly, 2 * plan.chunk, shared.buffers, options.failed);
    void* const queue = tev_serv_allocate(queue_bytes(plan), alignof(work_queue));
    if (queue == nullptr) {
      __atomic_store_n(options.failed, 1, __ATOMIC_RELEASE);
    } else {
      std::memset(queue, 0, static_cast<size_t>(queue_bytes(plan)));
      shared.queue = static_cast<work_queue*>(queue);
    }
  }
}

}  // namespace

lookahead_plan plan_lookahead(int64_t m, int64_t n, int64_t k, const buffers& proposal, const strategy& strategy,
                              const thread_options& options) {
  const int64_t group = std::max<int32_t>(options.lookahead_group, 1);
  const int64_t variant = std::max<int32_t>(options.lookahead_variant, 1);
  const int64_t tickets = kTicketsPerThread * options.threads, mr = strategy.mr, nr = strategy.nr;
  lookahead_plan plan;
  plan.depth = proposal.kc;
  plan.depths = ceil_div(k, plan.depth);
  plan.chunk = group * proposal.mc <= m ? group * proposal.mc : round_up(m, mr);
  plan.chunks = ceil_div(m, plan.chunk);
  plan.piece = round_up(ceil_div(plan.chunk, tickets), mr);
  plan.pieces = ceil_div(plan.chunk, plan.piece);
  plan.slice = round_up(ceil_div(plan.chunk, group * variant), mr);
  plan.slices = ceil_div(plan.chunk, plan.slice);
  // As wide as a panel of B may be, but at least a quarter of that, if so every thread gets its tickets.
  const int64_t wanted = ceil_div(n * plan.slices, tickets);
  const int64_t widest = std::clamp(wanted, ceil_div(proposal.nc, 4), proposal.nc);
  plan.width = round_up(ceil_div(n, ceil_div(n, widest)), nr);
  plan.columns = ceil_div(n, plan.width);
  return plan;
}

template <class T>
void omp_parallel_acopy_lookahead(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                                  const thread_options& options, const kernel_info<T>& info) {
  strategy packed_a = info.plan;
  packed_a.strategy_code = kernels::kACopied;
  buffers own;
  kernel_calls<T>::initialize_buffers(&a, &b, &packed_a, &own);
  const lookahead_plan plan = plan_lookahead(a.rows, b.columns, a.columns, own, info.plan, options);
  provide_shared(plan, own, options);
  get_panel(kBOnly, own.nc, own, options.failed);
  meet_team(options);

  if (has_failed(options)) {
    const span share = part_of(options.thread, options.threads, c.columns, info.plan.nr);
    give_up_sharing(problem, a, columns_of(b, share), columns_of(c, share), options, info);
  } else {
    worker<T> self(problem, a, b, c, options, info, plan, own);
    while (self.do_work()) continue;
  }
  free_panels(own);
  meet_team(options);
  if (options.thread != 0) return;
  free_panels(options.shared[0]->buffers);
  tev_serv_deallocate(options.shared[0]->queue);
}

#define TEV_INSTANTIATE(p, T)                                                                                     \
  template void omp_parallel_acopy_lookahead(const operation<T>&, const operand&, const operand&, const operand&, \
                                             const thread_options&, const kernel_info<T>&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
