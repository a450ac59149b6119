// SPDX-License-Identifier: BSD-3-Clause
// The work routines and drivers of the parallel product. Operands of small whole numbers make every sum exact, so all
// routines, grids and team sizes must give the same bits, which the check by plain sums has found right once.
//
// Each routine is asked for through the options; how many blocks of memory it takes tells that it ran.
#include <omp.h>

#include "blas_threading/gemm/driver.h"
#include "blas_threading/gemm/lookahead.h"
#include "blas_threading/gemm/work.h"
#include "kernels/dispatch/dispatch.h"
#include "tests/support/described.h"
#include "tests/support/in_child.h"
#include "tests/support/judge.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/tier_list.h"
#include "tev/service.h"

namespace {

using namespace tev::blas;
using namespace tev::test;
namespace kernels = tev::kernels;

// The tiers with the older kernel interface have a driver of their own.
class Framework : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TEV_DEBUG_CPU_TYPE", tev::test::processor_runs("avx512") ? "7" : "5", 0);  // read at the first dispatch
    if (!tev::test::processor_runs("avx2")) GTEST_SKIP() << "this processor has no tier that uses these drivers";
    if (tev_blas_get_kernel_api_version() != 2) GTEST_SKIP() << "this processor's tier does not use these drivers";
  }
};
class GemmWork : public Framework {};
class GemmDriver : public Framework {};
class GemmMemory : public Framework {};

thread_options options_of(int32_t tier, int64_t threads) {
  thread_options o = {};
  o.machine = {.cores = 16, .fast_memory = ~uint64_t{0}, .vesta = 0, .dynamic = 1};
  o.tier = tier;
  o.threads = o.active = threads;
  o.pr = o.pc = o.pk = 1;
  return o;
}

template <class T>
matrix<T> by_routine(const blas_case<T>& x, const thread_options& options) {
  matrix<T> result = x.start();
  const auto op = described(x.p, result);
  const auto entries = static_cast<size_t>(sync_entries(options.threads));
  std::vector<barrier_block> barriers(entries);
  std::vector<shared_buffer> shared(entries);
  const auto asked = static_cast<int>(options.threads);
  int team = 0;
#pragma omp parallel num_threads(asked)
  {
    thread_options own = options;
    own.thread = omp_get_thread_num();
#pragma omp single
    team = omp_get_num_threads();
    if (team == asked) compute_share(op, op.a, op.b, op.c, own, barriers.data(), shared.data());
  }
  EXPECT_EQ(team, asked);
  return result;
}

template <class T>
matrix<T> by_driver(const blas_case<T>& x, const thread_options& options) {
  matrix<T> result = x.start();
  const auto op = described(x.p, result);
  gemm_omp_driver_v2(op, op.a, op.b, op.c, options);
  return result;
}

struct setting {
  const char* name;
  int32_t mode, strategy, rule;
  int64_t pr, pc, pk;      // of four threads; a larger team has more columns, or parts
  int32_t group, variant;  // of the lookahead
  int blocks;              // of memory, taken by four threads
};
constexpr setting kSettings[] = {
    {"rows, even", kByRows, kOwnPanels, kEvenChunks, 4, 1, 1, 0, 0, 4},
    {"rows, whole tiles", kByRows, kOwnPanels, kBlockChunks, 4, 1, 1, 0, 0, 4},
    {"columns, balanced", kByColumns, kOwnPanels, kBalancedChunks, 1, 4, 1, 0, 0, 4},
    {"shared A, even", kByColumns, kSharedA, kEvenChunks, 1, 4, 1, 0, 0, 5},
    {"shared A, whole tiles", kByColumns, kSharedA, kBlockChunks, 1, 4, 1, 0, 0, 5},
    {"shared A and B", kGridByRows, kSharedAB, kBlockChunks, 2, 2, 1, 0, 0, 4},
    {"shared A and B, columns first", kGridByColumns, kSharedAB, kEvenChunks, 2, 2, 1, 0, 0, 4},
    {"grid of one row", kGridByRows, kSharedAB, kBlockChunks, 1, 4, 1, 0, 0, 4},
    {"groups along k", kByDepthGroups, kOwnPanels, kEvenChunks, 1, 2, 2, 0, 0, 5},
    {"k", kByDepth, kOwnPanels, kEvenChunks, 1, 1, 1, 0, 0, 5},
    {"lookahead in twos", kLookaheadSplit, kSharedALookahead, kEvenChunks, 1, 1, 1, 2, 1, 6},
    {"lookahead in twos, thinner", kLookaheadSplit, kSharedALookahead, kEvenChunks, 1, 1, 1, 2, 2, 6},
    {"lookahead in fours", kLookaheadSplit, kSharedALookahead, kEvenChunks, 1, 1, 1, 4, 1, 6},
};

