// SPDX-License-Identifier: BSD-3-Clause
// Memory for generated code. A page before the code, never executable, remembers how much is to be unmapped:
//
//   | length, rest of the page | code, whole pages |
//                              ^ address returned
#include <sys/mman.h>

#include <cstddef>

#include "tev/service.h"

namespace {

constexpr int64_t kPage = 4096;
constexpr int64_t kLargest = INT64_MAX - 2 * kPage;

}  // namespace

extern "C" {

void* tev_serv_jit_alloc(int64_t size) {
  if (size < 1 || size > kLargest) return nullptr;
  const size_t length = static_cast<size_t>(kPage + (size + kPage - 1) / kPage * kPage);
  void* const mapping = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) return nullptr;
  *static_cast<size_t*>(mapping) = length;
  return static_cast<char*>(mapping) + kPage;
}

int32_t tev_serv_jit_set_exec(void* address, int64_t length, int32_t executable) {
  if (length < 1) return 0;
  const int protection = PROT_READ | (executable != 0 ? PROT_EXEC : PROT_WRITE);
  return mprotect(address, static_cast<size_t>(length), protection) == 0 ? 1 : 0;
}

void tev_serv_jit_free(void* address) {
  if (address == nullptr) return;
  void* const mapping = static_cast<char*>(address) - kPage;
  munmap(mapping, *static_cast<size_t*>(mapping));
}

}  // extern "C"
