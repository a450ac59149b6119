// SPDX-License-Identifier: BSD-3-Clause
// The packed product and the sequential entry; with the newer interface, the framework under its names.
#include "tier.h"

#include "kernels/families/gemm_driver-inl.h"
#if TEV_HAS_gemm_framework(1, 1, 1, 1)
#include "kernels/families/gemm_team-inl.h"
#include "kernels/families/kernel_info-inl.h"
#endif

#define TEV_LIST "kernels/units/gemm.inc"
#include "kernels/units/each_precision.inc"
