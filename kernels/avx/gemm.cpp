// SPDX-License-Identifier: BSD-3-Clause
// The packed product and the sequential entry of this tier.
#include "kernels/avx/tier.h"

#include "kernels/families/gemm_driver-inl.h"

#define TEV_P s
#include "kernels/exports/gemm.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/exports/gemm.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/exports/gemm.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/exports/gemm.inc"
#undef TEV_P
