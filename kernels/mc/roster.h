// SPDX-License-Identifier: BSD-3-Clause
// What mc has by name beside the families of every tier: the lists of kernels/exports, and the precisions that have
// them.
#pragma once

#define TEV_HAS_gemm_framework(s, d, c, z) 0
#define TEV_HAS_gemm_nocopy(s, d, c, z) 0
#define TEV_HAS_gemm_qfma(s, d, c, z) 0
#define TEV_HAS_gemm_anbn(s, d, c, z) 0
#define TEV_HAS_gemm_meq6(s, d, c, z) 0
#define TEV_HAS_gemm_meq9_12(s, d, c, z) 0
#define TEV_HAS_gemm_n_smalln(s, d, c, z) 0
#define TEV_HAS_gemm_t_smalln(s, d, c, z) 0
#define TEV_HAS_gemm_tiny(s, d, c, z) 0
#define TEV_HAS_gemm_sm(s, d, c, z) 1
#define TEV_HAS_gemm_version1_only(s, d, c, z) 1
#define TEV_HAS_gemm_bdz_copies(s, d, c, z) s || d || z
#define TEV_HAS_gemm_brc_copies(s, d, c, z) s || d
#define TEV_HAS_gemm_htn(s, d, c, z) 1
#define TEV_HAS_trmm_sm(s, d, c, z) 0
#define TEV_HAS_trmm_sm_01_08(s, d, c, z) 1
#define TEV_HAS_trsm_v1(s, d, c, z) 0
#define TEV_HAS_trmm_blocked(s, d, c, z) 0
#define TEV_HAS_trsm_blocked(s, d, c, z) 1
#define TEV_HAS_trmm_letters(s, d, c, z) 1
#define TEV_HAS_trsm_letters(s, d, c, z) 1
#define TEV_HAS_letters_r(s, d, c, z) 1
#define TEV_HAS_trsm_tiles(s, d, c, z) 0
#define TEV_HAS_triangular_baseline(s, d, c, z) 0
#define TEV_HAS_syrk_parts(s, d, c, z) 1
#define TEV_HAS_herk_pst(s, d, c, z) 0
