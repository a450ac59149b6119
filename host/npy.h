// SPDX-License-Identifier: BSD-3-Clause
// Matrices in NumPy's file format: read versions 1 to 3, either byte order, either storage order; written as version 1
// in Fortran order. In memory a matrix is always column-major.
//
//   bytes 0-5   6, 7              8 ...                 text                                          data
//   \x93NUMPY   major, minor      length of the text    {'descr': '<f8', 'fortran_order': True, ...}  elements
//                                 (u16; u32 from v2)    padded with spaces, newline
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/kinds.h"

namespace tev::host {

struct npy_header {
  precision type;
  bool swapped;           // the elements are big-endian
  bool fortran;           // stored by columns
  int64_t rows, columns;  // a one-dimensional array is one column
  int64_t data_at;        // offset of the first element
};

constexpr int64_t kNpyLongestHeader = 65536;

// `start`: the file's first bytes, kNpyLongestHeader of them or all; `name` is for the error line. The size of the file
// must be exactly what the header says.
npy_header parse_npy_header(const std::string& name, std::string_view start, int64_t file_bytes);

// A file opened for reading, its header already judged.
class npy_file {
 public:
  explicit npy_file(const std::string& path);
  npy_file(npy_file&& other) noexcept;
  npy_file& operator=(npy_file&&) = delete;
  ~npy_file();

  const std::string& path() const { return path_; }
  precision type() const { return header_.type; }
  int64_t rows() const { return header_.rows; }
  int64_t columns() const { return header_.columns; }

  // Column-major, without gaps: rows() * columns() elements.
  void read(void* elements) const;

 private:
  void read_bytes(void* to, int64_t bytes, int64_t at) const;

  std::string path_;
  int descriptor_;
  npy_header header_;
};

// What a file begins with: `shape` is what stands between the parentheses.
const char* npy_code(precision type);
std::string npy_start(const char* code, const std::string& shape);

// Whole, or not at all (host/replacement_file.h).
void write_npy(const std::string& path, precision type, const void* elements, int64_t rows, int64_t columns);

}  // namespace tev::host
