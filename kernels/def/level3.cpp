// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/def/tier.h"

#include "kernels/families/level3.inc"
