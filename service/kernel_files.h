// SPDX-License-Identifier: BSD-3-Clause
// The short text files in which the kernel describes processors and control groups.
#pragma once

#include <cstdint>
#include <optional>

namespace tev::service {

// The start of a file's first line, "" when it cannot be read. The path is a printf format.
struct first_line {
  char text[128] = "";
  __attribute__((format(printf, 2, 3))) explicit first_line(const char* path, ...);

  // The number that the line begins with.
  std::optional<int64_t> number() const;
};

}  // namespace tev::service
