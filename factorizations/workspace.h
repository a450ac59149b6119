// SPDX-License-Identifier: BSD-3-Clause
// Elements from the memory manager, returned at the end of the scope.
#pragma once

#include <cstdint>

#include "tev/service.h"

namespace tev::lapack {

template <class T>
class workspace {
 public:
  explicit workspace(int64_t elements)
      : data_(static_cast<T*>(tev_serv_allocate(elements * static_cast<int64_t>(sizeof(T)), kAlignment))) {}
  ~workspace() {
    if (data_ != nullptr) tev_serv_deallocate(data_);
  }
  workspace(const workspace&) = delete;
  workspace& operator=(const workspace&) = delete;

  explicit operator bool() const { return data_ != nullptr; }
  T* data() const { return data_; }

 private:
  static constexpr int64_t kAlignment = 128;  // bytes

  T* const data_;
};

}  // namespace tev::lapack
