// SPDX-License-Identifier: BSD-3-Clause
#include "host/tool/places.h"

#include <dlfcn.h>

#include <filesystem>

namespace tev::host::tool {

namespace fs = std::filesystem;

std::string companion_program(const std::string& name) {
  std::error_code error;
  const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
  const fs::path beside = folder / name, installed = folder.parent_path() / "libexec" / name;
  return !fs::exists(beside, error) && fs::exists(installed, error) ? installed : beside;
}

std::string library_folder() {
  Dl_info runtime;
  const void* known = dlsym(RTLD_DEFAULT, "vro_process_create");
  if (!known || dladdr(known, &runtime) == 0) return "";
  std::error_code error;
  return fs::canonical(runtime.dli_fname, error).parent_path();
}

}  // namespace tev::host::tool
