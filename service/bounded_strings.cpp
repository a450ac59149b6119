// SPDX-License-Identifier: BSD-3-Clause
// The checked string and memory functions and their two handler slots.
#include "service/bounded_strings.h"

#include <atomic>
#include <cstring>

using namespace tev::service;

namespace {

constinit std::atomic<tev_serv_constraint_handler> string_handler{tev_serv_ignore_handler_s};
constinit std::atomic<tev_serv_constraint_handler> memory_handler{tev_serv_ignore_handler_s};

tev_serv_constraint_handler install(std::atomic<tev_serv_constraint_handler>& slot,
                                    tev_serv_constraint_handler handler) {
  return slot.exchange(handler != nullptr ? handler : tev_serv_ignore_handler_s);
}

int string_violation(const char* message, int error) {
  tev_serv_invoke_safe_str_constraint_handler(message, nullptr, error);
  return error;
}

int string_violation(char* cleared, const char* message, int error) {
  *cleared = 0;
  return string_violation(message, error);
}

int memory_violation(const char* message, int error) {
  tev_serv_invoke_safe_mem_constraint_handler(message, nullptr, error);
  return error;
}

int memory_violation(void* cleared, size_t length, const char* message, int error) {
  tev_serv_mem_prim_set(cleared, length, 0);
  return memory_violation(message, error);
}

// Pointers into unrelated objects have no order in C++; their addresses do.
uintptr_t address(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

// Copies to `to`, inside the object that begins at `dest`, until the source ends, slen is used up or room is.
//
//   dest .. to ...> | src            the writing end may not reach the source
//   src ..........> | dest .. to     the reading end may not reach the destination, not even to stop there
int copy_text(const char* dest, char* to, size_t room, const char* src, size_t slen) {
  const bool dest_first = address(dest) < address(src);
  const uintptr_t source_begin = address(src);
  for (; room > 0; --room, --slen, ++to, ++src) {
    if (dest_first ? address(to) >= source_begin : address(src) >= address(dest)) {
      return kOverlap;
    }
    *to = slen > 0 ? *src : '\0';
    if (*to == 0) {
      return 0;
    }
  }
  return kNoSpace;
}

// [dest, dest + dmax) against [src, src + smax).
bool ranges_overlap(const void* dest, size_t dmax, const void* src, size_t smax) {
  return address(src) < address(dest) + dmax && address(dest) < address(src) + smax;
}

}  // namespace

extern "C" {

void tev_serv_ignore_handler_s(const char*, void*, int) {}

tev_serv_constraint_handler tev_serv_set_str_constraint_handler_s(tev_serv_constraint_handler handler) {
  return install(string_handler, handler);
}

tev_serv_constraint_handler tev_serv_set_mem_constraint_handler_s(tev_serv_constraint_handler handler) {
  return install(memory_handler, handler);
}

void tev_serv_invoke_safe_str_constraint_handler(const char* message, void* reserved, int error) {
  string_handler.load()(message, reserved, error);
}

void tev_serv_invoke_safe_mem_constraint_handler(const char* message, void* reserved, int error) {
  memory_handler.load()(message, reserved, error);
}

int tev_serv_strncpy_s(char* dest, size_t dmax, const char* src, size_t slen) {
  if (dest == nullptr) return string_violation("strncpy_s: dest is null", kNullPointer);
  if (dmax == 0) return string_violation("strncpy_s: dmax is 0", kZeroLength);
  if (dmax > kMaxStringCapacity) return string_violation("strncpy_s: dmax exceeds max", kLengthAboveMax);
  if (src == nullptr) return string_violation(dest, "strncpy_s: src is null", kNullPointer);
  if (slen == 0) return string_violation(dest, "strncpy_s: slen is zero", kZeroLength);
  if (slen > kMaxStringCapacity) return string_violation(dest, "strncpy_s: slen exceeds max", kLengthAboveMax);
  switch (copy_text(dest, dest, dmax, src, slen)) {
    case kOverlap:
      return string_violation(dest, "strncpy_s: overlapping objects", kOverlap);
    case kNoSpace:
      return string_violation(dest, "strncpy_s: not enough space for src", kNoSpace);
  }
  return 0;
}

int tev_serv_strncat_s(char* dest, size_t dmax, const char* src, size_t slen) {
  if (dest == nullptr) return string_violation("strncat_s: dest is null", kNullPointer);
  if (dmax == 0) return string_violation("strncat_s: dmax is 0", kZeroLength);
  if (dmax > kMaxStringCapacity) return string_violation("strncat_s: dmax exceeds max", kLengthAboveMax);
  if (src == nullptr) return string_violation(dest, "strncat_s: src is null", kNullPointer);
  if (slen > kMaxStringCapacity) return string_violation(dest, "strncat_s: slen exceeds max", kLengthAboveMax);
  const size_t used = strnlen(dest, dmax);
  if (used == dmax) return string_violation(dest, "strncat_s: dest unterminated", kUnterminated);
  switch (copy_text(dest, dest + used, dmax - used, src, slen)) {
    case kOverlap:
      return string_violation(dest, "strncat_s: overlapping objects", kOverlap);
    case kNoSpace:
      return string_violation(dest, "strncat_s: not enough space for src", kNoSpace);
  }
  return 0;
}

size_t tev_serv_strnlen_s(const char* s, size_t dmax) {
  if (s == nullptr) return 0;
  if (dmax == 0) {
    string_violation("strnlen_s: dmax is 0", kZeroLength);
    return 0;
  }
  if (dmax > kMaxStringCapacity) {
    string_violation("strnlen_s: dmax exceeds max", kLengthAboveMax);
    return 0;
  }
  return strnlen(s, dmax);
}

int tev_serv_memcpy_s(void* dest, size_t dmax, const void* src, size_t smax) {
  if (dest == nullptr) return memory_violation("memcpy_s: dest is NULL", kNullPointer);
  if (dmax == 0) return memory_violation("memcpy_s: dmax is 0", kZeroLength);
  if (dmax > kMaxMemoryCapacity) return memory_violation("memcpy_s: dmax exceeds max", kLengthAboveMax);
  if (smax == 0) return memory_violation(dest, dmax, "memcpy_s: smax is 0", kZeroLength);
  if (smax > dmax) return memory_violation(dest, dmax, "memcpy_s: smax exceeds dmax", kLengthAboveMax);
  // A null source overlaps nothing, however low the destination lies.
  if (src != nullptr && ranges_overlap(dest, dmax, src, smax)) {
    return memory_violation(dest, dmax, "memcpy_s: overlap undefined", kOverlap);
  }
  if (src == nullptr) return memory_violation(dest, dmax, "memcpy_s: src is NULL", kNullPointer);
  tev_serv_mem_prim_move(dest, src, smax);
  return 0;
}

int tev_serv_memmove_unbounded_s(void* dest, size_t dmax, const void* src, size_t smax) {
  if (dest == nullptr) return memory_violation("memmove_s: dest is null", kNullPointer);
  if (dmax == 0) return memory_violation("memmove_s: dmax is 0", kZeroLength);
  if (smax == 0) return memory_violation("memmove_s: smax is 0", kZeroLength);
  if (smax > kMaxMemoryCapacity) return memory_violation("memmove_s: smax exceeds max", kLengthAboveMax);
  if (smax > dmax) return memory_violation("memmove_s: smax exceeds dmax", kLengthAboveMax);
  if (dmax > kMaxMemoryCapacity) return memory_violation("memmove_s: dmax exceeds max", kLengthAboveMax);
  if (src == nullptr) return memory_violation("memmove_s: src is null", kNullPointer);
  tev_serv_mem_prim_move(dest, src, smax);
  return 0;
}

void tev_serv_mem_prim_set(void* dest, size_t length, uint8_t value) { memset(dest, value, length); }

void tev_serv_mem_prim_move(void* dest, const void* src, size_t length) { memmove(dest, src, length); }

char* tev_serv_strcpy(char* dest, const char* src) {
  tev_serv_mem_prim_move(dest, src, strlen(src) + 1);
  return dest;
}

char* tev_serv_strcat2(char* dest, const char* first, const char* second) {
  const size_t length = strlen(first);
  tev_serv_mem_prim_move(dest + length, second, strlen(second) + 1);  // before `first`, which may replace it
  tev_serv_mem_prim_move(dest, first, length);
  return dest;
}

}  // extern "C"
