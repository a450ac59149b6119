// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx512/gemm_small.cpp: what avx512 has of products without packed panels.
#include "kernels/avx512/tier.h"

#include "kernels/families/fixed_depth-inl.h"
#include "kernels/families/gemm_unpacked-inl.h"

#define TEV_P s
#include "kernels/families/gemm_unpacked.exports.inc"
#include "kernels/families/gemm_tiny.exports.inc"

#include "kernels/families/gemm_nocopy.exports.inc"
#include "kernels/families/gemm_nocopy_driver.exports.inc"
#include "kernels/families/gemm_t_smalln.exports.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/families/gemm_unpacked.exports.inc"
#include "kernels/families/gemm_tiny.exports.inc"

#include "kernels/families/gemm_n_smalln.exports.inc"
#include "kernels/families/gemm_nocopy.exports.inc"
#include "kernels/families/gemm_nocopy_driver.exports.inc"
#include "kernels/families/gemm_t_smalln.exports.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/families/gemm_unpacked.exports.inc"
#include "kernels/families/gemm_tiny.exports.inc"

#include "kernels/families/gemm_nocopy_driver.exports.inc"
#include "kernels/families/gemm_sm.exports.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/families/gemm_unpacked.exports.inc"
#include "kernels/families/gemm_tiny.exports.inc"

#include "kernels/families/gemm_nocopy_driver.exports.inc"
#include "kernels/families/gemm_sm.exports.inc"
#undef TEV_P
