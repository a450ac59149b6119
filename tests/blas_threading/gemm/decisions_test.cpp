// SPDX-License-Identifier: BSD-3-Clause
// The decisions of a matrix product as functions of their records: how many threads, panels or none, which grid, which
// share. Random shapes by the hundred thousand: shares cover the product and do not overlap, counts lie between one
// and the team, nothing loops forever.

#include "blas_threading/gemm/grid.h"
#include "blas_threading/gemm/partition.h"
#include "blas_threading/gemm/thread_count.h"
#include "blas_threading/plan.h"
#include "tests/support/each_tier.h"
#include "tev/service.h"

namespace tev::blas {

void PrintTo(const product_shape& s, std::ostream* out) {
  *out << s.m << " x " << s.n << " x " << s.k << ", op " << s.op_a << s.op_b << ", ld " << s.lda << ' ' << s.ldb << ' '
       << s.ldc << ", tile " << s.mb << " x " << s.nb;
}

namespace {

constexpr int32_t kAvx2 = TEV_CPU_AVX2, kZel = TEV_CPU_AVX512_ZEL, kAvx512 = TEV_CPU_AVX512;

using engine = std::mt19937_64;

constexpr int kShapes = test::kSanitized ? 20000 : 200000;  // a sanitizer sees in few what it would in many

// Spread evenly over the orders of magnitude: the small sizes have the edge cases.
int64_t random_size(engine& random, double largest) {
  return static_cast<int64_t>(std::exp(std::uniform_real_distribution<double>(0, std::log(largest))(random)));
}

int64_t ceil_div(int64_t x, int64_t y) { return (x + y - 1) / y; }

// ---- Thread counts --------------------------------------------------------------------------------------------------

int64_t threads(int32_t tier, int64_t m, int64_t n, int64_t k, int64_t available, double weight = 1) {
  return gemm_thread_count(tier, m, n, k, weight, available);
}

TEST(ThreadCount, LiesBetweenOneAndTheTeamAndGrowsWithTheElements) {
  engine random(1);
  for (int i = 0; i < kShapes; ++i) {
    const int32_t tier = std::array{kAvx2, kZel, kAvx512}[random() % 3];
    const int64_t m = random_size(random, 1e6), n = random_size(random, 1e6), k = random_size(random, 1e6);
    const int64_t available = random_size(random, 300), t = threads(tier, m, n, k, available);
    ASSERT_GE(t, 1);
    ASSERT_LE(t, available);
    if (never_worth_a_team(tier, m, n, k, 1)) ASSERT_EQ(t, 1);
    if (tier == kZel && k / std::max(m, n) > 3) continue;
    ASSERT_LE(threads(tier, m, n, k, available, kWorkPerElement<float>), t);
    ASSERT_GE(threads(tier, m, n, k, available, kWorkPerElement<tev_complex16>), t);
  }
}

// ---- Plans ----------------------------------------------------------------------------------------------------------

operation<double> product_of_sizes(char transa, int64_t m, int64_t n, int64_t k) {
  const double* const none = nullptr;
  return kernels::make_operation<double>(transa, 'N', m, n, k, 1, none, 4001, none, 4001, 1, nullptr, 4001);
}
operation<double> solve_of_sizes(char side, int64_t m, int64_t n) {
  const double* const none = nullptr;
  return kernels::make_triangular_operation<double>(kernels::kOpTrsm, side, 'U', 'N', 'N', m, n, 1, none, 4001, nullptr,
                                                    4001);
}
operation<double> update_of_sizes(int64_t n, int64_t k) {
  const double* const none = nullptr;
  return kernels::make_rank_k_operation<double>('L', 'N', false, n, k, 1, none, 4001, none, 4001, 1, nullptr, 4001);
}

TEST(Plan, FollowsOperationShapeAndTier) {
  test::on_each_tier({{"TEV_NUM_THREADS", "8"}, {"TEV_DYNAMIC", "FALSE"}}, [](const test::tier_in_force& tier) {
    const bool older = tier.type <= TEV_CPU_AVX, counts_columns = tier.type > TEV_CPU_AVX2;
    const double* const none = nullptr;
    const struct {
      operation<double> p;
      division by;
      int64_t threads;
    } rows[] = {
        {product_of_sizes('N', 20, 20, 20), division::none, 1},
        {product_of_sizes('N', 300, 200, 20), older ? division::blocks : division::grid, 8},
        {product_of_sizes('T', 1001, 2, 1001),
         counts_columns ? division::rows
         : older        ? division::blocks
                        : division::grid,
         8},
        {kernels::make_symmetric_operation<double>('L', 'U', 999, 40, 1, none, 1001, none, 1001, 1, nullptr, 1001),
         older ? division::sides : division::grid, older ? 5 : 8},
        {solve_of_sizes('L', 2000, 2000), division::sides, 8},
        {solve_of_sizes('R', 8, 2000), division::diagonal_blocks, 8},
        {solve_of_sizes('L', 900, 20), division::sides, 3},
        {update_of_sizes(1000, 1000), division::columns, 8},
        {update_of_sizes(100, 9000), std::string_view(tier.name) == "cnr_def" ? division::columns : division::depth, 8},
    };
    for (const auto& row : rows) {
      const plan planned = plan_of(row.p);
      EXPECT_EQ(planned.by, row.by) << &row - rows;
      EXPECT_EQ(planned.threads, row.threads) << &row - rows;
    }
    return 0;
  });
}

// ---- Grids ----------------------------------------------------------------------------------------------------------

product_shape random_shape(engine& random) {
  constexpr std::array<std::array<int64_t, 2>, 4> kTiles = {{{24, 8}, {8, 28}, {12, 4}, {4, 14}}};
  const auto tile = kTiles[random() % 4];
  const auto code = [&] { return static_cast<int32_t>(random() % 3); };
  const auto ld = [&] { return random() % 4 == 0 ? int64_t{1024} : int64_t{100003}; };
  const auto size = [&] { return random_size(random, 1e5); };
  const int64_t m = size(), n = size(), k = size();
  const int32_t op_a = code(), op_b = code();
  const int64_t lda = ld(), ldb = ld(), ldc = ld();
  return {m, n, k, op_a, op_b, lda, ldb, ldc, tile[0], tile[1], 8};
}

thread_options random_options(engine& random, int32_t tier) {
  thread_options o = {};
  o.tier = tier;
  o.threads = random_size(random, 300);
  o.machine.cores = random() % 8 == 0 ? 1 : random_size(random, 300);
  o.machine.fast_memory = random() % 2 == 0 ? UINT64_MAX : random() % 100'000'000;
  o.machine.dynamic = static_cast<int32_t>(random() % 2);
  o.reproducibility = static_cast<int32_t>(1 + random() % 3);
  o.force_group_four = random() % 4 == 0;
  return o;
}

class Grid : public testing::TestWithParam<int32_t> {};

TEST_P(Grid, StaysWithinTheTeam) {
  engine random(2);
  std::array<int, 7> mode_seen = {};
  for (int i = 0; i < kShapes; ++i) {
    const product_shape s = random_shape(random);
    const thread_options before = random_options(random, GetParam());
    thread_options o = before;
    set_thread_opts(s, o);
    SCOPED_TRACE(testing::Message() << testing::PrintToString(s) << ", " << before.threads << " threads of "
                                    << before.machine.cores << " cores");
    ASSERT_GE(o.threads, 1);
    ASSERT_LE(o.threads, before.threads);
    ASSERT_EQ(o.active, o.threads);
    ASSERT_GT(o.spin_limit, 0);
    ++mode_seen[static_cast<size_t>(o.partition_mode)];
    switch (o.partition_mode) {
      case kLookaheadSplit:
        ASSERT_EQ(o.copy_strategy, kSharedALookahead);
        ASSERT_EQ(o.threads % o.lookahead_group, 0);
        ASSERT_EQ(o.group_of_two, o.lookahead_group == 2);
        ASSERT_TRUE(o.lookahead_variant == 1 || o.lookahead_variant == 2);
        break;
      case kByDepthGroups:
        ASSERT_EQ(o.threads, o.pr * o.pc * o.pk);
        ASSERT_EQ(o.threads, before.threads);
        break;
      case kGridByRows:
        ASSERT_EQ(o.copy_strategy, kSharedAB);
        ASSERT_TRUE(o.pr >= 2 && o.pc >= 2 && o.pk == 1 && o.threads == o.pr * o.pc);
        break;
      case kByColumns:
        ASSERT_TRUE(o.copy_strategy <= kSharedA && o.pr == 1 && o.threads == o.pc);
        break;
      default:
        ASSERT_TRUE(o.copy_strategy == kOwnPanels && o.pc == 1 && o.threads == o.pr);
        break;
    }
  }
  EXPECT_GT(mode_seen[kByRows], 0);
  EXPECT_GT(mode_seen[kByColumns], 0);
  EXPECT_GT(mode_seen[kGridByRows], 0);
  EXPECT_GT(mode_seen[kByDepthGroups], 0);
  EXPECT_EQ(mode_seen[kLookaheadSplit] > 0, GetParam() == kZel);
}

// A C of few rows or columns has work for all, since the other side is long.
TEST(GridOf, WideShortAndTallNarrowProductsUseTheWholeTeam) {
  for (const int32_t tier : {kAvx2, kAvx512})
    for (const auto& [m, n] : {std::pair<int64_t, int64_t>{16, 2000}, {30, 1000}, {2000, 16}, {1500, 40}}) {
      thread_options o = {};
      o.tier = tier, o.threads = o.machine.cores = 16, o.machine.dynamic = 1;
      const bool wide = tier == kAvx512;
      set_thread_opts({m, n, 300, 0, 0, 1001, 1001, 1001, wide ? 24 : 12, wide ? 8 : 4, 8}, o);
      EXPECT_GE(o.threads, 15) << tier << ": " << m << " x " << n;
    }
}

TEST_P(Grid, WithoutPanelsItsChunksCoverTheProductOnce) {
  engine random(3);
  int k_splits = 0;
  for (int i = 0; i < kShapes; ++i) {
    const product_shape s = random_shape(random);
    thread_options o = random_options(random, GetParam());
    const int64_t team = o.threads;
    o.copy_strategy = kNoPanels;
    set_thread_opts(s, o);
    SCOPED_TRACE(testing::Message() << testing::PrintToString(s) << ", " << team << " threads");
    ASSERT_EQ(o.copy_strategy, kNoPanels);
    ASSERT_EQ(o.threads, o.pr * o.pc * o.pk);
    ASSERT_LE(o.threads, team);
    ASSERT_EQ(o.pr, ceil_div(s.m, o.chunk_m));
    ASSERT_EQ(o.pc, ceil_div(s.n, o.chunk_n));
    ASSERT_EQ(o.pk, ceil_div(s.k, o.chunk_k));
    ASSERT_TRUE(o.chunk_m % 8 == 0 && o.chunk_k % 4 == 0);
    k_splits += o.pk > 1;
  }
  EXPECT_GT(k_splits, 0);
}

INSTANTIATE_TEST_SUITE_P(Tiers, Grid, testing::Values(kAvx2, kZel, kAvx512));

// ---- Partitions -----------------------------------------------------------------------------------------------------

// Operands without elements: the shares are told by their offsets.
void* nowhere(int64_t, int64_t, const operand*) { return nullptr; }

operand extents(int64_t rows, int64_t columns) {
  operand x = {};
  x.rows = rows, x.columns = columns, x.extent = rows, x.at = nowhere;
  return x;
}

std::vector<int64_t> chunk_sizes(int32_t rule, int64_t n, int64_t team, int64_t tile) {
  kernels::strategy plan = {};
  plan.mr = plan.nr = tile;
  thread_options o = {};
  o.threads = team, o.chunk_rule = rule, o.partition_mode = kByColumns;
  std::vector<int64_t> sizes;
  int64_t next = 0;
  for (o.thread = 0; o.thread < team; ++o.thread) {
    operand x = extents(7, n);
    partition_1d(x, o, plan);
    EXPECT_TRUE(x.columns == 0 || x.column_offset == next) << rule << ' ' << n << " over " << team;
    EXPECT_TRUE(x.columns >= 0 && x.rows == 7 && x.row_offset == 0);
    sizes.push_back(x.columns);
    next += x.columns;
  }
  EXPECT_EQ(next, n) << rule << ", " << team << " threads, tile " << tile;
  return sizes;
}

TEST(Partition1D, Rules) {
  using sizes = std::vector<int64_t>;
  EXPECT_EQ(chunk_sizes(kEvenChunks, 10, 4, 1), (sizes{3, 3, 3, 1}));
  EXPECT_EQ(chunk_sizes(kBalancedChunks, 10, 4, 1), (sizes{3, 3, 2, 2}));
  EXPECT_EQ(chunk_sizes(kBlockChunks, 10, 4, 4), (sizes{4, 6, 0, 0}));
  EXPECT_EQ(chunk_sizes(kBlockChunks, 33, 2, 8), (sizes{17, 16}));
}

TEST(Partition1D, SharesFollowEachOtherAndCover) {
  engine random(4);
  for (int i = 0; i < 100000 && !testing::Test::HasFailure(); ++i)
    chunk_sizes(static_cast<int32_t>(random() % 3), random_size(random, 1e6), random_size(random, 100),
                random_size(random, 48));
}

TEST(Partition1D, OtherModesLeaveTheOperand) {
  thread_options o = {};
  o.threads = 4, o.thread = 2, o.partition_mode = kGridByRows;
  operand x = extents(100, 100);
  partition_1d(x, o, {});
  EXPECT_TRUE(x.rows == 100 && x.columns == 100);
}

TEST(Partition2D, BlocksCoverCOnceAndTheRestOfTheTeamGetsNothing) {
  engine random(5);
  for (int i = 0; i < kShapes / 4; ++i) {
    const int64_t m = random_size(random, 5000), n = random_size(random, 5000);
    kernels::strategy plan = {};
    plan.mr = random_size(random, 48), plan.nr = random_size(random, 28);
    thread_options first = {};
    first.pr = random_size(random, 20), first.pc = random_size(random, 20);
    first.threads = first.pr * first.pc;
    first.chunk_rule = static_cast<int32_t>(random() % 3);
    first.partition_mode = random() % 2 == 0 ? kGridByRows : kGridByColumns;
    first.machine.dynamic = static_cast<int32_t>(random() % 2);
    SCOPED_TRACE(testing::Message() << m << " x " << n << " on " << first.pr << " x " << first.pc << ", tile "
                                    << plan.mr << " x " << plan.nr << ", rule " << first.chunk_rule << ", dynamic "
                                    << first.machine.dynamic);
    // Rectangles of a grid: it is enough that rows, columns and areas add up.
    std::vector<int64_t> row_starts, column_starts;
    int64_t area = 0;
    for (int64_t thread = 0; thread < first.threads + 3; ++thread) {
      thread_options o = first;
      o.thread = thread;
      operand a = extents(m, 9), b = extents(9, n), c = extents(m, n);
      partition_2d(a, b, c, o, plan);
      ASSERT_TRUE(o.threads == o.pr * o.pc && o.pr <= first.pr && o.pc <= first.pc && o.pr > 0 && o.pc > 0);
      ASSERT_TRUE(a.rows == c.rows && b.columns == c.columns && a.row_offset == c.row_offset &&
                  b.column_offset == c.column_offset);
      ASSERT_TRUE(c.rows >= 0 && c.columns >= 0 && c.row_offset + c.rows <= m && c.column_offset + c.columns <= n);
      if (thread >= o.threads) {
        ASSERT_TRUE(c.rows == 0 && c.columns == 0 && a.columns == 0 && b.rows == 0);
      }
      if (c.rows == 0 || c.columns == 0) continue;
      ASSERT_TRUE(a.columns == 9 && b.rows == 9);
      area += c.rows * c.columns;
      if (c.column_offset == 0) row_starts.push_back(c.row_offset), row_starts.push_back(c.row_offset + c.rows);
      if (c.row_offset == 0)
        column_starts.push_back(c.column_offset), column_starts.push_back(c.column_offset + c.columns);
    }
    ASSERT_EQ(area, m * n);
    const auto chained = [](std::vector<int64_t>& bounds, int64_t extent) {
      std::sort(bounds.begin(), bounds.end());
      for (size_t j = 1; j + 1 < bounds.size(); j += 2)
        if (bounds[j] != bounds[j + 1]) return false;
      return bounds.front() == 0 && bounds.back() == extent;
    };
    ASSERT_TRUE(chained(row_starts, m) && chained(column_starts, n));
  }
}

TEST(Stripes, BlocksCoverCOnce) {
  engine random(6);
  for (int i = 0; i < kShapes / 2; ++i) {
    const int64_t m = random_size(random, 1000), n = random_size(random, 1000);
    const int64_t team = random_size(random, 40), stripes = random_size(random, 60);
    int64_t area = 0;
    for (int64_t thread = 0; thread < team; ++thread) {
      const block part = stripe_block(thread, team, stripes, m, n);
      ASSERT_TRUE(part.row % 8 == 0 && part.column % 8 == 0 && part.rows >= 0 && part.columns >= 0);
      ASSERT_TRUE(part.row + part.rows <= m && part.column + part.columns <= n);
      area += part.rows * part.columns;
    }
    ASSERT_EQ(area, m * n) << m << " x " << n << ", " << team << " threads, " << stripes << " stripes";
  }
}

}  // namespace
}  // namespace tev::blas
