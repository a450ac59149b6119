// SPDX-License-Identifier: BSD-3-Clause
// Stands in for the library of high-bandwidth memory: ordinary memory, counted. HBWKIT_VERSION is its version (1001000
// when absent); HBWKIT_FAILS=pages refuses large pages, =all refuses everything.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#define STAND_IN_EXPORT extern "C" __attribute__((visibility("default")))

STAND_IN_EXPORT int hbwkit_blocks = 0;
STAND_IN_EXPORT int hbwkit_large_page_blocks = 0;

namespace {

bool fails(const char* what) {
  const char* value = getenv("HBWKIT_FAILS");
  return value && (!strcmp(value, what) || !strcmp(value, "all"));
}

}  // namespace

STAND_IN_EXPORT int hbwkit_get_version() {
  const char* version = getenv("HBWKIT_VERSION");
  return version ? atoi(version) : 1001000;
}

STAND_IN_EXPORT int hbw_posix_memalign_psize(void** block, size_t alignment, size_t size, int page_kind) {
  if (fails("pages") || alignment != 2097152 || page_kind != 2) return EINVAL;
  const int error = posix_memalign(block, alignment, size);
  if (error == 0) ++hbwkit_blocks, ++hbwkit_large_page_blocks;
  return error;
}

STAND_IN_EXPORT void* hbw_malloc(size_t size) {
  if (fails("malloc")) return nullptr;
  ++hbwkit_blocks;
  return malloc(size);
}

STAND_IN_EXPORT void hbw_free(void* block) {
  --hbwkit_blocks;
  free(block);
}
