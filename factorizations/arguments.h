// SPDX-License-Identifier: BSD-3-Clause
// Argument errors of the LAPACK routines.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "blas_threading/element.h"
#include "factorizations/scalars.h"
#include "service/xerbla.h"
#include "tev/service.h"

namespace tev::lapack {

struct argument {
  int32_t position;  // from 1
  bool is_right;
};

template <class T>
void report(const char* stem, int32_t code) {
  char name[16] = {blas::element<T>::kLetter};
  std::strncpy(name + 1, stem, sizeof name - 2);
  tev_serv_xerbla(name, &code, static_cast<int32_t>(std::strlen(name)));
}

// Reports the first wrong one under the routine's name and makes *info minus its position, or 0 when all are right.
template <class T>
bool are_right(const char* stem, int64_t* info, std::initializer_list<argument> arguments) {
  const auto wrong = std::find_if(arguments.begin(), arguments.end(), [](const argument& a) { return !a.is_right; });
  *info = wrong == arguments.end() ? 0 : -wrong->position;
  if (*info == 0) return true;
  report<T>(stem, wrong->position);
  return false;
}

// Makes *info its code, too, negative as that of an argument.
template <class T>
void report_no_memory(const char* stem, int64_t* info) {
  report<T>(stem, service::kNotEnoughMemory);
  *info = -service::kNotEnoughMemory;
}

inline char upper_case(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

inline bool is_one_of(char letter, std::string_view letters) {
  return letters.find(upper_case(letter)) != std::string_view::npos;
}

inline bool holds(int64_t leading_dimension, int64_t rows) { return leading_dimension >= std::max<int64_t>(1, rows); }

// Tells the least length of the work array, and whether that is all that was asked for.
template <class T>
bool is_query(T* work, int64_t lwork, int64_t least) {
  *work = real_element<T>(static_cast<typename blas::element<T>::real>(least));
  return lwork == -1;
}

inline argument work_length(int32_t position, int64_t lwork, int64_t least) {
  return {position, lwork == -1 || lwork >= least};
}

}  // namespace tev::lapack
