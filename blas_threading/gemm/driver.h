// SPDX-License-Identifier: BSD-3-Clause
// The parallel drivers of C := alpha op(A) op(B) + beta C, defined for the four element types. Each opens one parallel
// region; called inside one, or when the runtime gives no team, it computes the product on the calling thread.
#pragma once

#include <cstdint>

#include "blas_threading/gemm/options.h"
#include "kernels/records.h"

namespace tev::blas {

// Tiers with the version-2 kernels. `options` holds what the front end fills.
template <class T>
void gemm_omp_driver_v2(const kernels::operation<T>& problem, operand a, operand b, operand c, thread_options options);

// The same for a product that is not worth packed panels: a grid of blocks of C, each computed in place, with the
// parts of k added in a fixed order. s and d only.
template <class T>
void omp_driver_nocopy(const kernels::operation<T>& problem, operand a, operand b, operand c, thread_options options);

// Tiers with the version-1 kernels. Exported as tev_blas_?gemm_omp_driver_v1.
template <class T>
void gemm_omp_driver_v1(const kernels::operation<T>& problem);

}  // namespace tev::blas
