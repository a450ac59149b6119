// SPDX-License-Identifier: BSD-3-Clause
// The small languages of the command line. Each function throws a bad_input() that names the option and the text.
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "host/kinds.h"

namespace tev::host {

// What the user calls an operation: gemm and trsm come as a worker of their own and as a step of a factorization.
struct named_operation {
  operation op;
  bool is_step;
};
named_operation parse_operation(const std::string& text);
precision parse_precision(const std::string& text);

// N is int, int64_t or uint64_t.
template <class N>
N parse_whole_number(const std::string& option, const std::string& text, N first, N last);

// One of `letters` in either case; returned in upper case.
char parse_letter(const std::string& option, const std::string& text, const std::string& letters);

// "2.5" or "2.5,-1": the real part and the imaginary one.
std::complex<double> parse_scalar(const std::string& option, const std::string& text, precision p);

// "1-3,5": processors 1, 2, 3 and 5, ascending, each once. 1 to 1024: a sink cannot be told to use processor 0.
std::vector<int> parse_processors(const std::string& option, const std::string& text);

// The pieces between separators, empty ones too; of an empty text one.
std::vector<std::string> split(const std::string& text, char separator);

// "256,512,1000", or "100:1000:100" for 100, 200 ... 1000; both may be mixed.
std::vector<int64_t> parse_sizes(const std::string& option, const std::string& text);

}  // namespace tev::host
