// SPDX-License-Identifier: BSD-3-Clause
#include "service/system_caches.h"

#include <algorithm>
#include <cstring>

#include "service/cpuid.h"
#include "service/kernel_files.h"
#include "tev/service.h"

namespace tev::service {

namespace {

// "48K"; 0 when there is no such text.
int64_t bytes_of(const first_line& size) {
  const int64_t number = size.number().value_or(0);
  return strchr(size.text, 'K') ? number << 10 : strchr(size.text, 'M') ? number << 20 : number;
}

// The kernel's folder for each cache of the first processor.
cache_levels described_caches() {
  cache_levels caches = {};
  for (int index = 0; caches.count < cache_levels::kMost; ++index) {
    const auto file = [index](const char* name) {
      return first_line("%s/cpu0/cache/index%d/%s", processor.cpu_folders, index, name);
    };
    const first_line type = file("type");
    if (type.text[0] == 0) break;
    if (strcmp(type.text, "Instruction") != 0) caches.bytes[caches.count++] = bytes_of(file("size"));
  }
  return caches;
}

}  // namespace

cache_levels known_caches() {
  int64_t sizes[5];
  tev_serv_cache_info(sizes);
  cache_levels caches = {static_cast<int32_t>(sizes[0]), {}};
  std::copy_n(sizes + 1, cache_levels::kMost, caches.bytes);
  return caches.count > 0 ? caches : described_caches();
}

}  // namespace tev::service
