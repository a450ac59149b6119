// SPDX-License-Identifier: BSD-3-Clause
#include "kernels/avx512/tier.h"

#include "kernels/families/level3.inc"
