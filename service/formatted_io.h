// SPDX-License-Identifier: BSD-3-Clause
// Formatted output and input with the C library's formats and results. Every null pointer is answered instead of
// followed: output then writes nothing and returns -1, input returns EOF.
//
// Output into a buffer never passes its size and is always terminated. The result is the length of the whole text
// without its terminator, so a result of `size` or more says that the text was cut; both names behave alike. A failed
// conversion or a null format leaves an empty string and returns -1; a null buffer or a size of 0 returns -1.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

extern "C" {

__attribute__((format(printf, 1, 2))) int tev_serv_printf_s(const char* format, ...);
__attribute__((format(printf, 2, 3))) int tev_serv_fprintf_s(FILE* stream, const char* format, ...);
__attribute__((format(printf, 1, 2))) int tev_serv_fprintf_stdout_s(const char* format, ...);
__attribute__((format(printf, 1, 2))) int tev_serv_fprintf_stderr_s(const char* format, ...);
__attribute__((format(printf, 1, 0))) int tev_serv_vprintf_s(const char* format, va_list arguments);
__attribute__((format(printf, 2, 0))) int tev_serv_vfprintf_s(FILE* stream, const char* format, va_list arguments);
__attribute__((format(printf, 1, 0))) int tev_serv_vfprintf_stdout_s(const char* format, va_list arguments);
__attribute__((format(printf, 1, 0))) int tev_serv_vfprintf_stderr_s(const char* format, va_list arguments);

__attribute__((format(printf, 3, 4))) int tev_serv_sprintf_s(char* buffer, size_t size, const char* format, ...);
__attribute__((format(printf, 3, 4))) int tev_serv_snprintf_s(char* buffer, size_t size, const char* format, ...);
__attribute__((format(printf, 3, 0))) int tev_serv_vsprintf_s(char* buffer, size_t size, const char* format,
                                                              va_list arguments);
__attribute__((format(printf, 3, 0))) int tev_serv_vsnprintf_s(char* buffer, size_t size, const char* format,
                                                               va_list arguments);

__attribute__((format(scanf, 2, 3))) int tev_serv_sscanf_s(const char* text, const char* format, ...);
__attribute__((format(scanf, 2, 3))) int tev_serv_fscanf_s(FILE* stream, const char* format, ...);

}  // extern "C"
