// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/mc3/tier.h"

#include "kernels/exports/level3_all.inc"
