// SPDX-License-Identifier: BSD-3-Clause
// A library under measurement, in a process of its own: what a library decides when it is loaded (instruction set,
// threads) is set in that process's environment, and two OpenMP runtimes never meet. The parent takes turns between
// its contestants, one sample each, so that a change of the machine's mood meets all of them alike.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace tev::bench {

// One product: options, sizes, leading dimensions (0: the least allowed).
struct gemm_case {
  char transa, transb;
  int64_t m, n, k;
  int64_t lda, ldb, ldc;
};

class contestant {
 public:
  // Starts this program again as `--serve <arguments>` with `environment` added.
  contestant(std::string name, const std::vector<std::string>& arguments,
             const std::vector<std::pair<std::string, std::string>>& environment);
  ~contestant();
  contestant(const contestant&) = delete;
  contestant& operator=(const contestant&) = delete;

  // Sets operands up, runs once and checks some elements of the result. False when the library cannot do it.
  bool prepare(const gemm_case& c);

  // Seconds per call, from one sample of a millisecond, ten when threaded, or one call.
  double sample();

  const std::string& name() const { return name_; }

 private:
  std::string answer_to(const char* question);

  std::string name_;
  int pid_;
  FILE* to_;
  FILE* from_;
};

}  // namespace tev::bench
