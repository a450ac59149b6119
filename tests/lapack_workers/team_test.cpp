// SPDX-License-Identifier: BSD-3-Clause
// A team's barrier, its product in every mode and with every loss of memory, and the thread count of its members.
#include "lapack_workers/team.h"

#include "tests/support/in_child.h"
#include "tests/support/judge.h"
#include "tests/support/precision.h"
#include "tests/support/scarce_memory.h"
#include "tev/service.h"

namespace tev::test {
namespace {

using namespace tev::lapack;

template <class Body>
void on_team(int64_t size, const Body& body) {
  std::vector<std::thread> threads;
  for (int64_t i = 1; i < size; ++i) threads.emplace_back([&, i] { body(i); });
  body(0);
  for (std::thread& thread : threads) thread.join();
}

TEST(Team, MeetsAnyNumberOfTimesOnOneBlock) {
  for (const int64_t size : {1, 2, 5}) {
    team_block block = {};
    std::vector<int64_t> rounds(static_cast<size_t>(size));  // plain words: the barrier alone orders them
    std::atomic<int> wrong = 0;
    on_team(size, [&](int64_t i) {
      for (int64_t round = 1; round <= 100; ++round) {
        rounds[static_cast<size_t>(i)] = round;
        tev_barrier_wait(&block.barrier, i, size);
        for (const int64_t other : rounds) wrong += other != round;
        tev_barrier_wait(&block.barrier, i, size);
      }
    });
    EXPECT_EQ(wrong, 0) << size;
    EXPECT_EQ(block.barrier.release, static_cast<uint64_t>(200 * (size - 1)));
  }
}

// ---- The product ---------------------------------------------------------------------------------------------------

constexpr int64_t kModes[] = {0, kTeamByRows, kTeamByColumns, kTeamByDepth, kTeamByKernel, 9};

// With letters that must not be read.
template <class T>
matrix<T> by_team(const blas_case<T>& x, team_block& block, int64_t size) {
  matrix<T> result = x.start();
  const problem<T>& p = x.p;
  on_team(size, [&](int64_t i) {
    TEV_LAPACK(gemm_team)
    (&i, &size, &block, "T", "C", &p.m, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta),
     at(result), &p.ldc);
  });
  return result;
}

template <class T>
matrix<T> by_team(const blas_case<T>& x, int64_t mode, int64_t size) {
  void* board = nullptr;
  team_block block = {};
  block.gemm_mode = mode;
  block.internal_team[0] = reinterpret_cast<uint64_t>(&board);
  matrix<T> result = by_team(x, block, size);
  free_workspace(block);
  return result;
}

constexpr shape kShapes[] = {{90, 70, 130}, {3, 5, 2}, {1, 40, 7}, {30, 20, 0}, {0, 4, 4}, {4, 0, 4}};

template <class T>
void check_modes(T alpha, T beta) {
  engine random(60);
  for (const shape& s : kShapes) {
    const blas_case<T> x(problem_of<T>(operation::gemm, "NT", s.m, s.n, s.k, alpha, beta), random, values::whole);
    for (const int64_t mode : kModes)
      for (const int64_t size : {1, 2, 3, 9})
        EXPECT_TRUE(is_right(x, by_team(x, mode, size))) << "mode " << mode << ", " << size;
  }
}

TEST(TeamProduct, EveryModeInEveryPrecision) {
  check_modes<double>(2, -1);
  check_modes<double>(-1, 0);  // C is NaN and must not be read
  check_modes<float>(1, 1);
  check_modes<float>(0, 3);
  check_modes<std::complex<float>>({1, -2}, {0, 1});
  check_modes<std::complex<double>>({0, 1}, {0, 0});
}

// Rounding shows the order of additions, and who computed what.
TEST(TeamProduct, SameBitsInEveryRun) {
  engine random(61);
  const blas_case<float> x(problem_of<float>(operation::gemm, "NT", 60, 50, 900, 1.1f, 0.7f), random,
                           values::fractions);
  for (const int64_t mode : kModes) {
    const matrix<float> first = by_team(x, mode, 5);
    EXPECT_TRUE(is_right(x, first));
    for (int run = 0; run < 10; ++run) EXPECT_TRUE(by_team(x, mode, 5).same_bits(first)) << mode;
  }
  team_block no_word = {};
  no_word.gemm_mode = kTeamByKernel;
  EXPECT_TRUE(by_team(x, no_word, 5).same_bits(by_team(x, kTeamByColumns, 5)));
}

// One block for many products: the workspace of the caller is used, a larger one replaces it and stays.
TEST(TeamProduct, KeepsItsWorkspaceAsLongAsItIsLargeEnough) {
  engine random(62);
  const blas_case<double> small(problem_of<double>(operation::gemm, "NT", 10, 10, 50, 1, 1), random, values::whole);
  const blas_case<double> large(problem_of<double>(operation::gemm, "NT", 40, 10, 50, 1, 1), random, values::whole);
  std::array<double, 300> given;
  team_block block = {};
  block.gemm_mode = kTeamByDepth;
  block.workspace = given.data(), block.workspace_capacity = given.size();
  EXPECT_TRUE(is_right(small, by_team(small, block, 3)));
  EXPECT_TRUE(block.workspace == given.data() && block.workspace_owned == 0);
  EXPECT_TRUE(is_right(large, by_team(large, block, 3)));
  void* const own = block.workspace;
  EXPECT_TRUE(own != given.data() && block.workspace_owned == 1 && block.workspace_capacity == 1200);
  EXPECT_TRUE(is_right(small, by_team(small, block, 3)));
  EXPECT_EQ(block.workspace, own);
  free_workspace(block);
  EXPECT_TRUE(block.workspace == nullptr && block.workspace_owned == 0);
}

// On a tier with the older kernels and one whose product for teams refuses when it has no memory (where it runs).
TEST(TeamProduct, AnyRequestForMemoryMayFail) {
  engine random(64);
  const blas_case<double> x(problem_of<double>(operation::gemm, "NT", 120, 330, 150, 1, 3), random, values::whole);
  const auto body = [&] {
    scarce_memory::install();
    for (const int64_t mode : {kTeamByDepth, kTeamByKernel})
      EXPECT_GT(scarce_memory::fail_each(100, [&] { EXPECT_TRUE(is_right(x, by_team(x, mode, 3))); }), 0);
  };
  std::vector<const char*> types = {"0"};
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) types.push_back("5");
  for (const char* type : types)
    EXPECT_EQ(printed({{"TEV_DISABLE_FAST_MM", "1"}, {"TEV_DEBUG_CPU_TYPE", type}}, body), "") << type;
}

