// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/avx2/tier.h"

#include "kernels/families/level3.inc"
