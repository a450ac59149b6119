// SPDX-License-Identifier: BSD-3-Clause
// The tier routines. A product is computed by one of
//
//   no-copy grid   pr x pc blocks of C times pk parts of k, each in place             omp_driver_nocopy
//   depth groups   pk groups of pr x pc threads, each with its part of k              gblock_by_k_omp
//   grid           pr x pc blocks of C; with both above 1 the panels are shared       omp_parallel_abcopy
//   rows           pr shares of A and C, panels of one's own                          omp_no_parallel_copy
//   columns        pc shares of B and C: the same, or A packed once for all           omp_parallel_acopy
//   lookahead      groups of 2 or 4 threads that pack the next panel while they multiply
//
// What the first test finds is kept; every count stays between 1 and the team.
#include "blas_threading/gemm/grid.h"

#include <algorithm>
#include <cmath>

#include "blas_threading/team/team.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

constexpr int32_t kSpinLimit = 10000;

// The largest divisor of `whole` that is at most `count`, at least 1.
int64_t lower_to_divisor(int64_t count, int64_t whole) {
  count = std::max<int64_t>(count, 1);
  while (whole % count != 0) --count;
  return count;
}

struct grid {
  int64_t rows, columns;
  int64_t blocks() const { return rows * columns; }
};

// Exactly `blocks` of them, about square; blocks of C are at least 8 rows high and one column wide.
grid divisor_grid(const grid& shape, int64_t blocks, int64_t m, int64_t n) {
  const auto root = static_cast<int64_t>(std::sqrt(static_cast<double>(blocks)));
  if (shape.columns < shape.rows) {
    const int64_t columns = lower_to_divisor(std::min(root, n), blocks);
    return {blocks / columns, columns};
  }
  const int64_t rows = lower_to_divisor(std::min(root, ceil_div(m, 8)), blocks);
  return {rows, blocks / rows};
}

// The chunks of a no-copy grid, and the counts that they leave.
void store_no_copy_grid(const product_shape& s, grid g, int64_t pk, thread_options& o) {
  o.chunk_m = round_up(ceil_div(s.m, g.rows), 8);
  o.chunk_n = ceil_div(s.n, g.columns);
  o.chunk_k = round_up(ceil_div(s.k, pk), 4);
  if (o.chunk_m * g.rows > s.m) g.rows = ceil_div(s.m, o.chunk_m);
  if (o.chunk_n * g.columns > s.n) g.columns = ceil_div(s.n, o.chunk_n);
  if (o.chunk_k * pk > s.k) pk = ceil_div(s.k, o.chunk_k);
  o.copy_strategy = kNoPanels;
  o.pr = g.rows;
  o.pc = g.columns;
  o.pk = pk;
  o.threads = o.active = g.rows * g.columns * pk;
}

// Takes the longer side of a grid and, every (ratio + 1)-th time, the other one: what grows or shrinks so keeps its
// proportions.
class alternation {
 public:
  explicit alternation(int64_t ratio) : ratio_(ratio) {}

  bool takes_rows(const grid& g) {
    const bool longer = g.rows > g.columns;
    if (++step_ <= ratio_) return longer;
    step_ = 0;
    return !longer;
  }

 private:
  int64_t ratio_, step_ = 0;
};

grid shrink(grid g, int64_t most, int64_t ratio) {
  alternation turn(ratio);
  while (g.blocks() > most) {
    const bool rows = turn.takes_rows(g);
    --(g.columns == 1 || (rows && g.rows > 1) ? g.rows : g.columns);
  }
  return g;
}

grid grow(grid g, double least, int64_t ratio) {
  alternation turn(ratio);
  while (static_cast<double>(g.blocks()) < least) ++(turn.takes_rows(g) ? g.rows : g.columns);
  return g;
}

// avx512 and avx512_zel. C is cut into blocks of about 16 x 64 until there is one for each thread.
void build_no_copy_grid(const product_shape& s, thread_options& o) {
  const bool narrow = s.n <= 128 && s.m <= 32 * o.threads;
  const int64_t pk = narrow ? lower_to_divisor(std::min(o.threads / 4, s.k / 192), o.threads) : 1;
  const int64_t blocks = o.threads / pk;
  grid g = {ceil_div(s.m, 16), ceil_div(s.n, 64)};
  const auto [shorter, longer] = std::minmax(g.rows, g.columns);
  const auto ratio = static_cast<int64_t>(static_cast<float>(longer) / static_cast<float>(shorter));
  while (g.blocks() > 4 * blocks) g = {std::max<int64_t>(g.rows / 2, 1), std::max<int64_t>(g.columns / 2, 1)};
  g = grow(shrink(g, blocks, ratio), 0.95 * static_cast<double>(blocks), ratio);
  if (g.blocks() > blocks) g = divisor_grid(g, blocks, s.m, s.n);
  store_no_copy_grid(s, g, pk, o);
}

