// SPDX-License-Identifier: BSD-3-Clause
// The driver of the version-1 tiers: how it cuts C, and that every cut gives what one thread gives. Whole numbers:
// every sum is exact, so results match bit for bit. The driver runs on any tier; those it is made for come in child
// processes.
#include "blas_threading/gemm/version1.h"

#include <omp.h>

#include "blas_threading/gemm/version1_shared.h"
#include "kernels/dispatch/dispatch.h"
#include "tests/support/described.h"
#include "tests/support/each_tier.h"
#include "tests/support/judge.h"
#include "tests/support/own_threads.h"
#include "tests/support/scarce_memory.h"
#include "tev/service.h"

namespace tev::test {
namespace {

using namespace tev::blas;

bool meet(const block& x, const block& y) {
  return x.row < y.row + y.rows && y.row < x.row + x.rows && x.column < y.column + y.columns &&
         y.column < x.column + x.columns;
}

TEST(Version1Grid, BlocksCoverCOnce) {
  engine random(20);
  const auto upto = [&](int64_t most) { return std::uniform_int_distribution<int64_t>(1, most)(random); };
  for (int i = 0; i < 5000; ++i) {
    const int64_t m = upto(300), n = upto(300), tile_rows = 4 << upto(2), threads = upto(24);
    const version1_grid grid =
        i % 2 == 0 ? version1_grid{threads, upto(threads)} : best_version1_grid(m, n, threads, tile_rows);
    ASSERT_TRUE(grid.groups >= 1 && grid.groups <= grid.threads && grid.threads <= threads);
    std::vector<block> parts;
    int64_t covered = 0;
    for (int64_t t = 0; t < grid.threads; ++t) {
      const block part = version1_block(grid, t, m, n, tile_rows);
      if (part.rows == 0 || part.columns == 0) continue;
      ASSERT_TRUE(part.row % tile_rows == 0 && part.column % kVersion1Columns == 0);
      ASSERT_TRUE(part.rows > 0 && part.columns > 0 && part.row + part.rows <= m && part.column + part.columns <= n);
      for (const block& other : parts) ASSERT_FALSE(meet(part, other)) << m << 'x' << n << ' ' << grid.groups;
      parts.push_back(part);
      covered += part.rows * part.columns;
    }
    ASSERT_EQ(covered, m * n) << m << 'x' << n << ' ' << grid.threads << ' ' << grid.groups;
  }
}

TEST(Version1Grid, NoTeamLeavesThreadsWithoutWork) {
  constexpr int64_t kSizes[][2] = {{4000, 4000}, {6000, 900}, {900, 6000}};
  for (int64_t threads = 1; threads <= 64; ++threads)
    for (const auto& [m, n] : kSizes) {
      const version1_grid grid = best_version1_grid(m, n, threads, 8);
      ASSERT_EQ(grid.threads, threads);
      for (int64_t t = 0; t < threads; ++t) {
        const block part = version1_block(grid, t, m, n, 8);
        EXPECT_LT(part.rows * part.columns * threads * 10, m * n * 11) << m << 'x' << n << ", " << threads;
      }
    }
}

// ---- Products ------------------------------------------------------------------------------------------------------

template <class T>
struct version1;
#define TEV_VERSION1(type, element, p)                                                  \
  template <>                                                                           \
  struct version1<type> {                                                               \
    static constexpr auto driver = tev_blas_##p##gemm_omp_driver_v1;                    \
    static constexpr gemm_by_threads_fn<element>* strategies[] = {                      \
        tev_blas_##p##gemm_1d_row,         tev_blas_##p##gemm_1d_col,                   \
        tev_blas_##p##gemm_2d_bsrc,        tev_blas_##p##gemm_2d_improved_bsrc,         \
        tev_blas_##p##gemm_1d_with_copy_0, tev_blas_##p##gemm_2d_bcopy,                 \
        tev_blas_##p##gemm_2d_acopy_n,     tev_blas_##p##gemm_2d_abcopy_abx_m_km_par_p, \
        tev_blas_##p##gemm_2d_xgemm_p,     tev_blas_##p##gemm_xgemm_external_omp};      \
  };
TEV_VERSION1(float, float, s)
TEV_VERSION1(double, double, d)
TEV_VERSION1(std::complex<float>, tev_complex8, c)
TEV_VERSION1(std::complex<double>, tev_complex16, z)

template <class T, class Routine, class... More>
matrix<T> by(Routine* routine, const blas_case<T>& x, const More*... more) {
  matrix<T> result = x.start();
  call_product(x.p, result.data(), routine, more...);
  return result;
}

// Sharing is a call of its own, so that a test sees whether the threads shared or each worked alone.
template <class T>
bool shares(const blas_case<T>& x, const shared_grid& grid) {
  const matrix<T> result = x.start();
  const auto product = described(x.p, result);
  if (!multiply_shared(product, grid)) return false;
  EXPECT_TRUE(is_right(x, result));
  return true;
}

// Where beta is 0 a sum of zeros may have either sign.
template <class T>
bool agree(const blas_case<T>& x, const matrix<T>& result, const matrix<T>& right) {
  if (x.p.beta != T(0)) return result.same_bits(right);
  return is_right(x, result);
}

constexpr shape kShapes[] = {{203, 101, 300}, {61, 7, 40}, {5, 130, 9}, {150, 90, 0}};

template <class T>
void check_products(const std::vector<int64_t>& teams, T alpha, T beta) {
  engine random(47);
  for (const shape& s : kShapes)
    for (const char* trans : {"NN", "TN", "NC", "CT"}) {
      const blas_case<T> x(problem_of<T>(operation::gemm, trans, s.m, s.n, s.k, alpha, beta), random, values::whole);
      const matrix<T> right = by(version1<T>::driver, x);
      EXPECT_TRUE(is_right(x, right));
      for (const int64_t team : teams) {
        for (const auto& strategy : version1<T>::strategies)
          ASSERT_TRUE(agree(x, by(strategy, x, &team), right))
              << x << ", " << team << ", strategy " << &strategy - version1<T>::strategies;
        const own_threads available(static_cast<int32_t>(team));
        ASSERT_TRUE(agree(x, by(version1<T>::driver, x), right)) << x << ", " << team;
      }
    }
}

TEST(Version1Driver, EveryStrategyInEveryPrecisionForTeamsOfAnySize) {
  check_products<double>({1, 2, 3, 7, 24}, 2, -1);
  check_products<double>({3}, 0, -3);
  check_products<float>({2, 5}, -1, 0);
  check_products<std::complex<float>>({3, 8}, {1, 2}, {2, -1});
  check_products<std::complex<double>>({2, 7}, {0, -1}, {0, 0});
}

TEST(Version1Driver, ProductsLargerThanThePanelsGoInChunks) {
  engine random(48);
  const int64_t team = 3;
  for (const auto& [m, n] : {std::pair<int64_t, int64_t>{17000, 9}, {9, 17000}}) {
    const blas_case<double> x(problem_of<double>(operation::gemm, "NN", m, n, 259, 1, 2), random, values::whole);
    const matrix<double> right = by(tev_blas_dgemm_1d_row, x, &team);
    for (const auto& strategy : version1<double>::strategies) EXPECT_TRUE(agree(x, by(strategy, x, &team), right)) << x;
  }
}

TEST(Version1Driver, SameBitsInEveryRun) {
  engine random(49);
  const blas_case<float> x(problem_of<float>(operation::gemm, "NT", 190, 130, 700, 1.1f, 0.7f), random,
                           values::fractions);
  for (const int64_t team : {2, 7}) {
    for (const auto& strategy : version1<float>::strategies) {
      const matrix<float> first = by(strategy, x, &team);
      EXPECT_TRUE(is_right(x, first));
      for (int run = 0; run < 10; ++run) EXPECT_TRUE(by(strategy, x, &team).same_bits(first)) << team;
    }
  }
}

// The tiers that the driver is made for, through the front end, too.
TEST(Version1Driver, OnItsOwnTiers) {
  on_each_tier({}, [](const tier_in_force& tier) {
    if (tev_serv_cpu_detect() != tier.type) return 3;
    if (tev_blas_get_kernel_api_version() != 1) return 0;
    check_products<float>({4}, 2, 1);
    check_products<double>({3}, 2, 1);
    check_products<std::complex<float>>({16}, {1, 2}, {1, 0});
    check_products<std::complex<double>>({2}, {1, -1}, {0, 2});
    engine random(50);
    for (int64_t team = 2; team <= 16; ++team)
      for (const auto& [share_a, share_b] : {std::pair(true, true), std::pair(true, false), std::pair(false, true)}) {
        const blas_case<double> y(problem_of<double>(operation::gemm, "NC", 203, 101, 300, 2, 1), random,
                                  values::whole);
        const blas_case<std::complex<float>> z(
            problem_of<std::complex<float>>(operation::gemm, "CN", 61, 130, 290, {1, 2}, 0), random, values::whole);
        EXPECT_TRUE(shares(y, best_shared_grid(203, 101, team, 8, share_a, share_b)));
        EXPECT_TRUE(shares(z, best_shared_grid(61, 130, team, 8, share_a, share_b)));
      }
    const blas_case<double> x(problem_of<double>(operation::gemm, "NT", 210, 320, 90, 1, 2), random, values::whole);
    const own_threads four(4);
    EXPECT_TRUE(is_right(x, x.run()));
    // Two threads on two processors share this one.
    const own_threads two(2);
    const blas_case<double> tall(problem_of<double>(operation::gemm, "NN", 800, 50, 600, 1, 2), random, values::whole);
    EXPECT_TRUE(is_right(tall, tall.run()));
    return 0;
  });
}

TEST(Version1Driver, TeamsSmallerThanAskedFor) {
  const child_result result = in_child({{"OMP_THREAD_LIMIT", "5"}}, [] {
    check_products<double>({4}, 2, -1);
    omp_set_max_active_levels(2);
#pragma omp parallel num_threads(2)
    check_products<double>({4}, 2, -1);
    return ::testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_IN_CHILD(Version1Driver, WithoutMemoryEveryThreadWorksAlone, {"TEV_DEBUG_CPU_TYPE", "0"},
              {"TEV_DISABLE_FAST_MM", "1"}) {
  scarce_memory::install();
  engine random(51);
  const int64_t team = 4;
  const blas_case<double> x(problem_of<double>(operation::gemm, "NT", 203, 101, 300, 1, 3), random, values::whole);
  for (const auto& strategy : version1<double>::strategies)
    scarce_memory::fail_each(20, [&] { EXPECT_TRUE(is_right(x, by(strategy, x, &team))); });
  scarce_memory::fail(1);
  EXPECT_FALSE(shares(x, {2, 2, true, true}));
}

}  // namespace
}  // namespace tev::test
