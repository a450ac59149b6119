// SPDX-License-Identifier: BSD-3-Clause
// What is printed.
#pragma once

#include <string>
#include <vector>

#include "bench/level3/options.h"

namespace tev::bench {

// Times are seconds per call of each contestant, ours first; not a number: it did not take part.
struct measured {
  level3_case what;
  double flops;
  std::vector<double> seconds;
  double spread;         // of ours, a fraction
  double multiply_adds;  // floating-point operations per second of all threads, in registers
  double own_product;    // the same of our own gemm of order 1000; not a number: not asked for
};

struct measured_busy {
  level3_case what;
  double flops;
  std::vector<double> quiet, busy;
};

class report {
 public:
  report(const options& o, std::vector<std::string> contestants);

  void head(double multiply_adds_per_core) const;
  void line(const std::string& set, const measured& m) const;
  void line(const std::string& set, const measured_busy& m) const;
  void end_of_set(const std::string& set, const std::vector<measured>& all) const;
  void end_of_set(const std::string& set, const std::vector<measured_busy>& all) const;

 private:
  const options& options_;
  std::vector<std::string> contestants_;
};

}  // namespace tev::bench
