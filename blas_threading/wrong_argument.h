// SPDX-License-Identifier: BSD-3-Clause
// Reports a wrong argument of a BLAS routine.
#pragma once

#include <cstdint>
#include <cstring>

#include "blas_threading/element.h"
#include "service/xerbla.h"

namespace tev::blas {

// `stem`: the routine's name without the precision, up to eight capitals; `position`: of the argument, from 1.
template <class T>
void report_wrong_argument(const char* stem, int32_t position) {
  char name[10] = {element<T>::kLetter};
  std::strcpy(name + 1, stem);
  tev_serv_xerbla(name, &position, static_cast<int32_t>(std::strlen(name)));
}

}  // namespace tev::blas
