// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/def/tier.h"

#include "kernels/exports/level3_all.inc"
