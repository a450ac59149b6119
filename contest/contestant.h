// SPDX-License-Identifier: BSD-3-Clause
// A library under measurement, in a process of its own: what a library decides when it is loaded (instruction set,
// threads) is set in that process's environment, and two OpenMP runtimes never meet. The parent takes turns between
// its contestants, one sample each, so that a change of the machine's mood meets all of them alike.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "contest/operations.h"

namespace tev::contest {

using environment = std::vector<std::pair<std::string, std::string>>;

class contestant {
 public:
  // Starts `program`, this one by default, as `--serve <arguments>` (contest/serving.h) with `variables` added.
  contestant(std::string name, std::vector<std::string> arguments, environment variables,
             std::string program = "/proc/self/exe");
  ~contestant();
  contestant(const contestant&) = delete;
  contestant& operator=(const contestant&) = delete;

  // False when it has no such routine, or cannot be loaded.
  bool is_ready() const { return running_; }

  // Sets operands up, runs once and checks some elements of the result. False when the library cannot do it; one whose
  // process a case ended has a new one in the next.
  bool prepare(const level3_case& c);
  // The same with the case in the words of the serving side.
  bool prepare(const std::string& question);

  // Seconds per call, from one sample of a millisecond, ten when threaded, or one call.
  double sample();

  const std::string& name() const { return name_; }

 private:
  void start();
  void stop();
  std::string receive();
  std::string answer_to(const std::string& question);
  void complain(const std::string& answer) const;

  std::string name_, program_;
  std::vector<std::string> arguments_;
  environment variables_;
  bool running_ = false;
  int pid_ = -1;
  FILE* to_ = nullptr;
  FILE* from_ = nullptr;
};

}  // namespace tev::contest
