// SPDX-License-Identifier: BSD-3-Clause
// What this tier has of the packed product: the framework under its names, and the sequential entry.
#include "kernels/avx2/tier.h"

#include "kernels/families/gemm_driver-inl.h"
#include "kernels/families/gemm_team-inl.h"
#include "kernels/families/kernel_info-inl.h"

#define TEV_P s
#define TEV_MR 24
#define TEV_NR 4
#include "kernels/exports/gemm.inc"
#include "kernels/exports/gemm_framework.inc"
#undef TEV_P
#undef TEV_MR
#undef TEV_NR

#define TEV_P d
#define TEV_MR 12
#define TEV_NR 4
#include "kernels/exports/gemm.inc"
#include "kernels/exports/gemm_framework.inc"
#undef TEV_P
#undef TEV_MR
#undef TEV_NR

#define TEV_P c
#define TEV_MR 12
#define TEV_NR 2
#include "kernels/exports/gemm.inc"
#include "kernels/exports/gemm_framework.inc"
#undef TEV_P
#undef TEV_MR
#undef TEV_NR

#define TEV_P z
#define TEV_MR 6
#define TEV_NR 2
#include "kernels/exports/gemm.inc"
#include "kernels/exports/gemm_framework.inc"
#undef TEV_P
#undef TEV_MR
#undef TEV_NR
