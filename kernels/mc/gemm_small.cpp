// SPDX-License-Identifier: BSD-3-Clause
// kernels/mc/gemm_small.cpp: what mc has of products without packed panels.
#include "kernels/mc/tier.h"

#include "kernels/families/fixed_depth-inl.h"
#include "kernels/families/gemm_unpacked-inl.h"

#define TEV_P s
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#include "kernels/exports/gemm_sm.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#include "kernels/exports/gemm_sm.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#include "kernels/exports/gemm_sm.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#include "kernels/exports/gemm_sm.inc"
#undef TEV_P
