// SPDX-License-Identifier: BSD-3-Clause
// Vectors as routines that take a matrix by columns want them: without gaps, since every column meets them again.
#pragma once

#include <cstdint>
#include <type_traits>

#include "blas_threading/kernel_calls.h"
#include "blas_threading/operands.h"
#include "tev/service.h"

namespace tev::blas {

// Elements at a distance of inc, which may be negative; `first` is element 0.
template <class T>
struct strided {
  T* first;
  int64_t inc;

  T& operator[](int64_t i) const { return first[i * inc]; }
  // What a kernel is given as the address of some elements that follow each other.
  T* address(const span& part) const { return first + (inc < 0 ? part.end - 1 : part.begin) * inc; }
};

// The n elements that a caller passed as x and inc (not 0): themselves, or, where they have gaps, a copy, which is
// written back at the end if T is not const. Long copies need memory; without it the elements stay where they are.
template <class T>
class gapless {
  using element = std::remove_const_t<T>;

 public:
  gapless(int64_t n, T* x, int64_t inc) : n_(n), inc_(inc), x_(x), own_{x - (inc < 0 ? (n - 1) * inc : 0), inc} {
    if (inc == 1) return;
    if (n > kOnStack) memory_ = static_cast<element*>(tev_serv_allocate(n * static_cast<int64_t>(sizeof(T)), 64));
    element* const copy = n > kOnStack ? memory_ : block_;
    if (copy == nullptr) return;
    kernel_calls<element>::xcopy(&n_, x_, &inc_, copy, &kOne);
    own_ = {copy, 1};
  }
  ~gapless() {
    if constexpr (!std::is_const_v<T>)
      if (own_.inc != inc_) kernel_calls<element>::xcopy(&n_, own_.first, &kOne, x_, &inc_);
    if (memory_ != nullptr) tev_serv_deallocate(memory_);
  }
  gapless(const gapless&) = delete;
  gapless& operator=(const gapless&) = delete;

  const strided<T>& elements() const { return own_; }

 private:
  static constexpr int64_t kOnStack = 2048 / sizeof(T), kOne = 1;
  int64_t n_, inc_;
  T* x_;
  strided<T> own_;
  element* memory_ = nullptr;
  element block_[kOnStack];
};

}  // namespace tev::blas
