// SPDX-License-Identifier: BSD-3-Clause
// The C names of a tier's routines. A unit (kernels/units/) includes the tier.h of the tier that it is compiled for,
// which sets TEV_TIER, then its own list once for each precision letter TEV_P; in that and in the lists of
// kernels/exports/
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

// TEV_HAS(gemm_tiny): does the roster of the tier say so for TEV_P? A row that a roster lacks does not compile.
#define TEV_FLAGS_s 1, 0, 0, 0
#define TEV_FLAGS_d 0, 1, 0, 0
#define TEV_FLAGS_c 0, 0, 1, 0
#define TEV_FLAGS_z 0, 0, 0, 1
#define TEV_APPLY(row, ...) row(__VA_ARGS__)
#define TEV_HAS(row) TEV_APPLY(TEV_HAS_##row, TEV_CAT2(TEV_FLAGS_, TEV_P))
// The same in all tiers.
#define TEV_HAS_imaginary_parts(s, d, c, z) c || z
#define TEV_HAS_gemm_bdz(s, d, c, z) s || d || z
#define TEV_HAS_gemm_brc(s, d, c, z) s || d
