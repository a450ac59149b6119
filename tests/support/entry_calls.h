// SPDX-License-Identifier: BSD-3-Clause
// The dispatch entries under the names of the public routines, and with their argument lists in level 3.
#pragma once

#include "blas_threading/kernel_calls.h"
#include "tests/support/matrix.h"

namespace tev::test {

template <class T>
struct entry_calls;
#define TEV_ENTRY_CALLS(T, ...)                 \
  template <>                                   \
  struct entry_calls<T> {                       \
    TEV_CALLS_IN_EVERY_PRECISION(, __VA_ARGS__) \
  };
TEV_ENTRY_CALLS(float, tev_blas_xs, ger, ger, dot, dot)
TEV_ENTRY_CALLS(double, tev_blas_xd, ger, ger, dot, dot)
TEV_ENTRY_CALLS(tev_complex8, tev_blas_xc, geru, gerc, dotu, dotc)
TEV_ENTRY_CALLS(tev_complex16, tev_blas_xz, geru, gerc, dotu, dotc)
#undef TEV_ENTRY_CALLS

template <class T>
struct entries : entry_calls<c_element_t<T>> {
  using element = c_element_t<T>;
  using kernels = blas::kernel_calls<element>;
  static void syrk(auto... x) { kernels::xsyrk(x..., 0, 0); }
  static void hemm(auto... x) { kernels::xhemm(x...); }
  static void herk(auto... x) { kernels::xherk(x..., 0, 0); }
  static void her2k(auto... x) { kernels::xher2k(x...); }
};

}  // namespace tev::test
