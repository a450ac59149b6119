// SPDX-License-Identifier: BSD-3-Clause
// The copies and the packed kernel of the tier in force, if it is one of the older interface, for drivers that pack by
// themselves. The kernel comes through its entry point, so the tier is the one that every other entry point goes to;
// it leads to the copies that belong to it.
#pragma once

#include "kernels/dispatch/dispatch.h"

extern "C" {
#define TEV_DECLARE(tier, p, T)                                                                          \
  tev::kernels::copy_fn<T> tev_blas_##tier##_##p##gemm_copya_ext, tev_blas_##tier##_##p##gemm_copyb_ext; \
  tev::kernels::ker0_fn<T> tev_blas_##tier##_##p##gemm_ker0;
#define TEV_DECLARE_ALL(p, T) \
  TEV_DECLARE(def, p, T)      \
  TEV_DECLARE(cnr_def, p, T)  \
  TEV_DECLARE(mc, p, T)       \
  TEV_DECLARE(mc3, p, T)      \
  TEV_DECLARE(avx, p, T)
TEV_DECLARE_ALL(s, float)
TEV_DECLARE_ALL(d, double)
TEV_DECLARE_ALL(c, tev_complex8)
TEV_DECLARE_ALL(z, tev_complex16)
#undef TEV_DECLARE_ALL
#undef TEV_DECLARE
}  // extern "C"

namespace tev::kernels {

template <class T>
struct version1_kernels {
  copy_fn<T>* copy_a;  // by the operand's copy mode
  copy_fn<T>* copy_b;
  ker0_fn<T>* ker0;
};

// Null pointers on the tiers of the newer interface.
template <class T>
version1_kernels<T> version1_kernels_in_force();

#define TEV_ROW(tier, p) \
  {tev_blas_##tier##_##p##gemm_copya_ext, tev_blas_##tier##_##p##gemm_copyb_ext, tev_blas_##tier##_##p##gemm_ker0},
#define TEV_VERSION1_KERNELS(p, T)                                                                               \
  template <>                                                                                                    \
  inline version1_kernels<T> version1_kernels_in_force<T>() {                                                    \
    constexpr version1_kernels<T> kTiers[] = {TEV_ROW(def, p) TEV_ROW(cnr_def, p) TEV_ROW(mc, p) TEV_ROW(mc3, p) \
                                                  TEV_ROW(avx, p)};                                              \
    constexpr int64_t kAnyExtent = 1;                                                                            \
    const auto ker0 = tev_blas_##p##gemm_get_optimal_kernel(&kAnyExtent, &kAnyExtent, &kAnyExtent);              \
    for (const version1_kernels<T>& tier : kTiers)                                                               \
      if (tier.ker0 == ker0) return tier;                                                                        \
    return {};                                                                                                   \
  }
TEV_VERSION1_KERNELS(s, float)
TEV_VERSION1_KERNELS(d, double)
TEV_VERSION1_KERNELS(c, tev_complex8)
TEV_VERSION1_KERNELS(z, tev_complex16)
#undef TEV_VERSION1_KERNELS
#undef TEV_ROW

}  // namespace tev::kernels
