// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2.
#include "tier.h"

#include "kernels/families/gemv-inl.h"
#include "kernels/families/ger-inl.h"
#include "kernels/families/reduction-inl.h"
#include "kernels/families/sweep-inl.h"
#include "kernels/families/symv-inl.h"
#include "kernels/families/triangle-inl.h"
#include "kernels/families/vector-inl.h"
#include "kernels/routine_types.h"
#include "kernels/sweep.h"

#define TEV_LIST "kernels/exports/vectors.inc"
#include "kernels/units/each_precision.inc"

#define TEV_P s
#include "kernels/exports/dot_in_double.inc"
