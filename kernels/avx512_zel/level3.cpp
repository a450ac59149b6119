// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/avx512_zel/tier.h"

#include "kernels/exports/level3_all.inc"
