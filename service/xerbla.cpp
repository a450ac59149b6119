// SPDX-License-Identifier: BSD-3-Clause
// The report of a wrong argument: an empty line, then the routine and the number of the argument.
#include "service/xerbla.h"

#include <algorithm>
#include <cstdio>

#include "service/bounded_strings.h"
#include "service/formatted_io.h"

extern "C" void tev_serv_xerbla(const char* name, const int32_t* info, int32_t length) {
  if (name == nullptr || info == nullptr) {
    return;
  }
  char shown[21] = "";
  if (length > 0) {
    tev_serv_strncpy_s(shown, sizeof shown, name, static_cast<size_t>(std::min(length, 20)));
  }
  tev_serv_printf_s("\nZarik TEV ERROR: Parameter %d was incorrect on entry to %s.\n", *info, shown);
  fflush(stdout);
}
