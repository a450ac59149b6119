// SPDX-License-Identifier: BSD-3-Clause
// The tier's kernels for callers that need no team; include/tev/direct_kernels.h tells when that is.
#include "kernels/dispatch/dispatch.h"
#include "tev/direct_kernels.h"

void tev_blas_get_direct_kernels(tev_direct_kernels* kernels) { *kernels = *tev_blas_direct_kernels(); }
