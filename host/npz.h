// SPDX-License-Identifier: BSD-3-Clause
// Several arrays in one file, as numpy.load() reads them by name: a ZIP archive of .npy files, stored without
// compression, with 64-bit sizes throughout.
//
//   for each array            local header, NAME.npy          the file
//   then                      the directory: a header for each array, once more, with its place
//   at the end                where the directory is, in 64 bits and in 32 (all ones: see the others)
#pragma once

#include <string>
#include <vector>

#include "host/kinds.h"
#include "host/replacement_file.h"

namespace tev::host {

// The file exists once commit() has been called.
class npz_file {
 public:
  explicit npz_file(const std::string& path) : file_(path) {}

  // Column-major, without gaps.
  void add(const std::string& name, precision type, const void* elements, int64_t rows, int64_t columns);
  void add(const std::string& name, precision type, const void* elements, int64_t length);
  void add(const std::string& name, const std::vector<int64_t>& numbers);
  void commit();

 private:
  struct member {
    std::string name;
    uint32_t checksum;
    uint64_t bytes, at;
  };
  void add_member(const std::string& name, const std::string& header, const void* data, int64_t bytes);
  void write(const std::string& bytes);

  replacement_file file_;
  uint64_t written_ = 0;
  std::vector<member> members_;
};

}  // namespace tev::host
