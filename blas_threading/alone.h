// SPDX-License-Identifier: BSD-3-Clause
// One thread's operation: the whole, or its share. The tiers with the newer interface have a driver for it in their
// kernel information, which knows what pays for operands of this shape; the older ones have an entry for each
// operation.
#pragma once

#include "blas_threading/kernel_calls.h"
#include "blas_threading/operands.h"

namespace tev::blas {

using kernels::kernel_info;

inline constexpr int32_t kNoMemory = 2;  // of a tier's driver

inline bool has_drivers() { return tev_blas_get_kernel_api_version() == 2; }

// The kernel information for an operation of one thread.
template <class T>
kernel_info<T> info_of(const operation<T>& p) {
  const kernels::thread_info packs_alone = {};
  kernels::strategy plan = {};
  kernel_calls<T>::map_thread_to_kernel(&packs_alone, &plan);
  kernel_info<T> info;
  kernel_calls<T>::initialize_kernel_info(&p, &p.a, &p.b, &p.c, &plan, &info);
  return info;
}

// Part of an operation, by the kernel information of the whole.
template <class T>
void compute_by_driver(const operation<T>& p, const operand& a, const operand& b, const operand& c,
                       const kernel_info<T>& info) {
  if (c.rows < 1 || c.columns < 1) return;
  kernels::buffers panels;
  if (info.driver(&p, &a, &b, &c, &panels, &info) == kNoMemory) info.fallback(&p, &a, &b, &c, &panels, &info);
}

template <class T>
void compute_alone(const operation<T>& p);

template <class T>
void compute_alone(const operation<T>& p, const operand& a, const operand& b, const operand& c) {
  compute_alone(narrowed(p, a, b, c));
}

}  // namespace tev::blas
