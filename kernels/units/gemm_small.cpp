// SPDX-License-Identifier: BSD-3-Clause
// Products without packed panels.
#include "tier.h"

#include "kernels/families/fixed_depth-inl.h"
#include "kernels/families/gemm_unpacked-inl.h"
#if TEV_HAS_gemm_qfma(1, 1, 1, 1)
#include "kernels/families/gemm_qfma-inl.h"
#endif

#define TEV_LIST "kernels/units/gemm_small.inc"
#include "kernels/units/each_precision.inc"
