// SPDX-License-Identifier: BSD-3-Clause
// The directories that libraries are searched in. The working directory is read before main() runs, since the program
// may change it; a process without one ends here.
#include <dlfcn.h>
#include <unistd.h>

#include <cstring>

#include "service/library_search.h"
#include "service/messages.h"

extern "C" {

char DispLibPath[4096];
char EXEPath[4096];
char DispLibCWD[4096];

}  // extern "C"

namespace {

__attribute__((constructor)) void read_working_directory() {
  Dl_info own = {};
  dladdr(reinterpret_cast<const void*>(read_working_directory), &own);
  if (!getcwd(DispLibCWD, sizeof DispLibCWD)) {
    DispLibCWD[0] = '\0';
    tev_serv_print(tev::service::kStandardError, tev::service::kCannotLoad, 1, own.dli_fname ? own.dli_fname : "");
    tev_serv_exit(2);
    return;
  }
  const size_t length = std::strlen(DispLibCWD);
  if (length + 1 < sizeof DispLibCWD) std::memcpy(DispLibCWD + length, "/", 2);
}

}  // namespace
