// SPDX-License-Identifier: BSD-3-Clause
// Functions of this process found by name: how requests reach workers, and hooks that a program may or may not have.
#pragma once

// The address of the exported function `name` in the global scope of the process, or null. A name that belongs to data
// counts as not found: whoever asks is going to call what comes back.
extern "C" void* tev_serv_load_fun(const char* name);
