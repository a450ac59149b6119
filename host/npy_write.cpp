// SPDX-License-Identifier: BSD-3-Clause
// Writing npy.h's files, all or nothing.
#include <fmt/format.h>

#include "host/npy.h"
#include "host/replacement_file.h"

namespace tev::host {
namespace {

constexpr size_t kAlignment = 64;  // NumPy starts the data at a multiple of this

}  // namespace

const char* npy_code(precision type) {
  constexpr const char* kCodes[] = {"<f4", "<f8", "<c8", "<c16"};
  return kCodes[static_cast<int>(type)];
}

std::string npy_start(const char* code, const std::string& shape) {
  std::string text = fmt::format("{{'descr': '{}', 'fortran_order': True, 'shape': ({}), }}", code, shape);
  text.resize((10 + text.size() + kAlignment) / kAlignment * kAlignment - 11, ' ');
  text += '\n';
  std::string header("\x93NUMPY\x01\x00", 8);
  header += static_cast<char>(text.size() & 0xff);
  header += static_cast<char>(text.size() >> 8);
  return header + text;
}

void write_npy(const std::string& path, precision type, const void* elements, int64_t rows, int64_t columns) {
  replacement_file file(path);
  const std::string header = npy_start(npy_code(type), fmt::format("{}, {}", rows, columns));
  file.write(header.data(), static_cast<int64_t>(header.size()));
  file.write(elements, rows * columns * element_bytes(type));
  file.commit();
}

}  // namespace tev::host
