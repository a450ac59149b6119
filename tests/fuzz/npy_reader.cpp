// SPDX-License-Identifier: BSD-3-Clause
// Arbitrary bytes as a matrix file: refused with a line, or read into exactly the memory that its header tells.
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "host/failure.h"
#include "host/npy.h"

using namespace tev::host;

namespace {

const int memory_file = memfd_create("npy", 0);
const std::string path = fmt::format("/proc/self/fd/{}", memory_file);

void put(const std::string& bytes) {
  if (ftruncate(memory_file, 0) != 0 ||
      pwrite(memory_file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    std::abort();
}

}  // namespace

// The first byte chooses a version whose magic and length go in front of the rest, or none: 0x93NUMPY is soon learnt,
// the length of the text never.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  if (const int version = data[0] % 4; version > 0) {
    const size_t text = bytes.find('\n') + 1;
    const std::string length(version == 1 ? 1 : 3, '\0');
    bytes.insert(0, fmt::format("\x93NUMPY{}{}{}", static_cast<char>(version), '\0', static_cast<char>(text)) + length);
  }
  const std::vector<char> exact(bytes.begin(), bytes.end());
  try {
    parse_npy_header("x", {exact.data(), exact.size()}, static_cast<int64_t>(exact.size()));
    put(bytes);
    const npy_file file(path);
    const int64_t count = file.rows() * file.columns() * element_bytes(file.type());
    const std::unique_ptr<char[]> elements(new char[count]);
    file.read(elements.get());
  } catch (const failure& e) {
    if (e.status() != kBadInput) std::abort();
  }
  return 0;
}
