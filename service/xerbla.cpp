// SPDX-License-Identifier: BSD-3-Clause
// Errors of arguments and of memory: the program's handler, or an empty line and one message on standard output.
#include "service/xerbla.h"

#include <algorithm>
#include <atomic>

#include "service/bounded_strings.h"
#include "service/messages.h"

namespace {

using tev::service::kStandardOutput;

constexpr int32_t kWrongParameter = 6;    // %d position, %s routine
constexpr int32_t kFailedCondition = 7;   // %d code, %s routine
constexpr int32_t kWorkspaceMessage = 8;  // %s routine; so are the three below
constexpr int32_t kIncompatibleMessage = 9;
constexpr int32_t kMemoryMessage = 1089;
constexpr int32_t kCoprocessorMessage = 1212;
constexpr int32_t kShownCharacters = 20;  // of a routine's name

constinit std::atomic<tev_serv_xerbla_handler> tev_xerbla_address{nullptr};  // null: the default

// Of a code that has a message of its own; else 0.
int32_t message_of(int32_t code) {
  switch (code) {
    case tev::service::kNoWorkspace:
      return kWorkspaceMessage;
    case tev::service::kIncompatibleOptions:
      return kIncompatibleMessage;
    case tev::service::kNotEnoughMemory:
      return kMemoryMessage;
    case tev::service::kCoprocessorIssue:
      return kCoprocessorMessage;
    default:
      return 0;
  }
}

// The least code has no counterpart and stays as it is.
int32_t negated(int32_t code) { return static_cast<int32_t>(0u - static_cast<uint32_t>(code)); }

}  // namespace

extern "C" {

void tev_serv_default_xerbla(const char* name, const int32_t* info, int32_t length) {
  if (!name || !info) return;
  char routine[kShownCharacters + 2] = "";
  if (length > 0) tev_serv_strncpy_s(routine, sizeof routine, name, std::min(length, kShownCharacters));
  const int32_t code = *info;
  tev_serv_print(kStandardOutput, tev::service::kNewline, 0);
  if (message_of(code) != 0) {
    tev_serv_print(kStandardOutput, message_of(code), 1, routine);
  } else if (code <= 0) {
    tev_serv_print(kStandardOutput, kFailedCondition, 2, negated(code), routine);
  } else {
    tev_serv_print(kStandardOutput, kWrongParameter, 2, code, routine);
  }
}

void tev_serv_xerbla(const char* name, const int32_t* info, int32_t length) {
  if (!name || !info) return;
  const tev_serv_xerbla_handler handler = tev_xerbla_address;
  (handler ? handler : tev_serv_default_xerbla)(name, info, length);
}

tev_serv_xerbla_handler tev_serv_set_xerbla(tev_serv_xerbla_handler handler) {
  const tev_serv_xerbla_handler previous = tev_xerbla_address.exchange(handler);
  return previous ? previous : tev_serv_default_xerbla;
}

void tev_serv_set_xerbla_interface(tev_serv_xerbla_handler handler) {
  tev_serv_xerbla_handler none = nullptr;
  tev_xerbla_address.compare_exchange_strong(none, handler);
}

int32_t tev_serv_check_ptr(const void* pointer, const char* name) {
  if (pointer) return 0;
  const int32_t code = tev::service::kNotEnoughMemory;
  tev_serv_xerbla(name, &code, static_cast<int32_t>(tev_serv_strnlen_s(name, tev::service::kMaxStringCapacity)));
  return 1;
}

int32_t tev_serv_check_ptr_and_warn(const void* pointer, const char*) { return pointer ? 0 : 1; }

}  // extern "C"
