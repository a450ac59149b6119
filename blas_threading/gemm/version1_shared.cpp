// SPDX-License-Identifier: BSD-3-Clause
// The memory of one product, got before the team forms:
//
//   | arrivals in group 0 | in group 1 |..| panels of A | panels of B |
//
// A panel holds `chunk` rows of A or columns of B, the grid's parts one after the other; each begins at its place for
// full depth, so that a thread in the last, shallow panel of k stays clear of its neighbours' parts. Within a part the
// strips are as deep as the panel of k. Products that are larger than the panels are computed chunk by chunk, each with
// the whole team; k goes in order in each, and only its first panel takes beta.
#include "blas_threading/gemm/version1_shared.h"

#include <cstring>

#include "blas_threading/gemm/team.h"
#include "blas_threading/gemm/version1.h"
#include "kernels/dispatch/version1_kernels.h"

namespace tev::blas {

namespace {

using kernels::make_result;

constexpr int64_t kDepthUnit = 4;              // steps of k
constexpr int64_t kMostPanelBytes = 32 << 20;  // of all panels of one side
constexpr int64_t kAlignment = 128;

// A thread that waits for a late one gives its processor away after some ten microseconds: what sharing saves is less
// than what a longer wait costs where the late one has no processor.
constexpr int32_t kTurnsBeforeYield = 256;

// Columns of B that stay in the second cache while the rows of A pass by, 384 KiB with the deepest panel.
template <class T>
constexpr int64_t kColumnsAtOnce = 1536 / static_cast<int64_t>(sizeof(T));

// `length` in the fewest equal steps of at most `most`, which is a multiple of `unit`.
int64_t even_step(int64_t length, int64_t most, int64_t unit) {
  return round_up(ceil_div(length, ceil_div(length, most)), unit);
}

span part_of(const span& whole, int64_t tile, int64_t i, int64_t parts) {
  const int64_t length = whole.end - whole.begin;
  return {whole.begin + tile_edge(length, tile, i, parts), whole.begin + tile_edge(length, tile, i + 1, parts)};
}

// A or B: `across` counts rows of A or columns of B.
template <class T>
struct packed_side {
  operand source;
  bool is_a;
  kernels::copy_fn<T>* copy;
  T scalar;
  int64_t extent, tile;  // across
  int64_t parts, users;  // of the grid; threads that multiply by one part
  bool shared;           // by the users, who pack together
  int64_t chunk, depth;  // extents of a panel
  T* panels;             // two, or one per user

  packed_side(const operand& x, bool a, kernels::copy_fn<T>* by, T factor, const shared_grid& grid, int64_t deepest)
      : source(x), is_a(a), copy(by), scalar(factor), depth(deepest), panels(nullptr) {
    extent = a ? x.rows : x.columns;
    tile = a ? kVersion1Rows<T> : kVersion1Columns;
    parts = a ? grid.rows : grid.columns;
    users = grid.threads() / parts;
    shared = (a ? grid.share_a : grid.share_b) && users > 1;
    const int64_t most = kMostPanelBytes / (panels_held() * depth * static_cast<int64_t>(sizeof(T)));
    chunk = even_step(extent, std::max(most / tile, parts) * tile, tile);
  }

  int64_t panels_held() const { return shared ? 2 : users; }
  int64_t bytes() const {
    return round_up(panels_held() * chunk * depth * static_cast<int64_t>(sizeof(T)), kAlignment);
  }
  T* place(int64_t turn, int64_t user, const span& part) const {
    return panels + ((shared ? turn % 2 : user) * chunk + part.begin) * depth;
  }

  int64_t chunk_length(int64_t begin) const { return std::min(chunk, extent - begin); }
  span own_part(int64_t begin, int64_t part) const { return part_of({0, chunk_length(begin)}, tile, part, parts); }

  // What `user` packs of a part of the chunk at `begin`, for the steps p .. p + steps of k.
  void pack(int64_t begin, const span& part, int64_t user, T* to, int64_t p, int64_t steps) const {
    const span slice = shared ? part_of(part, tile, user, users) : part;
    const int64_t length = slice.end - slice.begin, first = begin + slice.begin;
    if (length < 1) return;
    const operand block = is_a ? block_of(source, first, p, length, steps) : block_of(source, p, first, steps, length);
    kernels::packed target = {to + (slice.begin - part.begin) * steps, 0, 0};
    copy(&block, &target, &scalar);
  }
};

// The threads that wait for each other: all when both sides are shared, else those that share a part. Their arrivals
// are counted from the first meeting to the last.
struct meeting {
  int64_t group, size;
};
struct alignas(kAlignment) arrivals {
  int64_t count;
};
template <class T>
meeting meeting_of(const packed_side<T>& a, const packed_side<T>& b, int64_t row, int64_t column) {
  if (a.shared && b.shared) return {0, a.parts * a.users};
  if (a.shared) return {row, a.users};
  if (b.shared) return {column, b.users};
  return {0, 1};
}

// A chunk of C, and the steps l .. l + steps of k.
struct corner {
  int64_t i, j, l, steps;
};

template <class T>
struct shared_product {
  const operation<T>& p;
  packed_side<T> a, b;
  kernels::ker0_fn<T>* ker0;
  arrivals* groups;

