// SPDX-License-Identifier: BSD-3-Clause
// The allocator of the C library with a plan of what fails in front.
#include "tests/chaos/failing_allocations.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void* block);
}

#define TEV_TEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constinit allocation_plan g_none = {};
constinit std::atomic<allocation_plan*> g_plan = &g_none;

__attribute__((constructor)) void find_plan() {
  const char* path = std::getenv(kPlanVariable);
  const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) return;
  void* shared = mmap(nullptr, sizeof(allocation_plan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (shared != MAP_FAILED) g_plan = static_cast<allocation_plan*>(shared);
}

bool fails() {
  allocation_plan* plan = g_plan;
  const long number = ++plan->seen, failing = plan->failing;
  const bool failed = number == failing || (failing > 0 && number > failing && plan->onwards);
  if (failed) errno = ENOMEM;
  return failed;
}

void* counted(void* block) {
  g_plan.load()->live += block != nullptr;
  return block;
}

}  // namespace

TEV_TEST_EXPORT void tev_test_follow(allocation_plan* plan) { g_plan = plan ? plan : &g_none; }

TEV_TEST_EXPORT void* malloc(size_t bytes) { return fails() ? nullptr : counted(__libc_malloc(bytes)); }

TEV_TEST_EXPORT void* calloc(size_t count, size_t bytes) {
  return fails() ? nullptr : counted(__libc_calloc(count, bytes));
}

TEV_TEST_EXPORT void* realloc(void* block, size_t bytes) {
  if (fails()) return nullptr;
  void* moved = __libc_realloc(block, bytes);
  return block ? moved : counted(moved);
}

TEV_TEST_EXPORT void* aligned_alloc(size_t alignment, size_t bytes) {
  return fails() ? nullptr : counted(__libc_memalign(alignment, bytes));
}

TEV_TEST_EXPORT int posix_memalign(void** block, size_t alignment, size_t bytes) {
  *block = aligned_alloc(alignment, bytes);
  return *block ? 0 : ENOMEM;
}

TEV_TEST_EXPORT void free(void* block) {
  g_plan.load()->live -= block != nullptr;
  __libc_free(block);
}
