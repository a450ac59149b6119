// SPDX-License-Identifier: BSD-3-Clause
// Formatted output and input: every form with an ellipsis is its `v` form, and those end in two places, one that
// writes to a stream and one that writes to a buffer.
#include "service/formatted_io.h"

extern "C" {

int tev_serv_vfprintf_s(FILE* stream, const char* format, va_list arguments) {
  return stream != nullptr && format != nullptr ? vfprintf(stream, format, arguments) : -1;
}

int tev_serv_vprintf_s(const char* format, va_list arguments) { return tev_serv_vfprintf_s(stdout, format, arguments); }

int tev_serv_vfprintf_stdout_s(const char* format, va_list arguments) {
  return tev_serv_vfprintf_s(stdout, format, arguments);
}

int tev_serv_vfprintf_stderr_s(const char* format, va_list arguments) {
  return tev_serv_vfprintf_s(stderr, format, arguments);
}

int tev_serv_printf_s(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = tev_serv_vfprintf_s(stdout, format, arguments);
  va_end(arguments);
  return written;
}

int tev_serv_fprintf_s(FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = tev_serv_vfprintf_s(stream, format, arguments);
  va_end(arguments);
  return written;
}

int tev_serv_fprintf_stdout_s(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = tev_serv_vfprintf_s(stdout, format, arguments);
  va_end(arguments);
  return written;
}

int tev_serv_fprintf_stderr_s(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = tev_serv_vfprintf_s(stderr, format, arguments);
  va_end(arguments);
  return written;
}

int tev_serv_vsnprintf_s(char* buffer, size_t size, const char* format, va_list arguments) {
  if (buffer == nullptr || size == 0) {
    return -1;
  }
  const int length = format != nullptr ? vsnprintf(buffer, size, format, arguments) : -1;
  if (length < 0) {
    buffer[0] = 0;
    return -1;
  }
  return length;
}

int tev_serv_vsprintf_s(char* buffer, size_t size, const char* format, va_list arguments) {
  return tev_serv_vsnprintf_s(buffer, size, format, arguments);
}

int tev_serv_sprintf_s(char* buffer, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = tev_serv_vsnprintf_s(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

int tev_serv_snprintf_s(char* buffer, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = tev_serv_vsnprintf_s(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

int tev_serv_sscanf_s(const char* text, const char* format, ...) {
  if (text == nullptr || format == nullptr) {
    return EOF;
  }
  va_list arguments;
  va_start(arguments, format);
  const int converted = vsscanf(text, format, arguments);
  va_end(arguments);
  return converted;
}

int tev_serv_fscanf_s(FILE* stream, const char* format, ...) {
  if (stream == nullptr || format == nullptr) {
    return EOF;
  }
  va_list arguments;
  va_start(arguments, format);
  const int converted = vfscanf(stream, format, arguments);
  va_end(arguments);
  return converted;
}

}  // extern "C"