  int64_t group_bytes() const { return static_cast<int64_t>(sizeof(arrivals)) * std::max(a.parts, b.parts); }

  void* get_memory() {
    auto* memory = static_cast<char*>(tev_serv_allocate(group_bytes() + a.bytes() + b.bytes(), kAlignment));
    if (memory == nullptr) return nullptr;
    std::memset(memory, 0, static_cast<size_t>(group_bytes()));
    groups = reinterpret_cast<arrivals*>(memory);
    a.panels = reinterpret_cast<T*>(memory + group_bytes());
    b.panels = reinterpret_cast<T*>(memory + group_bytes() + a.bytes());
    return memory;
  }

  void meet(const meeting& with, int64_t turn) const {
    if (with.size < 2) return;
    int64_t* const count = &groups[with.group].count;
    __atomic_fetch_add(count, 1, __ATOMIC_ACQ_REL);
    wait_for_work(count, with.size * (turn + 1), kTurnsBeforeYield);
  }

  // Columns that the thread packs for itself are packed as the rows need them, a second cache's worth at a time.
  void multiply(const corner& at, const T* a_part, const span& rows, T* b_part, const span& columns) const {
    if (rows.begin >= rows.end) return;
    const T beta = at.l == 0 ? p.beta : element_of<T>(1);
    operand target = make_result<T>(nullptr, rows.end - rows.begin, 0, p.c.ld);
    for (int64_t j = columns.begin; j < columns.end; j += kColumnsAtOnce<T>) {
      const span now = {j, std::min(j + kColumnsAtOnce<T>, columns.end)};
      if (!b.shared) b.pack(at.j, now, 0, b_part, at.l, at.steps);
      target.data = elements<T>(p.c) + at.i + rows.begin + (at.j + j) * p.c.ld;
      target.columns = now.end - now.begin;
      ker0(&at.steps, a_part, b.shared ? b_part + (j - columns.begin) * at.steps : b_part, &beta, &target);
    }
  }

  void compute(int64_t thread) const {
    const int64_t row = thread % a.parts, column = thread / a.parts;
    const meeting with = meeting_of(a, b, row, column);
    int64_t turn = 0;
    for (int64_t j = 0; j < p.n; j += b.chunk)
      for (int64_t i = 0; i < p.m; i += a.chunk) {
        const span rows = a.own_part(i, row), columns = b.own_part(j, column);
        for (int64_t l = 0; l < p.k; l += a.depth, ++turn) {
          const corner at = {i, j, l, std::min(a.depth, p.k - l)};
          T* const a_part = a.place(turn, column, rows);
          T* const b_part = b.place(turn, row, columns);
          if (b.shared) b.pack(j, columns, row, b_part, l, at.steps);
          a.pack(i, rows, column, a_part, l, at.steps);
          meet(with, turn);
          multiply(at, a_part, rows, b_part, columns);
        }
      }
  }
};

}  // namespace

double shared_work(int64_t m, int64_t n, const shared_grid& grid, int64_t tile_rows) {
  const auto rows = static_cast<double>(std::min(m, ceil_div(ceil_div(m, tile_rows), grid.rows) * tile_rows)),
             columns = static_cast<double>(
                 std::min(n, ceil_div(ceil_div(n, kVersion1Columns), grid.columns) * kVersion1Columns));
  return rows * columns + kPackingWork * (rows / static_cast<double>(grid.share_a ? grid.columns : 1) +
                                          columns / static_cast<double>(grid.share_b ? grid.rows : 1));
}

shared_grid best_shared_grid(int64_t m, int64_t n, int64_t threads, int64_t tile_rows, bool share_a, bool share_b) {
  shared_grid best = {threads, 1, share_a, share_b};
  for (int64_t columns = 2; columns <= threads; ++columns) {
    const shared_grid grid = {threads / columns, columns, share_a, share_b};
    if (shared_work(m, n, grid, tile_rows) < shared_work(m, n, best, tile_rows)) best = grid;
  }
  return best;
}

template <class T>
bool multiply_shared(const operation<T>& p, const shared_grid& grid) {
  const auto tier = kernels::version1_kernels_in_force<T>();
  if (tier.ker0 == nullptr) return false;
  const int64_t depth = even_step(p.k, kSharedDepth, kDepthUnit);
  shared_product<T> x = {p,
                         {p.a, true, tier.copy_a, element_of<T>(1), grid, depth},
                         {p.b, false, tier.copy_b, p.alpha, grid, depth},
                         tier.ker0,
                         nullptr};
  void* const memory = x.get_memory();
  if (memory == nullptr) return false;
  bool complete = false;
  run_team(grid.threads(), [&](int64_t thread, int64_t team) {
    if (team != grid.threads()) return;
    x.compute(thread);
    if (thread == 0) complete = true;
  });
  tev_serv_deallocate(memory);
  return complete;
}

#define TEV_INSTANTIATE(p, T) template bool multiply_shared(const operation<T>&, const shared_grid&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
