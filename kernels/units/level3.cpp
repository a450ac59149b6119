// SPDX-License-Identifier: BSD-3-Clause
// Level 3 beside gemm.
#include "tier.h"

#include "kernels/families/rank_k-inl.h"
#include "kernels/families/symmetric-inl.h"
#include "kernels/families/triangular-inl.h"

#define TEV_LIST "kernels/units/level3.inc"
#include "kernels/units/each_precision.inc"
