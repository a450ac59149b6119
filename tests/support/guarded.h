// SPDX-License-Identifier: BSD-3-Clause
// An array that ends exactly at an unmapped page, so that a read or write past it ends the test.
#pragma once

#include <sys/mman.h>

#include "tests/support/prelude.h"

namespace tev::test {

template <class T>
class guarded_array {
 public:
  explicit guarded_array(int64_t count) {
    const size_t page = sysconf(_SC_PAGESIZE), bytes = count * sizeof(T);
    const size_t used = (bytes + page - 1) / page * page;
    mapped_ = used + page;
    base_ = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base_ == MAP_FAILED || mprotect(static_cast<char*>(base_) + used, page, PROT_NONE) != 0) throw std::bad_alloc();
    data_ = reinterpret_cast<T*>(static_cast<char*>(base_) + used - bytes);
  }
  guarded_array(guarded_array&& other) noexcept
      : base_(std::exchange(other.base_, nullptr)), mapped_(other.mapped_), data_(other.data_) {}
  guarded_array& operator=(guarded_array&&) = delete;
  ~guarded_array() {
    if (base_ != nullptr) munmap(base_, mapped_);
  }
  T* data() const { return data_; }

 private:
  void* base_;
  size_t mapped_;
  T* data_;
};

}  // namespace tev::test
