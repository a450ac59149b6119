// SPDX-License-Identifier: BSD-3-Clause
// kernels/cnr_def/gemm_small.cpp: what cnr_def has of products without packed panels.
#include "kernels/cnr_def/tier.h"

#include "kernels/families/gemm_unpacked-inl.h"

#define TEV_P s
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/exports/gemm_unpacked.inc"

#include "kernels/exports/gemm_nocopy_driver.inc"
#undef TEV_P
