// SPDX-License-Identifier: BSD-3-Clause
#include "service/load_fun.h"

#include <dlfcn.h>
#include <link.h>

extern "C" void* tev_serv_load_fun(const char* name) {
  void* address = dlsym(nullptr, name);
  Dl_info library;
  void* entry = nullptr;
  if (!address || !dladdr1(address, &library, &entry, RTLD_DL_SYMENT) || !entry) return nullptr;
  const int type = ELF64_ST_TYPE(static_cast<const ElfW(Sym)*>(entry)->st_info);
  return type == STT_FUNC || type == STT_GNU_IFUNC ? address : nullptr;
}
