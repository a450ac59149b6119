// SPDX-License-Identifier: BSD-3-Clause
// A column-major matrix, or a block of one, where it lies.
#pragma once

#include <cstdint>

namespace tev::lapack {

template <class T>
struct matrix_view {
  T* data;
  int64_t rows, columns, ld;

  T& operator()(int64_t i, int64_t j) const { return data[i + j * ld]; }
  matrix_view block(int64_t i, int64_t j, int64_t m, int64_t n) const { return {data + i + j * ld, m, n, ld}; }
};

}  // namespace tev::lapack
