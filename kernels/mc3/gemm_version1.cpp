// SPDX-License-Identifier: BSD-3-Clause
// kernels/mc3/gemm_version1.cpp: the older interface of products, which the drivers of this tier use.
#include "kernels/mc3/tier.h"
#include "kernels/families/gemm_version1-inl.h"

extern "C" {
tev::kernels::number_fn TEV_KN(get_kernel_api_version), TEV_KN(get_ikernel_api_version);
int32_t TEV_KN(get_kernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
int32_t TEV_KN(get_ikernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
}

#define TEV_P s
#include "kernels/exports/gemm_version1.inc"
#include "kernels/exports/gemm_version1_only.inc"
#include "kernels/exports/gemm_bdz.inc"
#include "kernels/exports/gemm_bdz_copies.inc"
#include "kernels/exports/gemm_brc.inc"
#include "kernels/exports/gemm_brc_copies.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/exports/gemm_version1.inc"
#include "kernels/exports/gemm_version1_only.inc"
#include "kernels/exports/gemm_bdz.inc"
#include "kernels/exports/gemm_bdz_copies.inc"
#include "kernels/exports/gemm_brc.inc"
#include "kernels/exports/gemm_brc_copies.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/exports/gemm_version1.inc"
#include "kernels/exports/gemm_version1_only.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/exports/gemm_version1.inc"
#include "kernels/exports/gemm_version1_only.inc"
#include "kernels/exports/gemm_bdz.inc"
#include "kernels/exports/gemm_bdz_copies.inc"
#undef TEV_P
