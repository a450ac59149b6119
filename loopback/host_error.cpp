// SPDX-License-Identifier: BSD-3-Clause
// The last error of each thread. A plain array: a thread's end, or an unloading of the library, has nothing to destroy.
// What a sink said may be part of the text, and goes to somebody's terminal: control characters become question marks.
#include <cstdarg>
#include <cstdio>

#include "loopback/host_internal.h"

namespace {

thread_local char t_error[1536];

// Bytes of the printable character at s; 0 when it is a control character or no well-formed UTF-8.
size_t printable_length(const unsigned char* s) {
  if (*s < 0x80) return *s >= 0x20 && *s != 0x7f;
  const size_t length = *s < 0xc2 ? 0 : *s < 0xe0 ? 2 : *s < 0xf0 ? 3 : *s < 0xf5 ? 4 : 0;
  for (size_t i = 1; i < length; ++i)
    if ((s[i] & 0xc0) != 0x80) return 0;  // also at the end of the text
  const bool control = s[0] == 0xc2 && s[1] < 0xa0;
  const bool overlong = (s[0] == 0xe0 && s[1] < 0xa0) || (s[0] == 0xf0 && s[1] < 0x90);
  return control || overlong ? 0 : length;
}

void make_printable(char* text) {
  for (auto* s = reinterpret_cast<unsigned char*>(text); *s;) {
    const size_t length = printable_length(s);
    if (length == 0) *s = '?';
    s += length == 0 ? 1 : length;
  }
}

}  // namespace

int vro::fail(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(t_error, sizeof(t_error), format, arguments);
  va_end(arguments);
  make_printable(t_error);
  return code;
}

VRO_EXPORT const char* vro_last_error() { return t_error; }
