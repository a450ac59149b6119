// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/mc3/tier.h"

#include "kernels/families/level3.inc"
