// SPDX-License-Identifier: BSD-3-Clause
// Files as the kernel would show them, below a folder that goes when the test ends.
#pragma once

#include <filesystem>
#include <fstream>

#include "tests/support/prelude.h"

namespace tev::test {

class kernel_folder {
 public:
  kernel_folder() : root_(testing::TempDir() + "kernel_" + std::to_string(getpid())) {}
  ~kernel_folder() { std::filesystem::remove_all(root_); }
  kernel_folder(const kernel_folder&) = delete;
  kernel_folder& operator=(const kernel_folder&) = delete;

  std::string path(const std::string& name) const { return root_ + '/' + name; }

  // Returns the path.
  std::string put(const std::string& name, const std::string& text) const {
    const std::filesystem::path file = path(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
    return file;
  }

 private:
  std::string root_;
};

}  // namespace tev::test
