// SPDX-License-Identifier: BSD-3-Clause
// Writing npy.h's files, all or nothing.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/failure.h"
#include "host/npy.h"

namespace tev::host {
namespace {

constexpr size_t kAlignment = 64;  // NumPy starts the data at a multiple of this

// "dir/" of "dir/name", "./" of "name".
std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == path.npos ? "./" : path.substr(0, slash + 1);
}

std::string make_header(precision type, int64_t rows, int64_t columns) {
  constexpr const char* kCodes[] = {"<f4", "<f8", "<c8", "<c16"};
  std::string text = fmt::format("{{'descr': '{}', 'fortran_order': True, 'shape': ({}, {}), }}",
                                 kCodes[static_cast<int>(type)], rows, columns);
  text.resize((10 + text.size() + kAlignment) / kAlignment * kAlignment - 11, ' ');
  text += '\n';
  std::string header("\x93NUMPY\x01\x00", 8);
  header += static_cast<char>(text.size() & 0xff);
  header += static_cast<char>(text.size() >> 8);
  return header + text;
}

// A file that vanishes unless it is given its name.
class temporary_file {
 public:
  explicit temporary_file(const std::string& target)
      : target_(target), name_(fmt::format("{}.tev-offload-{}.tmp", folder_of(target), getpid())) {
    descriptor_ = open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0) throw cannot("cannot be written");
  }
  temporary_file(const temporary_file&) = delete;
  temporary_file& operator=(const temporary_file&) = delete;

  ~temporary_file() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!name_.empty()) unlink(name_.c_str());
  }

  void write(const void* from, int64_t bytes) {
    for (auto* next = static_cast<const char*>(from); bytes > 0;) {
      const ssize_t put = ::write(descriptor_, next, static_cast<size_t>(bytes));
      if (put < 0 && errno == EINTR) continue;
      if (put < 0) throw cannot("cannot be written");
      next += put;
      bytes -= put;
    }
  }

  void commit() {
    if (fsync(descriptor_) != 0) throw cannot("cannot be written");
    if (close(std::exchange(descriptor_, -1)) != 0) throw cannot("cannot be written");
    if (std::rename(name_.c_str(), target_.c_str()) != 0) throw cannot("cannot be replaced");
    name_.clear();
  }

 private:
  failure cannot(const char* what) const {
    return failed(fmt::format("{}: {}: {}", target_, what, std::strerror(errno)));
  }

  std::string target_, name_;
  int descriptor_ = -1;
};

}  // namespace

void check_npy_target(const std::string& path) {
  struct stat file = {};
  const std::string folder = folder_of(path);
  if (path.empty() || path.back() == '/') throw bad_input(fmt::format("--out '{}': is no name of a file", path));
  if (stat(folder.c_str(), &file) != 0)
    throw bad_input(fmt::format("{}: cannot be written: {}: {}", path, folder, std::strerror(errno)));
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    throw bad_input(fmt::format("{}: cannot be written: {}: {}", path, folder, std::strerror(errno)));
  // Renaming would replace a device or a pipe by a file.
  if (stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode))
    throw bad_input(path + ": exists and is not a regular file");
}

void write_npy(const std::string& path, precision type, const void* elements, int64_t rows, int64_t columns) {
  temporary_file file(path);
  const std::string header = make_header(type, rows, columns);
  file.write(header.data(), static_cast<int64_t>(header.size()));
  file.write(elements, rows * columns * element_bytes(type));
  file.commit();
}

}  // namespace tev::host