// avx2. Blocks of 32 x 48, and parts of k of more than 384 when these are fewer than the threads.
void build_no_copy_grid_avx2(const product_shape& s, thread_options& o) {
  const int64_t p = o.threads;
  grid g = {ceil_div(s.m, 32), ceil_div(s.n, 48)};
  int64_t pk = 1;
  if (g.blocks() < p)
    for (int64_t j = 2; s.k / j > 384; ++j) {
      if (static_cast<double>(p / j * j) > 0.9 * static_cast<double>(p)) pk = j;
      if (g.blocks() * j >= p) break;
    }
  const int64_t blocks = p / pk;
  if (g.rows == 1) g.columns = blocks;
  if (g.columns == 1) g.rows = blocks;
  while (g.blocks() > blocks) --(g.rows <= g.columns ? g.columns : g.rows);
  while (g.blocks() < blocks) ++(g.columns <= g.rows ? g.columns : g.rows);
  if (g.blocks() > blocks && g.rows > 1 && g.columns > 1) g = divisor_grid(g, blocks, s.m, s.n);
  store_no_copy_grid(s, g, pk, o);
}

// Parts of k for products that are deep beside a C of few blocks. The partial sums, pk times C, stay below 200 MiB.
void build_depth_groups(const product_shape& s, thread_options& o) {
  constexpr int64_t kPartialBytes = 200 << 20, kLeastDepth = 384;
  const int64_t p = o.threads;
  const bool pairs = p >= 8 && p % 2 == 0;
  const auto wanted_columns = std::max<int64_t>(static_cast<int64_t>(static_cast<double>(s.n) / 480.0), 1);
  const bool tall = s.m / 1024 >= 2 && pairs;
  const int64_t base = tall ? p / 2 : p;
  const bool paired = wanted_columns >= 2 && pairs && base >= 8 && base % 2 == 0;
  const double c_bytes = static_cast<double>(s.m) * static_cast<double>(s.n) * static_cast<double>(s.element_size);
  const auto in_memory = static_cast<int64_t>(static_cast<double>(kPartialBytes) / c_bytes);
  const int64_t parts = std::min({base / (paired ? 2 : 1), in_memory, ceil_div(s.k, kLeastDepth)});
  o.pk = lower_to_divisor(parts, p);
  o.pc = lower_to_divisor(wanted_columns, p / o.pk);
  o.pr = p / o.pk / o.pc;
  o.partition_mode = kByDepthGroups;
  o.copy_strategy = kOwnPanels;
  o.threads = o.active = p;
}

int64_t quarter_of_cores(const thread_options& o) { return std::max<int64_t>(ceil_div(o.machine.cores, 4), 1); }

// Groups of at most a quarter of the cores side by side, so that the columns fall into whole strips.
grid grid_by_quarters(const product_shape& s, const thread_options& o) {
  const int64_t p = o.threads, quarter = quarter_of_cores(o);
  for (int64_t g = (p + quarter) / quarter; g >= 1; --g)
    if (p % g == 0 && p / g <= quarter && s.n % (p / g * s.nb) == 0) return {g, p / g};
  const int64_t rows = std::min<int64_t>(4, ceil_div(p, quarter));
  return {rows, p / rows};
}

// A C that is long one way gets its threads along that way, and never less than a tile each.
grid correct_for_shape(grid g, const product_shape& s, int64_t p) {
  const auto m = static_cast<double>(s.m), n = static_cast<double>(s.n);
  if (std::fabs(m - n) < 0.2 * (m + n)) return g;
  if (n / static_cast<double>(g.columns) < static_cast<double>(2 * s.nb)) {
    g.columns = std::max<int64_t>(s.n / (s.m < 4000 ? 2 * s.nb : 8 * s.nb), 1);
    g.rows = p / g.columns;
  }
  if (m / static_cast<double>(g.rows) < static_cast<double>(s.mb)) {
    g.rows = ceil_div(s.m, s.mb);
    if (g.blocks() > p) g.rows = std::max<int64_t>(s.m / s.mb, 1);
  }
  return g;
}

void store_grid(const grid& g, thread_options& o) {
  o.pr = g.rows;
  o.pc = g.columns;
  o.pk = 1;
  o.threads = o.active = g.blocks();
  if (g.rows >= 2 && g.columns >= 2) {
    o.chunk_rule = kBlockChunks;
    o.partition_mode = kGridByRows;
    o.copy_strategy = kSharedAB;
  } else if (g.columns == 1) {
    o.chunk_rule = kBlockChunks;
    o.partition_mode = kByRows;
    o.copy_strategy = kOwnPanels;
  } else {
    o.partition_mode = kByColumns;
    o.copy_strategy = kSharedA;
  }
}

void build_grid(const product_shape& s, thread_options& o) {
  store_grid(correct_for_shape(grid_by_quarters(s, o), s, o.threads), o);
}

// The longest of `parts` parts of a length in whole tiles.
int64_t longest_part(int64_t length, int64_t parts, int64_t tile) {
  return std::min(length, ceil_div(ceil_div(length, tile), parts) * tile);
}

