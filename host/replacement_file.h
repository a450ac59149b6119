// SPDX-License-Identifier: BSD-3-Clause
// A file that takes its name, and the place of what had it, when it is complete: nobody ever sees half of it, and
// nothing is left of one that is given up, be it by an error or by a signal that ends the program.
#pragma once

#include <cstdint>
#include <string>

namespace tev::host {

// The file that `path` names: itself, or what its symbolic links lead to. Throws if it could not possibly be replaced;
// changes nothing.
std::string replacement_target(const std::string& path);

// A text as such a file.
void write_file(const std::string& path, const std::string& text);

// At most one at a time.
class replacement_file {
 public:
  // Has the permissions and, as far as this user may give them, owner and group of the file that it will replace.
  explicit replacement_file(const std::string& path);
  replacement_file(const replacement_file&) = delete;
  replacement_file& operator=(const replacement_file&) = delete;
  ~replacement_file();

  void write(const void* from, int64_t bytes);
  void commit();

 private:
  std::string target_;
  int descriptor_ = -1;
};

}  // namespace tev::host
