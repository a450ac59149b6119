// SPDX-License-Identifier: BSD-3-Clause
// Addresses of elements: of op(X) in a caller's matrix, and of strips in a packed panel. Baseline code, shared by all
// tiers.
#include "kernels/records.h"

extern "C" {

void* getPointer_notrans(int64_t i, int64_t j, const tev::kernels::operand* x) {
  return static_cast<char*>(x->data) + (i + j * x->ld) * x->element_size;
}

void* getPointer_trans(int64_t i, int64_t j, const tev::kernels::operand* x) {
  return static_cast<char*>(x->data) + (i * x->ld + j) * x->element_size;
}

void* getPointer_buffer(int64_t s, int64_t p, const tev::kernels::panel* x) {
  return static_cast<char*>(x->data) + (s / x->strip * x->strip_stride + p * x->strip + s % x->strip) * x->element_size;
}

}  // extern "C"
