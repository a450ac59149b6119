// SPDX-License-Identifier: BSD-3-Clause
// Errors of arguments and of memory: see tev/service.h for the handlers.
#pragma once

#include "tev/service.h"

namespace tev::service {

// Codes of tev_serv_xerbla that are not positions of arguments. 0 and below: a failed internal condition.
inline constexpr int32_t kNoWorkspace = 1000;
inline constexpr int32_t kIncompatibleOptions = 1001;
inline constexpr int32_t kNotEnoughMemory = 1089;
inline constexpr int32_t kCoprocessorIssue = 1212;

}  // namespace tev::service

extern "C" {

// 0 when the pointer is good. Else 1, after reporting kNotEnoughMemory for routine `name`.
int32_t tev_serv_check_ptr(const void* pointer, const char* name);

// 1 when the pointer is null, else 0; silent.
int32_t tev_serv_check_ptr_and_warn(const void* pointer, const char* name);

}  // extern "C"