// The grid of the whole team whose largest block is the smallest.
grid grid_of_small_blocks(const product_shape& s, int64_t p) {
  const auto largest_block = [&](const grid& g) {
    return longest_part(s.m, g.rows, s.mb) * longest_part(s.n, g.columns, s.nb);
  };
  grid best = {1, p};
  for (int64_t rows = 2; rows <= std::min(p, ceil_div(s.m, s.mb)); ++rows)
    if (const grid g = {rows, p / rows}; largest_block(g) < largest_block(best)) best = g;
  return {best.rows, std::min(best.columns, ceil_div(s.n, s.nb))};
}

// avx2 and avx512: the same grid, but no thread is left out, and threads that share nothing split the longer side of C
// into equal parts: each packs the whole operand of the other side, so that one should be short. (Sharing it instead
// takes two barriers for each panel of k, which cost milliseconds as soon as another process holds a core.)
void build_private_grid(const product_shape& s, thread_options& o) {
  const int64_t p = o.threads;
  grid g = grid_by_quarters(s, o);
  if (g.blocks() < p) {
    g.columns = lower_to_divisor(static_cast<int64_t>(std::sqrt(static_cast<double>(p))), p);
    g.rows = p / g.columns;
  }
  g = correct_for_shape(g, s, p);
  if (g.blocks() < p) g = grid_of_small_blocks(s, p);
  if (g.columns == 1 && s.n > s.m) g = {1, std::min(p, ceil_div(s.n, s.nb))};
  store_grid(g, o);
  if (o.copy_strategy == kSharedAB) return;
  o.copy_strategy = kOwnPanels;
  o.chunk_rule = kBalancedChunks;
}

// A C of at most one block, and so deep that parts of k, which run at full speed, pay for adding up their sums: a
// thread's strip of such a C would be a few tiles, and each would pack one of the operands whole. Large teams have too
// much to add.
bool is_deep(const product_shape& s, const thread_options& o) {
  constexpr int64_t kBlock = 378;
  const bool small = s.m <= kBlock && s.n <= kBlock && s.k >= kBlock * o.threads && o.threads < 19;
  return small &&
         3.7 * static_cast<double>(s.m) + 3.5 * static_cast<double>(s.n) - 0.8 * static_cast<double>(s.k) < -283;
}

// Large products of the many-core tier, after the grid is known. `group` threads share a panel.
void try_lookahead(const product_shape& s, int32_t group, thread_options& o) {
  const int64_t threads = o.threads;
  const bool deep = s.k >= 1008, whole_machine = s.m >= 6400 && s.n >= 6400 && threads >= o.machine.cores - 2;
  if (group > threads || s.m < 1008 || !(deep || whole_machine)) return;
  const auto wide_enough = [&](int64_t columns) { return (columns - 224) * group >= 112 * threads; };
  if (!wide_enough(2 * s.n)) return;
  o.lookahead_variant = wide_enough(s.n) ? 1 : 2;
  o.lookahead_group = group;
  o.group_of_two = group == 2;
  o.partition_mode = kLookaheadSplit;
  o.copy_strategy = kSharedALookahead;
  o.threads = o.active = threads / group * group;
}

// True when the driver without panels asks, which has made its decision by the same test.
bool begin(thread_options& o) {
  const bool without_panels = o.copy_strategy == kNoPanels;
  o.copy_strategy = kOwnPanels;
  o.chunk_rule = kEvenChunks;
  o.spin_limit = kSpinLimit;
  return without_panels;
}

}  // namespace

void set_thread_opts_avx2(const product_shape& shape, thread_options& options) {
  if (begin(options)) return build_no_copy_grid_avx2(shape, options);
  if (is_deep(shape, options)) return build_depth_groups(shape, options);
  build_private_grid(shape, options);
}

void set_thread_opts_avx512(const product_shape& s, thread_options& o) {
  if (begin(o)) return build_no_copy_grid(s, o);

  const auto [shorter, longer] = std::minmax(s.m, s.n);
  const bool splits_k = o.reproducibility == TEV_CBWR_AUTO && s.m >= 1304 && s.n >= 16 && s.k >= 1304 &&
                        o.threads % 2 == 0 && s.m * s.n < 13107200 && longer <= s.k && 8 * shorter <= s.k;
  if (splits_k || is_deep(s, o)) return build_depth_groups(s, o);

  const int64_t columns = s.n / o.threads;  // of one thread
  if (columns >= 97 && columns <= 192) return store_grid({1, o.threads}, o);
  build_private_grid(s, o);
}

void set_thread_opts_avx512_zel(const product_shape& s, thread_options& o) {
  const int64_t p = o.threads;
  const int64_t working_set = std::min(s.m, 2000 * p) * 5376 + std::min(s.n, 56 * p) * 2688;
  o.fast_memory = static_cast<uint64_t>(working_set) < o.machine.fast_memory;
  const bool pairs = o.fast_memory != 0 && s.k > 336 && o.force_group_four != 1;
  if (begin(o)) return build_no_copy_grid(s, o);

  const bool deep = s.k / std::max(s.m, s.n) > 4;
  if (deep && 2 * ceil_div(s.m, 128) * ceil_div(s.n, 112) < p) return build_depth_groups(s, o);
  build_grid(s, o);
  try_lookahead(s, pairs ? 2 : 4, o);
}

}  // namespace tev::blas
