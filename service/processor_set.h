// SPDX-License-Identifier: BSD-3-Clause
// Processors by number, laid out as the kernel's affinity masks are.
#pragma once

#include <bit>
#include <cstdint>

namespace tev::service {

struct processor_set {
  static constexpr int32_t kRoom = 8192;
  uint64_t words[kRoom / 64] = {};

  // Numbers without room are left out.
  void insert(int32_t number) {
    if (number >= 0 && number < kRoom) words[number / 64] |= uint64_t{1} << number % 64;
  }

  bool contains(int32_t number) const { return (words[number / 64] >> number % 64 & 1) != 0; }

  int32_t count() const {
    int32_t processors = 0;
    for (const uint64_t word : words) processors += std::popcount(word);
    return processors;
  }
};

}  // namespace tev::service
