/* SPDX-License-Identifier: BSD-3-Clause */
/* Element types and linkage shared by the public headers. C11 and C++20. */
#ifndef TEV_TYPES_H
#define TEV_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TEV_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define TEV_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* Visible to a lookup by name from outside the binary; everything else is hidden. */
#define TEV_EXPORT __attribute__((visibility("default")))

/* Single and double complex; the layout of float[2], double[2] and of std::complex. */
typedef struct tev_complex8 {
  float real, imag;
} tev_complex8;

typedef struct tev_complex16 {
  double real, imag;
} tev_complex16;

#endif
