// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/cnr_def/tier.h"

#include "kernels/families/level3.inc"
