// SPDX-License-Identifier: BSD-3-Clause
// kernels/cnr_def/gemm_version1.cpp: the older interface of products, which the drivers of this tier use.
#include "kernels/cnr_def/tier.h"
#include "kernels/families/gemm_version1-inl.h"

extern "C" {
tev::kernels::number_fn TEV_KN(get_kernel_api_version), TEV_KN(get_ikernel_api_version);
int32_t TEV_KN(get_kernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
int32_t TEV_KN(get_ikernel_api_version)() { return tev::TEV_TIER::kApiVersion; }
}

#define TEV_P s
#include "kernels/families/gemm_version1.exports.inc"
#include "kernels/families/gemm_version1_only.exports.inc"
#include "kernels/families/gemm_bdz.exports.inc"
#include "kernels/families/gemm_brc.exports.inc"
#include "kernels/families/gemm_brc_copies.exports.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/families/gemm_version1.exports.inc"
#include "kernels/families/gemm_version1_only.exports.inc"
#include "kernels/families/gemm_bdz.exports.inc"
#include "kernels/families/gemm_bdz_copies.exports.inc"
#include "kernels/families/gemm_brc.exports.inc"
#include "kernels/families/gemm_brc_copies.exports.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/families/gemm_version1.exports.inc"
#include "kernels/families/gemm_version1_only.exports.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/families/gemm_version1.exports.inc"
#include "kernels/families/gemm_version1_only.exports.inc"
#include "kernels/families/gemm_bdz.exports.inc"
#undef TEV_P
