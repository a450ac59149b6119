// SPDX-License-Identifier: BSD-3-Clause
// Settings from the environment. Every read goes through tev_serv_getenv (tev/service.h), so that nothing keeps a
// pointer into the environment and one switch turns all settings off.
#pragma once

#include "tev/service.h"

extern "C" {

// Fills the thread settings (service/threads.h). Called once per process, with the settings' lock held.
void tev_read_threads_env(void);

// 1 when the C library is linked statically: libraries cannot be loaded then.
int32_t tev_serv_libc_is_static(void);

}  // extern "C"
