// SPDX-License-Identifier: BSD-3-Clause
// One of a routine's four forms by the element type T: TEV_LAPACK(getrf) is tev_lapack_dgetrf where T is double.
#pragma once

#include "tests/support/matrix.h"

namespace tev::test {

template <class T>
constexpr auto of_precision(auto* s, auto* d) {
  return std::get<sizeof(real_part_t<T>) == 8>(std::pair(s, d));
}
template <class T>
constexpr auto of_precision(auto* s, auto* d, auto* c, auto* z) {
  if constexpr (kIsComplex<T>)
    return of_precision<T>(c, z);
  else
    return of_precision<T>(s, d);
}

}  // namespace tev::test

#define TEV_OF(T, prefix, name) \
  tev::test::of_precision<T>(prefix##s##name, prefix##d##name, prefix##c##name, prefix##z##name)
#define TEV_LAPACK(name) TEV_OF(T, tev_lapack_, name)
