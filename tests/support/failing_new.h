// SPDX-License-Identifier: BSD-3-Clause
// C++ allocations that fail while a test says so. For one source file of an executable. The thread sanitizer keeps
// operator new for itself: nothing fails there.
#pragma once

#include "tests/support/prelude.h"

namespace tev::test {

inline thread_local bool new_fails = false;
inline thread_local int new_left = 0;  // more than 0: so many allocations, and from the last one on they fail

#if __has_feature(thread_sanitizer)
inline constexpr bool kNewCanFail = false;
#else
inline constexpr bool kNewCanFail = true;
#endif

inline void* allocate_or_null(size_t size) {
  if (new_left > 0 && --new_left == 0) new_fails = true;
  return new_fails ? nullptr : std::malloc(size);
}

inline void* allocate_or_throw(size_t size) {
  void* const block = allocate_or_null(size);
  return block ? block : throw std::bad_alloc();
}

}  // namespace tev::test

#if !__has_feature(thread_sanitizer)
void* operator new(size_t size) { return tev::test::allocate_or_throw(size); }
void* operator new[](size_t size) { return tev::test::allocate_or_throw(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return tev::test::allocate_or_null(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return tev::test::allocate_or_null(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
#endif
