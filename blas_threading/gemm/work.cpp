// SPDX-License-Identifier: BSD-3-Clause
// The work routines that divide a product into equal shares, and the step before: which share, which routine.
#include "blas_threading/gemm/work.h"

#include "blas_threading/gemm/partition.h"
#include "blas_threading/gemm/team.h"

namespace tev::blas {

namespace {

// Rows of A in one shared panel: the blocks of up to ten threads together, or all there are.
int64_t shared_rows(int64_t m, int64_t proposed, int64_t threads, int64_t mb) {
  const int64_t together = std::min<int64_t>(threads, 10) * proposed;
  return together <= m ? together : round_up(m, mb);
}

// Most rows, and most columns, of a panel that a row or a column of the grid shares: 15 MB at depth 384 in double.
constexpr int64_t kSharedExtent = 4992;

// The part of a chunk that starts at `start` of `extent`; chunks past the end are empty.
int64_t chunk_size(int64_t extent, int64_t start, int64_t chunk) {
  return std::clamp<int64_t>(extent - start, 0, chunk);
}

struct grid_place {
  int64_t row, column;
};
grid_place place_of(const thread_options& o) {
  if (o.partition_mode == kGridByRows) return {o.thread / o.pc, o.thread % o.pc};
  return {o.thread % o.pr, o.thread / o.pr};
}

// The threads that pack one operand of the grid together.
struct packing_group {
  barrier_block* barrier;
  int64_t rank, size;
  void wait() const { meet(barrier, rank, size); }
};

// beta for the panel of k that starts at p: later panels add to what the first has left in C.
template <class T>
T beta_at(int64_t p, T beta) {
  return p == 0 ? beta : element_of<T>(1);
}

// C(rows x columns of the chunks) from both packed panels, as many columns at a time as stay in the second cache.
template <class T>
void multiply_packed(const operand& c, int64_t depth, const void* a_panel, const void* b_panel, int64_t columns_at_once,
                     T beta, const kernel_info<T>& info) {
  for (int64_t j = 0; j < c.columns && c.rows > 0; j += columns_at_once) {
    const operand block = block_of(c, 0, j, c.rows, std::min(columns_at_once, c.columns - j));
    info.ker0(&depth, static_cast<const T*>(a_panel), static_cast<const T*>(b_panel) + j * depth, &beta, &block);
  }
}

}  // namespace

template <class T>
void omp_no_parallel_copy(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                          const thread_options&, const kernel_info<T>& info) {
  compute_by_driver(problem, a, b, c, info);
}

template <class T>
void omp_parallel_acopy(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                        const thread_options& options, const kernel_info<T>& info) {
  const bool leads = options.thread == 0;
  const int64_t active = options.active > 0 ? std::min(options.active, options.threads) : options.threads;
  buffers& shared = options.shared[0]->buffers;
  strategy plan = info.plan;
  plan.strategy_code = kernels::kACopied;
  buffers own;
  kernel_calls<T>::initialize_buffers(&a, &b, &plan, &own);
  const int64_t extent = shared_rows(a.rows, own.mc, options.threads, plan.mr);
  if (leads) {
    shared = own;
    get_panel(kAOnly, extent, shared, options.failed);
  }
  own.mc = own.a.extent = extent;
  get_panel(kBOnly, own.nc, own, options.failed);
  meet_team(options);

  if (has_failed(options)) {
    give_up_sharing(problem, a, b, c, options, info);
  } else {
    own.a.data = shared.a.data;
    operation<T> step = problem;
    for (int64_t p = 0; p < a.columns; p += own.kc) {
      const int64_t depth = std::min(own.kc, a.columns - p);
      step.beta = beta_at(p, problem.beta);
      for (int64_t i = 0; i < a.rows; i += extent) {
        const int64_t rows = std::min(extent, a.rows - i);
        const int64_t slice = round_up(ceil_div(rows, active), plan.mr), start = options.thread * slice;
        meet_team(options);
        if (options.thread < active) pack_a(info, a, i, {start, std::min(start + slice, rows)}, p, depth, own.a.data);
        meet_team(options);
        if (c.columns < 1) continue;
        const operand a_block = block_of(a, i, p, rows, depth), b_block = block_of(b, p, 0, depth, b.columns);
        const operand c_block = block_of(c, i, 0, rows, c.columns);
        info.packed_product(&step, &a_block, &b_block, &c_block, &own, &info);
      }
    }
  }
  free_panels(own);
  meet_team(options);
  if (leads) free_panels(shared);
}

// The grid's panels, in the rows and columns of threads that share them. Every thread makes the same number of steps,
// whatever its block, so that all meet at the same barriers: chunks are counted over the whole product.
//
//           column 0     column 1
//   row 0   thread 0     thread 1     pack A(0) together, entry 0 of the synchronisation arrays
//   row 1   thread 2     thread 3     pack A(1) together, entry 1
//           pack B(0)    pack B(1)
//           entry 2      entry 3
template <class T>
void omp_parallel_abcopy(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                         const thread_options& options, const kernel_info<T>& info) {
  const grid_place at = place_of(options);
  const packing_group a_group = {options.barrier[0], at.column, options.pc};
  const packing_group b_group = {options.barrier[1], at.row, options.pr};
  buffers& shared_a = options.shared[0]->buffers;
  buffers& shared_b = options.shared[1]->buffers;
  buffers proposal;
  kernel_calls<T>::initialize_buffers(&a, &b, &info.plan, &proposal);
  const int64_t row_chunks = ceil_div(problem.m, options.pr * kSharedExtent);
  const int64_t column_chunks = ceil_div(problem.n, options.pc * kSharedExtent);
  const int64_t chunk_m = round_up(std::max<int64_t>(ceil_div(a.rows, row_chunks), 1), info.plan.mr);
  const int64_t chunk_n = round_up(std::max<int64_t>(ceil_div(b.columns, column_chunks), 1), info.plan.nr);
  if (at.column == 0) {
    shared_a = proposal;
    get_panel(kAOnly, chunk_m, shared_a, options.failed);
  }
  if (at.row == 0) {
    shared_b = proposal;
    get_panel(kBOnly, chunk_n, shared_b, options.failed);
  }
  a_group.wait();  // a row, then a column: the whole team has arrived
  b_group.wait();

  if (has_failed(options)) {
    give_up_sharing(problem, a, b, c, options, info);
  } else {
    for (int64_t p = 0; p < a.columns; p += proposal.kc) {
      const int64_t depth = std::min(proposal.kc, a.columns - p);
      const T beta = beta_at(p, problem.beta);
      for (int64_t j = 0; j < column_chunks * chunk_n; j += chunk_n) {
        const int64_t columns = chunk_size(b.columns, j, chunk_n);
        for (int64_t i = 0; i < row_chunks * chunk_m; i += chunk_m) {
          const int64_t rows = chunk_size(a.rows, i, chunk_m);
          a_group.wait();
          if (i == 0) b_group.wait();
          pack_a(info, a, i, part_of(a_group.rank, a_group.size, rows, info.plan.mr), p, depth, shared_a.a.data);
          if (i == 0)
            pack_b(info, b, j, part_of(b_group.rank, b_group.size, columns, info.plan.nr), p, depth, problem.alpha,
                   shared_b.b.data);
          a_group.wait();
          if (i == 0) b_group.wait();
          if (rows > 0 && columns > 0)
            multiply_packed(block_of(c, i, j, rows, columns), depth, shared_a.a.data, shared_b.b.data, proposal.nc,
                            beta, info);
        }
      }
    }
  }
  a_group.wait();
  b_group.wait();
  if (at.column == 0) free_panels(shared_a);
  if (at.row == 0) free_panels(shared_b);
}

template <class T>
void add_parts(const operand& c, const T* partial, int64_t ld, int64_t stride, int64_t parts, int64_t rank,
               int64_t ranks) {
  const bool by_rows = c.rows > c.columns;
  const span share = part_of(rank, ranks, by_rows ? c.rows : c.columns, by_rows ? 8 : 1);
  const span rows = by_rows ? share : span{0, c.rows}, columns = by_rows ? span{0, c.columns} : share;
  const int64_t count = rows.end - rows.begin, step = 1;
  const T one = element_of<T>(1);
  T* const sum = static_cast<T*>(c.data) + rows.begin;
  for (int64_t j = columns.begin; j < columns.end && count > 0; ++j)
    for (int64_t part = 0; part < parts; ++part)
      kernel_calls<T>::xaxpy(&count, &one, partial + part * stride + rows.begin + j * ld, &step, sum + j * c.ld, &step);
}

// In mode kByDepth the share of A and B is a part of k already and C is one block; else the thread's part and block
// follow from its number. The first part works in C, with beta; the others in partial sums of their own, blocks of
// chunk_m x chunk_n one after the other, those of the second part first.
template <class T>
void gblock_by_k_omp(const operation<T>& problem, const operand& a, const operand& b, const operand& c,
                     const thread_options& options, const kernel_info<T>& info) {
  const bool split = options.partition_mode == kByDepth;
  const int64_t pr = split ? 1 : options.pr, pc = split ? 1 : options.pc, pk = split ? options.threads : options.pk;
  const int64_t part = options.thread / (pr * pc), block = options.thread % (pr * pc);
  const span rows = part_of(block % pr, pr, c.rows, info.plan.mr);
  const span columns = part_of(block / pr, pc, c.columns, info.plan.nr);
  const span depth = split ? span{0, a.columns} : part_of(part, pk, a.columns, 4);
  const operand c_block = block_of(c, rows.begin, columns.begin, rows.end - rows.begin, columns.end - columns.begin);

  if (pk == 1) return compute_by_driver(problem, rows_of(a, rows), columns_of(b, columns), c_block, info);

  void*& partials = options.shared[0]->buffers.base;
  const int64_t chunk_m = round_up(ceil_div(c.rows, pr), info.plan.mr);
  const int64_t chunk_n = round_up(ceil_div(c.columns, pc), info.plan.nr);
  const int64_t block_size = chunk_m * chunk_n, stride = block_size * pr * pc;
  if (options.thread == 0) {
    partials = tev_serv_allocate((pk - 1) * stride * static_cast<int64_t>(sizeof(T)), 4096);
    if (partials == nullptr) __atomic_store_n(options.failed, 1, __ATOMIC_RELEASE);
  }
  meet_team(options);

  if (has_failed(options)) {  // all of k, on a share of the block's columns
    const span share = part_of(part, pk, c_block.columns, 1);
    const operand whole_b = split ? problem.b : b;
    give_up_sharing(problem, rows_of(split ? problem.a : a, rows),
                    columns_of(whole_b, {columns.begin + share.begin, columns.begin + share.end}),
                    columns_of(c_block, share), options, info);
    return meet_team(options);
  }

  T* const sums = static_cast<T*>(partials) + block * block_size;
  operation<T> own = problem;
  operand target = c_block;
  if (part > 0) {
    own.beta = element_of<T>(0);
    target.data = sums + (part - 1) * stride;
    target.ld = chunk_m;
  }
  compute_by_driver(own, block_of(a, rows.begin, depth.begin, target.rows, depth.end - depth.begin),
                    block_of(b, depth.begin, columns.begin, depth.end - depth.begin, target.columns), target, info);
  meet_team(options);
  add_parts(c_block, sums, chunk_m, stride, pk - 1, part, pk);
  meet_team(options);
  if (options.thread == 0) tev_serv_deallocate(partials);
}

// ---- Which share, which routine ------------------------------------------------------------------------------------

namespace {

bool splits_depth(const thread_options& o) {
  return o.partition_mode == kByDepthGroups || o.partition_mode == kByDepth;
}

template <class T>
work_routine<T>* routine_of(const thread_options& o) {
  if (splits_depth(o)) return gblock_by_k_omp<T>;
  switch (o.copy_strategy) {
    case kSharedA:
      return omp_parallel_acopy<T>;
    case kSharedALookahead:
      return omp_parallel_acopy_lookahead<T>;
    case kSharedAB:  // a grid of one line has nobody to share the other operand with
      return o.pr > 1 && o.pc > 1 ? omp_parallel_abcopy<T> : omp_no_parallel_copy<T>;
    default:
      return omp_no_parallel_copy<T>;
  }
}

void narrow_depth(operand& a, operand& b, thread_options options, const strategy& plan) {
  options.partition_mode = kByColumns;
  const int64_t before = a.column_offset;
  partition_1d(a, options, plan);
  b = block_of(b, a.column_offset - before, 0, a.columns, b.columns);
}

void narrow(operand& a, operand& b, operand& c, thread_options& options, const strategy& plan) {
  switch (options.partition_mode) {
    case kByRows:
      partition_1d(a, options, plan);
      return partition_1d(c, options, plan);
    case kGridByColumns:
    case kGridByRows:
      return partition_2d(a, b, c, options, plan);
    case kByDepthGroups:
    case kLookaheadSplit:
      return;
    case kByDepth:
      return narrow_depth(a, b, options, plan);
    default:
      partition_1d(b, options, plan);
      return partition_1d(c, options, plan);
  }
}

// The entries that the thread meets others in: of its row and its column of the grid, or of the team.
void assign_groups(thread_options& options, bool in_grid, barrier_block* barriers, shared_buffer* shared) {
  const grid_place at = in_grid ? place_of(options) : grid_place{0, 0};
  options.group = static_cast<int32_t>(at.row);
  options.neighbour = static_cast<int32_t>(in_grid ? options.pr + at.column : 0);
  options.barrier[0] = barriers + options.group;
  options.barrier[1] = barriers + options.neighbour;
  options.shared[0] = shared + options.group;
  options.shared[1] = shared + options.neighbour;
  options.failed = &shared->failed;
}

}  // namespace

template <class T>
void compute_share(operation<T> problem, operand a, operand b, operand c, thread_options options,
                   barrier_block* barriers, shared_buffer* shared) {
  problem = narrowed(problem, a, b, c);
  const kernels::thread_info kind = {splits_depth(options) ? kOwnPanels : options.copy_strategy};
  strategy plan = {};
  kernel_calls<T>::map_thread_to_kernel(&kind, &plan);
  kernel_info<T> info;
  kernel_calls<T>::initialize_kernel_info(&problem, &a, &b, &c, &plan, &info);
  narrow(a, b, c, options, plan);
  if (options.thread >= options.threads) return;
  work_routine<T>* const routine = routine_of<T>(options);
  assign_groups(options, routine == omp_parallel_abcopy<T>, barriers, shared);
  routine(problem, a, b, c, options, info);
}

#define TEV_INSTANTIATE(p, T)                                                                          \
  template void compute_share(operation<T>, operand, operand, operand, thread_options, barrier_block*, \
                              shared_buffer*);                                                         \
  template void add_parts(const operand&, const T*, int64_t, int64_t, int64_t, int64_t, int64_t);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
