// SPDX-License-Identifier: BSD-3-Clause
// Finds optional libraries at run time: beside the loader and the executable, by name, then through the offload
// runtime's own loader along ZEL_LD_LIBRARY_PATH and LD_LIBRARY_PATH.
#pragma once

#include "tev/service.h"

extern "C" {

extern char DispLibCWD[4096];  // the working directory at start-up, with a trailing "/"

// 1 when the tracing library is loaded and can be told about the locks; decided once, then one load.
int tev_serv_load_vigil(void);

}  // extern "C"

namespace tev::service {

// Handle of dlopen, or null. The caller has made sure that the C library is not static.
void* load_library(const char* file);

// __trk_suppress_mark_range of the tracing library; null until tev_serv_load_vigil has found it.
using suppress_mark_range = void (*)(int mode, int mask, void* address, long length);
suppress_mark_range tracing_hook();

}  // namespace tev::service
