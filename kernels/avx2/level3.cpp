// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/avx2/tier.h"

#include "kernels/exports/level3_all.inc"
