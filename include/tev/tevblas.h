/* SPDX-License-Identifier: BSD-3-Clause */
/* What libtevblas has beside the standard names of BLAS and CBLAS, for which any cblas.h will do. C11 and C++20. */
#ifndef TEV_TEVBLAS_H
#define TEV_TEVBLAS_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Threads of a call, for all callers; 0 hands the decision back to the environment (docs/using.md). */
TEV_EXPORT void tevblas_set_num_threads(int n);

/* Threads that a large call would have if this thread made it now: at least 1. */
TEV_EXPORT int tevblas_get_num_threads(void);

/* Whose instructions the kernels use: "avx512", for one. */
TEV_EXPORT const char* tevblas_get_tier(void);

TEV_EXPORT const char* tevblas_get_version(void);

#ifdef __cplusplus
}
#endif

#endif
