// SPDX-License-Identifier: BSD-3-Clause
// The last error of each thread. A plain array: a thread's end, or an unloading of the library, has nothing to destroy.
#include <cstdarg>
#include <cstdio>

#include "loopback/host_internal.h"

namespace {
thread_local char t_error[1536];
}

int vro::fail(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(t_error, sizeof(t_error), format, arguments);
  va_end(arguments);
  return code;
}

VRO_EXPORT const char* vro_last_error() { return t_error; }