thread_options options_of(const setting& s, int64_t threads) {
  thread_options o = options_of(TEV_CPU_AVX512, threads);
  o.partition_mode = s.mode, o.copy_strategy = s.strategy, o.chunk_rule = s.rule;
  o.lookahead_group = s.group, o.lookahead_variant = s.variant;
  o.spin_limit = 100;
  const int64_t lines = s.pr * s.pk;  // the rest of the team is in the columns
  if (threads < lines) return o;      // nothing to choose: 1 x 1 x 1
  o.pr = s.pr, o.pk = s.pk, o.pc = threads / lines;
  if (s.mode == kByDepthGroups) o.threads = o.active = o.pr * o.pc * o.pk;
  return o;
}

template <class T>
void check_all_settings(const std::string& trans, int64_t m, int64_t n, int64_t k, T alpha, T beta,
                        const std::vector<int64_t>& teams) {
  engine random(4711);
  const blas_case<T> x(problem_of<T>(operation::gemm, trans, m, n, k, alpha, beta), random, values::whole);
  const matrix<T> right = by_routine(x, options_of(kSettings[0], 2));
  ASSERT_TRUE(is_right(x, right));
  for (const setting& s : kSettings)
    for (const int64_t threads : teams)
      ASSERT_TRUE(by_routine(x, options_of(s, threads)).same_bits(right)) << x << ", " << s.name << ", " << threads;
}

TEST_F(GemmWork, EveryRoutineInEveryPrecisionForTeamsOfAnySize) {
  const std::vector<int64_t> teams = {2, 3, 5, 8, 64};
  check_all_settings<double>("NN", 203, 101, 800, 2, -1, teams);
  check_all_settings<float>("TN", 100, 203, 800, -1, 1, teams);
  check_all_settings<std::complex<float>>("NC", 101, 67, 400, {1, 2}, {2, -1}, teams);
  check_all_settings<std::complex<double>>("CT", 50, 97, 390, {2, -1}, {0, 0}, teams);
  check_all_settings<double>("TT", 7, 3, 5, 1, 0, {2, 5});
}

// More rows, or columns, than one shared panel holds.
TEST_F(GemmWork, PanelsInSeveralChunks) {
  check_all_settings<double>("NN", 10100, 19, 9, 1, 2, {2, 4});
  check_all_settings<double>("NT", 31, 10100, 9, 1, 0, {4});
}

// Rounding shows the order of additions.
TEST_F(GemmWork, SameBitsInEveryRun) {
  engine random(815);
  const blas_case<double> x(problem_of<double>(operation::gemm, "NN", 150, 90, 1200, 1.1, 0.7), random,
                            values::fractions);
  for (const setting& s : kSettings)
    for (const int64_t threads : {4, 7}) {
      const matrix<double> first = by_routine(x, options_of(s, threads));
      EXPECT_TRUE(is_right(x, first)) << s.name;
      for (int run = 0; run < 5; ++run)
        EXPECT_TRUE(by_routine(x, options_of(s, threads)).same_bits(first)) << s.name << ", " << threads;
    }
}

TEST(LookaheadPlan, CutsAnyProductIntoTicketsThatCoverIt) {
  engine random(5);
  const auto upto = [&](int64_t most) { return std::uniform_int_distribution<int64_t>(1, most)(random); };
  for (int i = 0; i < 100000; ++i) {
    const int64_t m = upto(30000), n = upto(9000), k = upto(3000);
    thread_options options = options_of(TEV_CPU_AVX512_ZEL, upto(64));
    options.lookahead_group = upto(2) == 1 ? 2 : 4, options.lookahead_variant = static_cast<int32_t>(upto(2));
    kernels::strategy tile = {};
    tile.mr = 8 * upto(6), tile.nr = 4 * upto(7);
    kernels::buffers blocks = {};
    blocks.mc = tile.mr * upto(200), blocks.nc = tile.nr * upto(40), blocks.kc = upto(400);
    const lookahead_plan p = plan_lookahead(m, n, k, blocks, tile, options);
    const auto covers = [](int64_t step, int64_t steps, int64_t extent) {
      return step > 0 && steps > 0 && step * steps >= extent && step * (steps - 1) < extent;
    };
    ASSERT_TRUE(covers(p.depth, p.depths, k) && covers(p.chunk, p.chunks, m) && covers(p.piece, p.pieces, p.chunk) &&
                covers(p.slice, p.slices, p.chunk) && covers(p.width, p.columns, n));
    ASSERT_TRUE(p.chunk % tile.mr == 0 && p.piece % tile.mr == 0 && p.slice % tile.mr == 0 && p.width % tile.nr == 0);
    ASSERT_LE(p.width, blocks.nc);
  }
}