// ---- Thread counts -------------------------------------------------------------------------------------------------

int32_t own_count() {
  const int32_t count = tev_serv_set_num_threads_local(0);
  tev_serv_set_num_threads_local(count);
  return count;
}

TEST_IN_CHILD(TeamThreads, CallsAreSingleThreadedBetweenEnterAndExit) {
  tev_lapack_omp_parallel_exit();  // nobody ever entered
  EXPECT_EQ(own_count(), -1);
  on_team(3, [](int64_t i) {
    const auto mine = static_cast<int32_t>(i == 2 ? 0 : i + 4);
    tev_serv_set_num_threads_local(mine);
    tev_lapack_omp_parallel_enter();
    EXPECT_EQ(tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS), 1);
    tev_lapack_omp_parallel_exit();
    EXPECT_EQ(own_count(), mine);
  });
  std::thread([] {
    tev_serv_set_num_threads_local(7);
    tev_lapack_omp_parallel_exit();  // others entered
    EXPECT_EQ(own_count(), 0);
  }).join();
  tev_serv_core_cleanup();  // deletes the key; the next enter makes a new one
  tev_lapack_omp_parallel_exit();
  EXPECT_EQ(own_count(), -1);
  tev_serv_set_num_threads_local(3);
  tev_lapack_omp_parallel_enter();
  tev_lapack_omp_parallel_exit();
  EXPECT_EQ(own_count(), 3);
}

}  // namespace
}  // namespace tev::test
