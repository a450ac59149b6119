// SPDX-License-Identifier: BSD-3-Clause
// How the host side reports what went wrong: one line for the user and the exit status that goes with it.
#pragma once

#include <stdexcept>
#include <string>

namespace tev::host {

enum exit_status { kSuccess = 0, kFailed = 1, kBadInput = 2 };

class failure : public std::runtime_error {
 public:
  failure(exit_status status, const std::string& line) : std::runtime_error(line), status_(status) {}
  exit_status status() const { return status_; }

 private:
  exit_status status_;
};

// A file, shape, type or option that the user can correct; `line` names it first.
inline failure bad_input(const std::string& line) { return {kBadInput, line}; }

// Everything else: the sink ended, a check failed, the disk is full.
inline failure failed(const std::string& line) { return {kFailed, line}; }

}  // namespace tev::host