constexpr shape kDriverShapes[] = {{40, 40, 40}, {200, 300, 500}, {16, 100, 3000}, {1400, 20, 1400}, {900, 300, 64}};

template <class T>
void check_driver(const std::vector<int64_t>& teams) {
  engine random(42);
  for (const shape& s : kDriverShapes) {
    const blas_case<T> x(problem_of<T>(operation::gemm, "TN", s.m, s.n, s.k, T(2), T(-1)), random, values::whole);
    const matrix<T> right = by_driver(x, options_of(TEV_CPU_AVX512, 1));
    ASSERT_TRUE(is_right(x, right));
    for (const int32_t tier : {TEV_CPU_AVX2, TEV_CPU_AVX512, TEV_CPU_AVX512_ZEL})
      for (const int64_t threads : teams)
        ASSERT_TRUE(by_driver(x, options_of(tier, threads)).same_bits(right))
            << x << ", tier " << tier << ", " << threads;
  }
}

TEST_F(GemmDriver, EveryTierRoutineForTeamsOfAnySize) {
  check_driver<double>({2, 3, 4, 7, 16, 33, 64});
  check_driver<float>({4, 30});
  check_driver<std::complex<float>>({4, 30});
  check_driver<std::complex<double>>({2, 16});
}

TEST_F(GemmDriver, PartsOfKInPlaceAreAddedInOrder) {
  engine random(7);
  const blas_case<double> x(problem_of<double>(operation::gemm, "NN", 100, 60, 4000, 1.1, 0.7), random,
                            values::fractions);
  const auto run = [&] {
    matrix<double> result = x.start();
    const auto op = described(x.p, result);
    omp_driver_nocopy(op, op.a, op.b, op.c, options_of(TEV_CPU_AVX512_ZEL, 16));
    return result;
  };
  const matrix<double> first = run();
  EXPECT_TRUE(is_right(x, first));
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(run().same_bits(first));
}

// The runtime gives fewer threads than the driver asks for: 3 for 8, and what two regions leave each other of 5.
TEST_F(GemmDriver, TeamsSmallerThanAskedFor) {
  for (const char* limit : {"3", "5"}) {
    const auto body = [&] {
      check_driver<double>({8});
      omp_set_max_active_levels(2);
#pragma omp parallel num_threads(2)
      check_driver<double>({4, 8});
      return ::testing::Test::HasFailure() ? 1 : 0;
    };
    const child_result result = in_child({{"OMP_THREAD_LIMIT", limit}}, body);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
  }
}

// ---- Memory --------------------------------------------------------------------------------------------------------

// Of a large team ten requests, which asks for many alike. `blocks`: requests of a run where nothing fails; 0: any.
template <class Run>
void expect_every_request_may_fail(const char* name, const blas_case<double>& x, int blocks, const Run& run) {
  const auto body = [&] {
    scarce_memory::install();
    const matrix<double> right = by_driver(x, options_of(TEV_CPU_AVX512, 1));
    EXPECT_TRUE(is_right(x, right));
    scarce_memory::fail(0);
    EXPECT_TRUE(run().same_bits(right));
    if (blocks > 0) EXPECT_EQ(scarce_memory::requests, blocks);
    EXPECT_GT(scarce_memory::fail_each(10, [&] { EXPECT_TRUE(run().same_bits(right)); }), 0);
  };
  EXPECT_EQ(printed({{"TEV_DISABLE_FAST_MM", "1"}}, body), "") << name;
}

TEST_F(GemmMemory, AnyRequestMayFailAndTheProductIsComputed) {
  engine random(99);
  const blas_case<double> x(problem_of<double>(operation::gemm, "NT", 500, 450, 300, 1, 3), random, values::whole);
  for (const setting& s : kSettings)
    expect_every_request_may_fail(s.name, x, s.blocks, [&] { return by_routine(x, options_of(s, 4)); });
}

TEST_F(GemmMemory, TheDriversNeedNoneEither) {
  engine random(98);
  const blas_case<double> deep(problem_of<double>(operation::gemm, "NN", 60, 60, 3000, 1, 3), random, values::whole);
  expect_every_request_may_fail("parts of k in place", deep, 0,
                                [&] { return by_driver(deep, options_of(TEV_CPU_AVX512_ZEL, 16)); });
  const blas_case<double> wide(problem_of<double>(operation::gemm, "NT", 300, 700, 310, 1, 3), random, values::whole);
  expect_every_request_may_fail("large team", wide, 0, [&] { return by_driver(wide, options_of(TEV_CPU_AVX2, 300)); });
}

}  // namespace
