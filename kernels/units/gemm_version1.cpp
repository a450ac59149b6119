// SPDX-License-Identifier: BSD-3-Clause
// The older interface of products, which the drivers of its tiers use; elsewhere its names without contents.
#include "tier.h"

#include "kernels/families/gemm_version1-inl.h"

extern "C" {
tev::kernels::number_fn TEV_KN(get_kernel_api_version), TEV_KN(get_ikernel_api_version);
int32_t TEV_KN(get_kernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
int32_t TEV_KN(get_ikernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
}

#define TEV_LIST "kernels/units/gemm_version1.inc"
#include "kernels/units/each_precision.inc"
