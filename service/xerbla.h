// SPDX-License-Identifier: BSD-3-Clause
// The report of a wrong argument.
#pragma once

#include <cstdint>

extern "C" {

// Writes to standard output that parameter `*info` of routine `name` is wrong. `name` has `length` characters and needs
// no terminator; 20 of them are shown. Does nothing when `name` or `info` is null.
void tev_serv_xerbla(const char* name, const int32_t* info, int32_t length);

}  // extern "C"
