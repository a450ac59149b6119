// SPDX-License-Identifier: BSD-3-Clause
// Numbered messages: the text comes from the system's message catalog "tev_msg.cat" when there is one, else from the
// built-in table. A formatted text is cut at 511 characters. Printing ends with a newline and flushes the two standard
// streams; the lines of messages printed at the same time may mix.
#pragma once

#include "tev/service.h"

namespace tev::service {

// Values of `stream`.
inline constexpr int32_t kStandardOutput = 0;
inline constexpr int32_t kStandardError = 1;

// Message numbers. Those of argument errors are in service/xerbla.cpp, where they are chosen.
inline constexpr int32_t kNewline = 0;
inline constexpr int32_t kCannotLoad = 1;  // %s file
inline constexpr int32_t kReproducibilityIgnored = 1209;
inline constexpr int32_t kProcessorTooOld = 1210;
inline constexpr int32_t kNeedsSse2 = 1211;
inline constexpr int32_t kProcessorNotSupported = 1213;  // %d type code

}  // namespace tev::service

extern "C" {

// `nargs` is the number of arguments that follow; printing itself does not need it. Returns 0, or EOF when a stream
// could not be flushed.
// A process without standard error gets everything on standard output.
int32_t tev_serv_print(int32_t stream, int32_t number, int32_t nargs, ...);

// The text of a message, formatted when nargs is 1 or more (into a buffer of the calling thread, which its next call
// writes again). Empty for 0 and for numbers without a message.
const char* tev_serv_get_msg(int32_t number, int32_t nargs, ...);

// Prints the caller's own format, without a newline; nothing when nargs is below 1.
__attribute__((format(printf, 2, 4))) int32_t tev_serv_format_print(int32_t stream, const char* format, int32_t nargs,
                                                                    ...);

// exit(status), or what the program's exit handler returns.
int32_t tev_serv_exit(int32_t status);

// Address of the verbose flag (0 or 1), decided by TEV_VERBOSE first if it is not yet. The program may change the flag
// at any time: read it atomically.
int32_t* tev_serv_verbose_mode(void);

}  // extern "C"
