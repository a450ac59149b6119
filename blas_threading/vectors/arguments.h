// SPDX-License-Identifier: BSD-3-Clause
// Argument errors of level 2: each routine lists what it checks, in the order of the numbers that are reported.
#pragma once

#include <algorithm>
#include <initializer_list>

#include "blas_threading/wrong_argument.h"
#include "kernels/operation.h"

namespace tev::blas {

struct argument_check {
  int32_t number;  // of the argument, from 1
  bool passed;
};

// Reports the first wrong argument, if there is one. False: nothing is to be computed.
template <class T>
bool arguments_are_right(const char* stem, std::initializer_list<argument_check> checks) {
  for (const argument_check& check : checks) {
    if (check.passed) continue;
    report_wrong_argument<T>(stem, check.number);
    return false;
  }
  return true;
}

inline bool is_uplo(char letter) { return kernels::uplo_code(letter) >= 0; }
inline bool is_diag(char letter) { return kernels::diag_code(letter) >= 0; }
inline bool is_trans(char letter) { return kernels::transposition_code(letter) >= 0; }
inline bool holds_rows(int64_t leading_dimension, int64_t rows) {
  return leading_dimension >= std::max<int64_t>(1, rows);
}

}  // namespace tev::blas
