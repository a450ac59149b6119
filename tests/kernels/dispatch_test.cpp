// SPDX-License-Identifier: BSD-3-Clause
// The entry points, each rule in a fresh process: what is decided at the first call stays decided.
//   Tiers        type code and reproducibility mode lead to the tier that they name
//   Arguments    a first call computes like the second, stack arguments included
//   Race         threads that make the first call together all get the tier's routine
//   Unsupported  a code without kernels ends the process, or the call when the program's exit hook returns

#include "kernels/dispatch/dispatch.h"
#include "tests/support/in_child.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"
#include "tev/service.h"

namespace tev::test {
namespace {

// The tier behind dgemm_get_optimal_kernel (older interface) or dgemm_map_thread_to_kernel (newer one).
std::string bound_tier() {
  const int64_t size = 100;
  const auto kernel = tev_blas_dgemm_get_optimal_kernel(&size, &size, &size);
  for (const std::string& tier : tiers_with<double>("?gemm_ker0")) {
    kernels::ker0_fn<double>* const named = find_kernel(tier, "?gemm_ker0", 'd');
    if (kernel == named) return tier;
  }
  kernels::strategy plan = {};
  const kernels::thread_info full_copy = {0};
  tev_blas_dgemm_map_thread_to_kernel(&full_copy, &plan);
  return plan.mr == 12 ? "avx2" : plan.mr == 24 ? "avx512" : plan.mr == 8 ? "avx512_zel" : "none";
}

// The result of a product whose every argument matters.
struct product {
  product() : x(problem_of<double>(operation::gemm, "TT", 5, 4, 3, 2, -3), random, values::whole) {}

  matrix<double> by(bool a_team) const {
    matrix<double> result = x.start();
    const int64_t first = 0, team = 1;
    alignas(64) char barrier[4096] = {};
    char work[4096] = {};
    if (a_team)
      call_product(x.p, result.data(), tev_blas_xdgemm_internal_team, &first, &team, static_cast<void*>(barrier),
                   reinterpret_cast<uint64_t>(work), uint64_t{0}, uint64_t{0}, uint64_t{0}, 2);
    else
      call_product(x.p, result.data(), tev_blas_xdgemm);
    return result;
  }
  bool computed_by(bool a_team) const { return is_right(x, by(a_team), true); }

  engine random{1};
  blas_case<double> x;
};

struct way {
  const char* code;
  const char* mode;  // TEV_CBWR
  const char* tier;
  int version, support;
};
constexpr way kWays[] = {
    {"0", "", "def", 1, 0},         {"2", "", "mc", 1, 1},          {"3", "", "mc3", 1, 1},
    {"4", "", "avx", 1, 1},         {"5", "", "avx2", 2, 4},        {"6", "", "avx512_zel", 2, 4},
    {"7", "", "avx512", 2, 4},      {"0", "AUTO", "cnr_def", 1, 0}, {"0", "COMPATIBLE", "cnr_def", 1, 0},
    {"2", "AUTO", "cnr_def", 1, 0}, {"3", "AUTO", "mc3", 1, 1},     {"5", "COMPATIBLE", "avx2", 2, 4},
};

TEST(Dispatch, CodeAndModeLeadToTheTier) {
  for (const way& w : kWays) {
    if (!processor_runs(w.tier)) continue;
    const child_result child = in_child({{"TEV_DEBUG_CPU_TYPE", w.code}, {"TEV_CBWR", w.mode}}, [&] {
      const int32_t support[] = {tev_blas_sgemm_api_support(), tev_blas_dgemm_api_support(),
                                 tev_blas_cgemm_api_support(), tev_blas_zgemm_api_support()};
      std::printf("%s %d %d%d%d%d", bound_tier().c_str(), tev_blas_get_kernel_api_version(), support[0], support[1],
                  support[2], support[3]);
      return 0;
    });
    EXPECT_EQ(child.status, 0) << w.code << ' ' << w.mode << child.err;
    EXPECT_EQ(child.out, std::string(w.tier) + ' ' + std::to_string(w.version) + ' ' +
                             std::string(4, static_cast<char>('0' + w.support)))
        << w.code << ' ' << w.mode;
  }
}

TEST(Dispatch, FirstCallPassesEveryArgument) {
  for (const way& w : kWays) {
    if (!processor_runs(w.tier)) continue;
    const child_result child = in_child({{"TEV_DEBUG_CPU_TYPE", w.code}, {"TEV_CBWR", w.mode}}, [] {
      product p;
      return p.computed_by(true) && p.computed_by(true) && p.computed_by(false) && p.computed_by(false) ? 0 : 1;
    });
    EXPECT_EQ(child.status, 0) << w.tier << child.err;
  }
}

TEST(Dispatch, ThreadsMayRaceForTheFirstCall) {
  for (int round = 0; round < 20; ++round) {
    const child_result child = in_child({}, [] {
      constexpr int kThreads = 16;
      std::atomic<int> waiting = kThreads, right = 0;
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
          product p;
          --waiting;
          while (waiting > 0) std::this_thread::yield();
          right += p.computed_by(false);
        });
      for (std::thread& thread : threads) thread.join();
      return right == kThreads ? 0 : 1;
    });
    ASSERT_EQ(child.status, 0) << child.err;
  }
}

TEST(Dispatch, UnsupportedCodeEndsTheProcessOrTheCall) {
  const std::string message = "Zarik TEV ERROR: CPU 1 is not supported.\n";
  const environment code_1 = {{"TEV_DEBUG_CPU_TYPE", "1"}};
  const child_result ended = in_child(code_1, [] { return tev_blas_get_kernel_api_version() + 50; });
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.out, message);

  // Nothing was bound, so each call asks again; none jumps to nowhere.
  const child_result survived = in_child(code_1, [] {
    static int32_t status;
    tev_serv_set_exit_handler([](int32_t s, void*) { return status = s; });
    product p;
    const int32_t zero = tev_blas_get_kernel_api_version() | tev_blas_get_kernel_api_version();
    return p.by(false).same_bits(p.x.start()) && zero == 0 && status == 1 ? 0 : 1;
  });
  EXPECT_EQ(survived.status, 0) << survived.err;
  EXPECT_EQ(survived.out, message + message + message);
}

}  // namespace
}  // namespace tev::test
