// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2.
#include "tier.h"

#include "kernels/band.h"
#include "kernels/families/direct-inl.h"
#include "kernels/families/sweep-inl.h"
#include "kernels/routine_types.h"
#include "kernels/sweep.h"

#define TEV_LIST "kernels/exports/vectors.inc"
#include "kernels/units/each_precision.inc"

#define TEV_P s
#include "kernels/exports/dot_in_double.inc"

extern "C" {

const tev_direct_kernels* TEV_KN(direct_kernels)();

const tev_direct_kernels* TEV_KN(direct_kernels)() { return &tev::TEV_TIER::direct::kKernels; }

}  // extern "C"
