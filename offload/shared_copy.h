// SPDX-License-Identifier: BSD-3-Clause
// Matrices on their way to memory that a sink sees, and back: only what the routine reads or writes, by the team.
#pragma once

#include <cstdint>

namespace tev::offload {

enum class part { all, upper, lower };  // triangles with their diagonal

// Column-major, of elements of any type.
struct stored_matrix {
  char* data;
  int64_t rows, columns, ld;
  int64_t element_bytes;
  part what;

  int64_t packed_bytes() const { return rows * columns * element_bytes; }
  stored_matrix packed_at(void* memory) const {
    return {static_cast<char*>(memory), rows, columns, rows, element_bytes, what};
  }
};

// That part of the matrix; both have the same shape. The threads sleep at once afterwards: a sink on this machine has
// use for the processors.
void copy_matrix(const stored_matrix& from, const stored_matrix& to);

}  // namespace tev::offload
