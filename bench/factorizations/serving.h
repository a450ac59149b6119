// SPDX-License-Identifier: BSD-3-Clause
// The measured side: one library, one process, one routine. It says "ready", or why it is not, and answers on its
// standard output until its standard input is closed:
//
//   case N   "ok" when the result of one call looks right
//   run      seconds per call
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tev::bench {

bool is_factorization(const std::string& op);
double flops_of(const std::string& op, char precision, int64_t n);

// PATH OPERATION PRECISION [threaded]: with "threaded" the clock's time, otherwise the thread's.
int serve_factorization(const std::vector<std::string>& arguments);

}  // namespace tev::bench
