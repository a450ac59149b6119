// SPDX-License-Identifier: BSD-3-Clause
// The C names of a tier's routines. A translation unit of a tier includes its tier.h (which sets TEV_TIER), defines
// TEV_P as a precision letter and includes lists of kernels/exports/, in which
//
//   TEV_K(gemm_ker0)   is tev_blas_avx2_dgemm_ker0      TEV_T   is double, the element type
//   TEV_KX(gemm)       is tev_blas_avx2_xdgemm          TEV_KG(generic_fullacopybcopy) is ..._d_generic_fullacopybcopy
//   TEV_KN(get_kernel_api_version) is tev_blas_avx2_get_kernel_api_version
//
// A family calls another routine of its own tier through `tev_blas_<tier>_...` alone, so tiers never mix.
#pragma once

#include "tev/types.h"

#define TEV_CAT2_(a, b) a##b
#define TEV_CAT2(a, b) TEV_CAT2_(a, b)
#define TEV_CAT5_(a, b, c, d, e) a##b##c##d##e
#define TEV_CAT5(a, b, c, d, e) TEV_CAT5_(a, b, c, d, e)
#define TEV_CAT6_(a, b, c, d, e, f) a##b##c##d##e##f
#define TEV_CAT6(a, b, c, d, e, f) TEV_CAT6_(a, b, c, d, e, f)

#define TEV_K(operation) TEV_CAT5(tev_blas_, TEV_TIER, _, TEV_P, operation)
#define TEV_KG(operation) TEV_CAT6(tev_blas_, TEV_TIER, _, TEV_P, _, operation)
#define TEV_KX(operation) TEV_CAT5(tev_blas_, TEV_TIER, _x, TEV_P, operation)
#define TEV_KN(name) TEV_CAT5(tev_blas_, TEV_TIER, _, name, )

#define TEV_ELEMENT_s float
#define TEV_ELEMENT_d double
#define TEV_ELEMENT_c tev_complex8
#define TEV_ELEMENT_z tev_complex16
#define TEV_T TEV_CAT2(TEV_ELEMENT_, TEV_P)
