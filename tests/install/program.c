/* SPDX-License-Identifier: BSD-3-Clause */
/* A program of somebody else's: calls a BLAS by the standard name, and says which it was. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#ifdef WITH_HEADERS
#include <tev/blas.h>
#include <tev/offload.h>
#include <tev/tevblas.h>
#endif

void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*, const double*, const int*,
            const double*, const int*, const double*, double*, const int*, size_t, size_t);

int main(void) {
  const int n = 2;
  const double a[] = {1, 2, 3, 4}, one = 1, zero = 0;
  double c[4];
  dgemm_("N", "N", &n, &n, &n, &one, a, &n, a, &n, &zero, c, &n, 1, 1);
  Dl_info where;
  if (dladdr(dlsym(RTLD_DEFAULT, "dgemm_"), &where) == 0) return 1;
  printf("%g %g %g %g %s\n", c[0], c[1], c[2], c[3], where.dli_fname);
#ifdef WITH_HEADERS
  return tevblas_get_num_threads() < 1;
#else
  return 0;
#endif
}
