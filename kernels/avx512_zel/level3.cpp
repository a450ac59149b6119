// SPDX-License-Identifier: BSD-3-Clause
// symm, syrk, trmm and trsm of avx512_zel.
#include "kernels/avx512_zel/tier.h"

#include "kernels/families/symmetric-inl.h"
#include "kernels/families/triangular-inl.h"
#include "kernels/routine_types.h"

#define TEV_P s
#include "kernels/families/level3.exports.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/families/level3.exports.inc"
#undef TEV_P
#define TEV_P c
#include "kernels/families/level3.exports.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/families/level3.exports.inc"
