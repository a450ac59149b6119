// SPDX-License-Identifier: BSD-3-Clause
// The command line.
#pragma once

#include <string>
#include <vector>

#include "contest/libraries.h"

namespace tev::bench {

using namespace contest;

struct options : discipline {
  std::vector<std::string> sets;   // of `op`, all when none is chosen
  std::vector<std::string> peers;  // NAME=PATH[:VARIABLE=VALUE,...]; none: those of bench/level3/peers.h
  int rounds = 9;
  bool summary = false, busy = false, self = false;
};

// Ends the program, with the usage, when the arguments make no sense.
options parse(const std::vector<std::string>& arguments);

// "a,b" is {"a", "b"}.
std::vector<std::string> split(const std::string& text, char separator);

}  // namespace tev::bench
