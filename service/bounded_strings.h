// SPDX-License-Identifier: BSD-3-Clause
// String and memory functions that know the capacity of their destination. The service layer uses these instead of the
// C library's; a broken rule is reported to a replaceable handler with a fixed message and a code, and the code is
// returned. The first rule broken, in the order of the checks, is the one reported.
//
//               capacity at most   on a violation, once dest and dmax have passed their checks
//   strncpy_s   4096               dest[0] = 0
//   strncat_s   4096               dest[0] = 0: a caller that ignores the code gets no text rather than half of one
//   memcpy_s    268435456          dest[0 .. dmax) = 0
//   memmove     268435456          dest keeps its bytes
//
// The destination is cleared before the handler runs, so a handler that does not return leaves it cleared, too.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tev::service {

inline constexpr size_t kMaxStringCapacity = 4096;
inline constexpr size_t kMaxMemoryCapacity = 268435456;

// What the checked functions return and hand to the handler; 0 is success.
inline constexpr int kNullPointer = 400;
inline constexpr int kZeroLength = 401;
inline constexpr int kLengthAboveMax = 403;  // also: a memory source longer than the destination
inline constexpr int kOverlap = 404;
inline constexpr int kNoSpace = 406;
inline constexpr int kUnterminated = 407;

}  // namespace tev::service

extern "C" {

// `reserved` is null. May be called by several threads at once.
typedef void (*tev_serv_constraint_handler)(const char* message, void* reserved, int error);

// One handler for strings, one for memory; both ignore violations at first. Null installs the ignoring handler.
// Returns the handler that was installed before.
tev_serv_constraint_handler tev_serv_set_str_constraint_handler_s(tev_serv_constraint_handler handler);
tev_serv_constraint_handler tev_serv_set_mem_constraint_handler_s(tev_serv_constraint_handler handler);
void tev_serv_invoke_safe_str_constraint_handler(const char* message, void* reserved, int error);
void tev_serv_invoke_safe_mem_constraint_handler(const char* message, void* reserved, int error);
void tev_serv_ignore_handler_s(const char* message, void* reserved, int error);

// Copies at most slen characters of src and a terminator; dmax must hold both. src needs no terminator within slen.
int tev_serv_strncpy_s(char* dest, size_t dmax, const char* src, size_t slen);

// The same behind the text that dest already holds; slen may be 0.
int tev_serv_strncat_s(char* dest, size_t dmax, const char* src, size_t slen);

// Length of s, at most dmax. A null string has length 0 and is no violation.
size_t tev_serv_strnlen_s(const char* s, size_t dmax);

// memcpy_s refuses a source that overlaps any of dest[0 .. dmax); the move copies through an overlap.
int tev_serv_memcpy_s(void* dest, size_t dmax, const void* src, size_t smax);
int tev_serv_memmove_unbounded_s(void* dest, size_t dmax, const void* src, size_t smax);

// Unchecked fill and overlap-safe copy.
void tev_serv_mem_prim_set(void* dest, size_t length, uint8_t value);
void tev_serv_mem_prim_move(void* dest, const void* src, size_t length);

// Unchecked copies for callers that have measured: dest = src; dest = first followed by second, where dest may be
// either of them. Return dest.
char* tev_serv_strcpy(char* dest, const char* src);
char* tev_serv_strcat2(char* dest, const char* first, const char* second);

}  // extern "C"
