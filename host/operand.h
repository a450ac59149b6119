// SPDX-License-Identifier: BSD-3-Clause
// A matrix in memory that the sink shares, and what it was before the sink saw it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "host/call.h"
#include "host/sink_client.h"

namespace tev::host {

template <class T>
struct operand {
  shared_buffer buffer;
  matrix_size size = {};
  std::vector<T> original;  // empty when nobody needs it

  T* elements() const { return static_cast<T*>(vro_buffer_map(buffer.get())); }
  int64_t count() const { return size.rows * size.columns; }
  int64_t leading_dimension() const { return std::max<int64_t>(size.rows, 1); }
  void keep_original() { original.assign(elements(), elements() + count()); }
  void restore() { std::copy(original.begin(), original.end(), elements()); }
};

template <class T>
operand<T> make_operand(sink_client& sink, matrix_size size) {
  return {sink.make_buffer(size.rows * size.columns * static_cast<int64_t>(sizeof(T))), size, {}};
}

}  // namespace tev::host
