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

/* Memory for matrices that are often read by calls which go to a sink: it sees them, too, and they are not copied. 64
 * bytes aligned, zeroed; NULL when there is none left. Where nothing is offloaded it is ordinary memory, else it starts
 * the sink. Both functions wait while the sink computes. A forked child shares the memory with its parent, may not
 * write what the parent reads, and does not release it. */
TEV_EXPORT void* tevblas_malloc(size_t bytes);
TEV_EXPORT void tevblas_free(void* memory); /* NULL is allowed */

#ifdef __cplusplus
}
#endif

#endif
