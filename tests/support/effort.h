// SPDX-License-Identifier: BSD-3-Clause
// How much the tests do, and from which seed those go that go by chance: ./test sets both.
#pragma once

#include "tests/support/prelude.h"

namespace tev::test {

#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

inline bool long_run() { return std::getenv("TEV_TEST_LONG") != nullptr; }

inline uint64_t test_seed() {
  const char* given = std::getenv("TEV_TEST_SEED");
  static const uint64_t seed = given ? std::stoull(given) : std::random_device()();
  return seed;
}

// For failures: how to see the same again.
inline std::string repeat_with(uint64_t seed) { return "TEV_TEST_SEED=" + std::to_string(seed); }

}  // namespace tev::test
