// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 of def.
#include "kernels/def/tier.h"

#include "kernels/families/gemv-inl.h"
#include "kernels/families/ger-inl.h"
#include "kernels/families/vector-inl.h"
#include "kernels/routine_types.h"

#define TEV_COMPLEX 0
#define TEV_P s
#include "kernels/exports/vectors.inc"
#undef TEV_P
#define TEV_P d
#include "kernels/exports/vectors.inc"
#undef TEV_P
#undef TEV_COMPLEX
#define TEV_COMPLEX 1
#define TEV_P c
#include "kernels/exports/vectors.inc"
#undef TEV_P
#define TEV_P z
#include "kernels/exports/vectors.inc"
