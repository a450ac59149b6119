// SPDX-License-Identifier: BSD-3-Clause
// Argument errors: what the routines that check their arguments have in common.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "blas_threading/element.h"
#include "blas_threading/level3/operands.h"
#include "service/xerbla.h"

namespace tev::blas {

inline bool is_one_of(const char* option, const char* letters) {
  return std::any_of(letters, letters + std::char_traits<char>::length(letters),
                     [option](char letter) { return is_letter(option, letter); });
}

inline bool holds_rows(int64_t leading_dimension, int64_t rows) {
  return leading_dimension >= std::max<int64_t>(1, rows);
}

// `stem`: the routine's name after its precision letter, four characters.
template <class T>
void report_wrong_argument(const char* stem, int32_t position) {
  const char name[] = {element<T>::kLetter, stem[0], stem[1], stem[2], stem[3], '\0'};
  tev_serv_xerbla(name, &position, 5);
}

}  // namespace tev::blas
