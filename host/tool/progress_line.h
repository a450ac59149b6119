// SPDX-License-Identifier: BSD-3-Clause
// One line on the terminal that tells what a long run is doing; nothing when standard error is no terminal, nor within
// the first second. It is wiped at the end, and when a signal ends the program. There is one at a time.
#pragma once

#include <chrono>
#include <string>

namespace tev::host::tool {

class progress_line {
 public:
  progress_line();
  progress_line(const progress_line&) = delete;
  progress_line& operator=(const progress_line&) = delete;
  ~progress_line() { clear(); }

  void show(const std::string& text);
  void clear();

 private:
  bool terminal_;
  std::chrono::steady_clock::time_point next_;  // not before
};

}  // namespace tev::host::tool
