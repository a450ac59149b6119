// SPDX-License-Identifier: BSD-3-Clause
// The kernels of the tier in force for libraries above this one, and norms, which are as short: a sum of squares, and
// the routine for every vector where squares may have been lost.
#include <cmath>

#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/squares.h"
#include "tev/blas.h"
#include "tev/direct_kernels.h"

namespace {

const tev_direct_kernels* of_tier;  // written before anybody has a function from here, and always the same

constexpr int64_t kOne = 1;

double squares(int64_t n, const float* x) { return tev_blas_xsdot_in_double(&n, x, &kOne, x, &kOne); }
double squares(int64_t n, const double* x) { return of_tier->ddot(n, x, 1, x, 1); }

#define TEV_NORM(name, T, R)                                                                         \
  R name(int64_t n, const T* x, int64_t incx) {                                                      \
    if (incx == 1) {                                                                                 \
      const double sum = squares(n * int64_t{sizeof(T) / sizeof(R)}, reinterpret_cast<const R*>(x)); \
      if (tev::blas::squares_are_whole<R>(sum)) return static_cast<R>(std::sqrt(sum));               \
    }                                                                                                \
    return tev_blas_##name(&n, x, &incx);                                                            \
  }
TEV_DIRECT_NORMS(TEV_NORM)
#undef TEV_NORM

}  // namespace

void tev_blas_get_direct_kernels(tev_direct_kernels* kernels) {
  __atomic_store_n(&of_tier, tev_blas_direct_kernels(), __ATOMIC_RELAXED);
  *kernels = *of_tier;
#define TEV_NORM(name, T, R) kernels->name = name;
  TEV_DIRECT_NORMS(TEV_NORM)
#undef TEV_NORM
}
