// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/gemm/tier_row.h"

#include "blas_threading/gemm/grid.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

constexpr team_cost kSmallTeam = {3000, 0, 3000, true}, kLargeTeam = {5000, 500, 4000, false},
                    kManyCores = {8000, 2500, 3000, false};

// The drivers of the older interface have grids and copies of their own.
constexpr tier_row kOlder = {.work = 0.125,
                             .small_team = kSmallTeam,
                             .large_team = kLargeTeam,
                             .by_shape = false,
                             .few_rows = false,
                             .two_or_three = false,
                             .clashing = 0,
                             .wants_panels = always_panels,
                             .set_thread_opts = set_thread_opts_avx2};
constexpr tier_row kAvx2 = {.work = 0.125,
                            .small_team = kSmallTeam,
                            .large_team = kLargeTeam,
                            .by_shape = false,
                            .few_rows = false,
                            .two_or_three = false,
                            .clashing = 0,
                            .wants_panels = avx2_wants_panels,
                            .set_thread_opts = set_thread_opts_avx2};
constexpr tier_row kAvx512 = {.work = 0.0625,
                              .small_team = kSmallTeam,
                              .large_team = kLargeTeam,
                              .by_shape = false,
                              .few_rows = false,
                              .two_or_three = true,
                              .clashing = 16,
                              .wants_panels = avx512_wants_panels,
                              .set_thread_opts = set_thread_opts_avx512};
constexpr tier_row kAvx512Zel = {.work = 0.625,
                                 .small_team = kManyCores,
                                 .large_team = kManyCores,
                                 .by_shape = true,
                                 .few_rows = true,
                                 .two_or_three = true,
                                 .clashing = 0,
                                 .wants_panels = many_core_wants_panels,
                                 .set_thread_opts = set_thread_opts_avx512_zel};

}  // namespace

const tier_row& row_of(int32_t tier) {
  switch (static_cast<decltype(TEV_CPU_DEF)>(tier)) {  // no default: the compiler names the code that is missing
    case TEV_CPU_DEF:
    case TEV_CPU_MC:
    case TEV_CPU_MC3:
    case TEV_CPU_AVX:
      return kOlder;
    case TEV_CPU_AVX2:
      return kAvx2;
    case TEV_CPU_AVX512_ZEL:
    case TEV_CPU_AVX512_ZEL_E1:
      return kAvx512Zel;
    case TEV_CPU_AVX512:
      return kAvx512;
  }
  return kOlder;
}

}  // namespace tev::blas
